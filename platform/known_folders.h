// Where the system keeps a user's files, and what the user's language is.
//
// To port: the folder for application data and the user's locale. Every function answers false when the system does
// not tell, and never writes more than `capacity` bytes, terminator included.
#pragma once

#include <cstddef>

namespace vell {

/// The folder in which each application keeps its data in a folder of its own. An absolute path without a "/" at its
/// end; it may not exist yet. A path that does not fit is not told.
[[nodiscard]] bool application_support_folder(char* path, size_t capacity) noexcept;

/// The user's locale as language and country, for example en_GB.
[[nodiscard]] bool user_locale(char* identifier, size_t capacity) noexcept;

}  // namespace vell
