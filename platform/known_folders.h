// Where the system keeps a user's files, and what the user's language is.
//
// To port: the folders and the user's locale. Every function answers false when the system does
// not tell, and never writes more than `capacity` bytes, terminator included.
#pragma once

#include <cstddef>

namespace vell {

/// The folder in which each application keeps its data in a folder of its own. An absolute path without a "/" at its
/// end; it may not exist yet. A path that does not fit is not told.
[[nodiscard]] bool application_support_folder(char* path, size_t capacity) noexcept;

/// The folder that lists the applications installed for all users.
[[nodiscard]] bool application_folder(char* path, size_t capacity) noexcept;

/// `below` in the user's home folder; it begins with a "/".
[[nodiscard]] bool home_folder(const char* below, char* path, size_t capacity) noexcept;

/// The folder for files that need not last; with a "/" at its end only if the system names it so.
[[nodiscard]] bool temporary_folder(char* path, size_t capacity) noexcept;

/// The user's locale as language and country, for example en_GB.
[[nodiscard]] bool user_locale(char* identifier, size_t capacity) noexcept;

}  // namespace vell
