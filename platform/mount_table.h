// Where volumes are mounted.
//
// To port: the system's own answer to mount_point_of (statfs tells it on systems whose record has the mount point).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vell {

/// Finds the mount point of the volume that holds `path`, links followed.
/// @return  false when `path` does not exist, or when the mount point needs more than `capacity` bytes with its
///          terminator.
[[nodiscard]] bool mount_point_of(const char* path, char* out, size_t capacity) noexcept;

/// Linux only, for the tests: looks a mount up in the text of /proc/self/mountinfo and decodes its mount point.
/// @return  false when it is not listed or does not fit.
[[nodiscard]] bool find_in_mount_table(std::string_view table, uint64_t mount_id, char* out, size_t capacity) noexcept;

}  // namespace vell
