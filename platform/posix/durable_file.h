// Files and names that survive a power cut. Every call goes through the table of file calls.
//
// To port: fsync has to reach the medium, not the disk's cache only (F_FULLFSYNC elsewhere).
#pragma once

#include <string_view>

namespace vell {

/// Flushes an open file to the disk. What cannot be flushed (a device, a pipe, a file system without flushing) counts
/// as flushed. @return 0 or an error number.
[[nodiscard]] int sync_file(int descriptor) noexcept;

/// Flushes a folder's names to the disk. A folder that this process may not read cannot be flushed and counts as
/// flushed. @return 0 or an error number.
[[nodiscard]] int sync_folder(const char* path) noexcept;

/// Replaces the content of a small file, or creates the file (permissions 0666 within the process's mask). Until the
/// new content is on the disk it is kept beside the file: after a failure, or a power cut, the file has its old content
/// or the new. Permissions stay, links are followed. A device, and the missing target of a link,
/// are written in place.
/// @return  0 or an error number; the old content is then unchanged.
[[nodiscard]] int replace_file(const char* path, std::string_view text) noexcept;

}  // namespace vell
