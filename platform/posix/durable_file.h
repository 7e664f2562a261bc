// Files and names that survive a power cut. Every call goes through the table of file calls.
//
// To port: fsync has to reach the medium, not the disk's cache only (F_FULLFSYNC elsewhere).
#pragma once

namespace vell {

/// Flushes an open file to the disk. What cannot be flushed (a device, a pipe, a file system without flushing) counts
/// as flushed. @return 0 or an error number.
[[nodiscard]] int sync_file(int descriptor) noexcept;

/// Flushes a folder's names to the disk. A folder that this process may not read cannot be flushed and counts as
/// flushed. @return 0 or an error number.
[[nodiscard]] int sync_folder(const char* path) noexcept;

}  // namespace vell
