// Folders: is there one, and make sure that there is.
#pragma once

namespace vell {

/// True for a directory, bundle or not.
[[nodiscard]] bool is_folder(const char* path) noexcept;

/// Makes the folder at `path`, with the folders above it, unless there is one. False with errno set.
[[nodiscard]] bool ensure_folder(const char* path) noexcept;

}  // namespace vell
