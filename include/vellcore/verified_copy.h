#pragma once
// Copies that are compared with their source, and MD5 sums of files.
//
// Failures are told by code; the text of the process's last failure is kept for get_error_file_copy_secure. Nothing
// is logged unless that is asked to.

#include <cstdint>

#include "export.h"
#include "hash_functions.h"

class fReadBuffer;
class fWriteBuffer;

/// Copies a file. Missing folders above the destination are made; an existing file is overwritten. Read and written
/// past the system's file cache where rwBufferConfigure and the file system allow it, so that reading back reads the
/// disk.
///
/// On success the copy survives a power cut: its content, its name and the folders that were made for it have been
/// flushed to the disk (fsync), before anything is read back. What knows no flushing is left out: a device, a file
/// system without it, a folder that the process may not read.
///
/// | result | reason                                              | text kept: "File Copy: " and                      |
/// |--------|-----------------------------------------------------|---------------------------------------------------|
/// |    0   | copied, and compared when asked                     |                                                   |
/// |   -1   | the paths are the same text                         | "source and destination are the same!"            |
/// |   -2   | the source cannot be opened or is a pipe, or the    | "failed to open '%s'", both times with the source |
/// |        | destination cannot be created                       |                                                   |
/// |   -3   | the source cannot be read, or became shorter        | "failed to read '%s'"                             |
/// |   -4   | a write or a flush failed, also one that shows only | "write error of %s between %llu and %llu ": the   |
/// |        | at closing                                          | source, and the offsets of the last block         |
/// |   -5   | the destination has no "/", or a folder of 1024     | "pathname %s is not allowed"                      |
/// |        | bytes or more                                       |                                                   |
/// |   -6   | the destination's folder cannot be made             | none: the text kept before stays                  |
/// |   -7   | the digests differ                                  | "hash values of '%s' and '%s' do not match"       |
///
/// A failure while reading back keeps file_read_secure's code, with the text of -7. A failed copy leaves the part of
/// the destination that it wrote. A destination that is the source itself under another name is not written and keeps
/// its content; all else happens as for any copy.
///
/// @param ignored       has no effect.
/// @param bytes_copied  grows by the length of every block written; not reset.
/// @param md5           flag 1: receives the finished state of the source's digest (the digest is its four words
///                      `abcd`) when all was written. Flag 2 without 1: holds the state to compare with.
/// @param flags         1: compute the MD5 of the source while copying. 2: read the destination back and compare.
/// @param reader,writer null: made for the call (eight buffers of 1 MiB, two of 16 MiB). The caller's are left closed.
/// @thread  any; a reader or writer serves one copy at a time.
/// @waits   for the source, for every write, and for the disk to flush the file.
VELL_API int32_t file_copy_secure(const char* source, const char* destination, bool ignored,
                                  unsigned long long& bytes_copied, md5_state_s& md5, unsigned int flags,
                                  fReadBuffer* reader, fWriteBuffer* writer) noexcept;

/// Computes the MD5 digest of a file, and compares it.
///
/// @param md5       receives the finished state; unchanged on -2 and -3.
/// @param reader    as above.
/// @param expected  null, or a state whose four words `abcd` are compared.
/// @return  0; -2 "File Copy: failed to open '%s'"; -3 "File Copy: unable to read '%s'"; -7, with no text, when the
///          digests differ.
VELL_API int32_t file_read_secure(const char* path, md5_state_s& md5, fReadBuffer* reader,
                                  const md5_state_s* expected) noexcept;

/// The text of the process's last failed file_copy_secure or file_read_secure, cut to 511 bytes.
///
/// @param code  -7 to -1, as those calls returned it. For any other code the text is cleared, and answered empty.
/// @param log   writes the text to the log, as an error.
/// @return  a buffer of the calling thread, overwritten by its next call.
VELL_API const char* get_error_file_copy_secure(int32_t code, bool log) noexcept;
