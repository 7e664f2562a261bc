#pragma once
// vl_filecopy: a plain copy of a file or of a folder with what is in it.

#include <cstdint>

#include "export.h"

/// Copies a file, or a folder's files and on request its subfolders.
///
/// Into an existing folder a file is copied under its own name. A folder's files go straight into the destination
/// folder, which is made with the folders above it. Existing files are overwritten. Links are followed, but never into
/// a folder that is being copied already, nor into the destination.
///
/// For a file:
///
/// | result | reason                                                                                          |
/// |--------|-------------------------------------------------------------------------------------------------|
/// |    0   | copied, or there is no source                                                                   |
/// |   -1   | the paths are the same text, with the error line                                                |
/// |        | "FileCopy: Source and destination are the same!" and the source; or the source cannot be opened |
/// |   -2   | the destination cannot be created                                                               |
/// |   -3   | the source is empty or nothing of it can be read: the destination is not touched then           |
/// |   -3   | a later read or a write failed                                                                  |
///
/// For a folder: the number of files copied, those of subfolders included; 0 when the destination folder cannot be
/// made, with the error line "Error creating directory %s : %s"; -1 when a file could not be copied: the rest is then
/// not tried. Kept: so an empty file stops the copying of its folder. A subfolder whose destination cannot be made is
/// skipped. A path of 1024 bytes or more is a failure.
///
/// @param bytes  set to 0, unless the paths are the same text; grows by every block written.
/// @thread  any; a copy has its own buffers. It is plain: nothing is compared, nothing is forced to the disk.
VELL_API int32_t vl_filecopy(const char* source, const char* destination, bool recursive,
                             unsigned long long& bytes) noexcept;
