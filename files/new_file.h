// Creating a file under a name that is free.
#pragma once

namespace vell {

/// Creates a file for reading and writing, and never touches one that exists: a file that appears at the last moment
/// keeps its content. A symbolic link to a missing file is followed. A device is opened.
///
/// @return  a descriptor registered with the transfer engine; or -1 and errno, EEXIST for a regular file.
[[nodiscard]] int create_new_file(const char* path) noexcept;

}  // namespace vell
