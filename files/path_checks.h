// Folders: is there one, and make sure that there is.
#pragma once

#include <cstddef>

namespace vell {

inline constexpr size_t k_folder_bytes = 1024;  // of the folder part of a destination, terminator included

/// True for a directory, bundle or not.
[[nodiscard]] bool is_folder(const char* path) noexcept;

/// Makes the folder at `path`, with the folders above it, unless there is one. False with errno set; also for a bundle
/// that exists, which is no directory here.
[[nodiscard]] bool ensure_folder(const char* path) noexcept;

/// Where the folder part of a path ends: at its last "/". Null without one, or when the folder does not fit a buffer
/// of k_folder_bytes.
[[nodiscard]] const char* end_of_folder(const char* path) noexcept;

/// Makes the folder that holds `path`, as ensure_folder does. `path` has passed end_of_folder.
[[nodiscard]] bool ensure_folder_of(const char* path) noexcept;

}  // namespace vell
