#pragma once
// The application's folders and operations on paths.
//
// Paths are UTF-8 with "/" between names. A buffer for a path has 1024 bytes, terminator included, unless a function
// takes its size. Null and empty paths are answered with the failure result.
//
// Any thread may call everything here except file_initialize.

#include <cstdint>

#include "export.h"

// --- The application's folders --------------------------------------------------------------------------------

/// Finds the application's folders, opens the log file and starts the log. Part of start-up, before other threads.
///
/// The code path is the running module's path; inside an application bundle it is the bundle's, with a "/" at its end.
/// The data folder is the first of: the value of the environment variable that `data_env` names; the code path, when
/// "Settings/System.reg" stands in it or `app_name` is null; "<application support folder>/<app_name>". The search
/// list is "<data>/Settings|<data>/Defaults|<the module's folder>|".
///
/// The log file is "<data>/Settings/logs/<app_name>.log", or "<app_name>.log" in the current folder when that folder
/// cannot be made. Ten earlier logs are kept ("<app_name>.1.log" is the previous one). Standard error is turned into
/// the log file, unbuffered; when it cannot be opened, standard error stays what it is and the log goes there.
///
/// @param app_name  null: no log file, the log goes to the standard error stream.
/// @param data_env  null, or a variable that is not set or empty: not used.
/// Sets the process's file-creation mask to 0. Log lines of this call itself are lost: the log is not open yet.
VELL_API void file_initialize(const char* app_name, const char* data_env) noexcept;

/// The data folder as it was found (with or without a "/" at its end), the code path, the folder of default settings
/// and the log file's path. Never null; empty before file_initialize, and the log file's also without `app_name`.
/// The texts never change; a second file_initialize hands out new ones.
[[nodiscard]] VELL_API const char* file_get_data() noexcept;
[[nodiscard]] VELL_API const char* file_get_code() noexcept;
[[nodiscard]] VELL_API const char* file_get_default_settings() noexcept;
[[nodiscard]] VELL_API const char* file_get_logfile() noexcept;

/// Makes sure that a folder exists and names a file in it.
///
/// @param folder  taken as it is when it starts with "/" or has ":" second; otherwise below the data folder. One "/"
///                or "\\" at its end is ignored. Missing folders are made, with permissions 0777.
/// @param file    appended after a "/"; null or empty leaves the folder with its "/".
/// @param out     receives the path; 1024 bytes. Null means a buffer of the calling thread, overwritten by its next
///                call. It may be `folder`.
/// @return  the buffer; null when the path needs more than 1024 bytes, or when the folder cannot be made: the error
///          line is "Error creating directory %s : %s".
VELL_API char* file_ensure_directory(const char* folder, const char* file = nullptr, char* out = nullptr) noexcept;

/// Makes room for a new file at `path` by renaming: "x.log" becomes "x.1.log", "x.1.log" becomes "x.2.log" and so on
/// up to "x.<keep>.log", whose old file is deleted.
///
/// @param keep  how many old files remain, at most 9999; below 1 does nothing.
/// @return  the number of files moved.
/// A failure is an error line and does not stop the rest: "F-BK: Failed to remove...(%s)" or
/// "F-BK: Failed to rename...(%s)" with the system's text, continued by "File: '%s'".
/// Kept: a name without a "." gets one at its end too: "x" becomes "x.1.".
VELL_API int32_t file_backup(const char* path, int32_t keep) noexcept;

/// The system's text for the calling thread's errno, cut to 255 bytes; empty when the system has none.
/// @return  a buffer of the calling thread, overwritten by its next call.
[[nodiscard]] VELL_API const char* _errormsg() noexcept;

// --- Questions about a path -----------------------------------------------------------------------------------

/// True for a regular file. Symbolic links are followed.
[[nodiscard]] VELL_API bool file_exists(const char* path) noexcept;
/// True for a directory that is not a bundle.
[[nodiscard]] VELL_API bool file_is_directory(const char* path) noexcept;
/// True when the name ends in ".app", in this case; the file system is not asked.
[[nodiscard]] VELL_API bool file_is_bundle(const char* path) noexcept;

// --- Operations -----------------------------------------------------------------------------------------------

/// Creates a folder with permissions 0777.
/// @param recursive  true makes the missing folders above it first.
/// @return  0 when the folder was made directly, 1 when others were made first, -1 on failure (also when it exists).
VELL_API int32_t file_create_directory(const char* path, bool recursive) noexcept;

/// Removes a file or an empty folder; of a symbolic link the link itself. @return 0, or -1 with errno set.
VELL_API int32_t file_delete(const char* path) noexcept;

/// Renames a file or folder, within one file system. Missing folders above the destination are made.
///
/// | result | reason                                                            |
/// |--------|-------------------------------------------------------------------|
/// |   0    | done                                                              |
/// |  -6    | no source                                                         |
/// | -10    | no destination                                                    |
/// |  -9    | source and destination are the same text                          |
/// |  -7    | the destination is a regular file and `overwrite` is false        |
/// |  -4    | the destination has no "/", or a folder of 1024 bytes or more     |
/// |  -5    | the destination's folder cannot be made                           |
/// | -11    | the rename failed; errno is set                                   |
VELL_API int32_t file_move(const char* source, const char* destination, bool overwrite) noexcept;

/// Looks for a regular file: `name` itself, then `name` in each folder of the search list.
///
/// In the list's entries "$NAME$" stands for an environment variable. An unset one is dropped with the debug line
/// "Environment variable '%s' not found".
///
/// @param out  receives the full path, at most 1024 bytes; null or `name` itself: nothing is written.
/// @return  1 when found, else 0. An empty name is an error line "Can't search for NULL file..." and 0.
VELL_API int32_t file_find(const char* name, char* out) noexcept;
