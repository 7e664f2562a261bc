// The application's folders, as file_initialize found them.
#pragma once

#include <cstddef>

#include "files/path_text.h"

namespace vell {

inline constexpr size_t k_search_list_bytes = 6144;  // of the search list, terminator included

struct AppFolders {
    char code[k_path_bytes];                ///< the module's path, or its bundle's with a "/" at the end
    char data[k_path_bytes];                ///< the data folder as it was found
    char default_settings[k_path_bytes];    ///< the data folder's "Defaults"
    char search_list[k_search_list_bytes];  ///< folders, each ended by "|"
    char log_file[k_path_bytes];            ///< empty without a log file
    const AppFolders* previous;             ///< what an earlier file_initialize found; its texts are still handed out
};

/// The folders in force; empty texts before file_initialize. They do not change once they are handed out.
[[nodiscard]] const AppFolders& app_folders() noexcept;

/// Sends the process's standard error, unbuffered, into a fresh file at `path`.
/// @return  false, with standard error as it was, when the file cannot be opened.
[[nodiscard]] bool redirect_standard_error(const char* path) noexcept;

/// Looks for `name` in the folders of a search list. @return true with the full path in `out`.
[[nodiscard]] bool find_in_list(const char* list, const char* name, PathText& out) noexcept;

}  // namespace vell
