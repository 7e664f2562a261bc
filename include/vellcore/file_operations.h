#pragma once
// The application's folders and operations on paths.
//
// Paths are UTF-8 with "/" between names. A buffer for a path has 1024 bytes, terminator included, unless a function
// takes its size. Null and empty paths are answered with the failure result.
//
// Any thread may call everything here except file_initialize.

#include <cstdint>

#include "export.h"

class fReadBuffer;
class fWriteBuffer;

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

/// True when the desktop hides the item `name` in `folder` (see cocoa_file_is_hidden). False for an empty folder.
[[nodiscard]] VELL_API bool file_is_hidden(const char* folder, const char* name) noexcept;
/// True when the file cannot be opened for reading, which includes a file that does not exist.
[[nodiscard]] VELL_API bool file_in_use(const char* path) noexcept;
/// The size of a regular file in bytes; 0 for anything else.
[[nodiscard]] VELL_API uint64_t file_size(const char* path) noexcept;
/// The modification time in seconds since 1970; 0 when the path cannot be examined.
[[nodiscard]] VELL_API int64_t file_get_modified_ts(const char* path) noexcept;
/// Sets the access and modification times to a whole second since 1970. Links are followed. @return true on success.
VELL_API bool file_set_modified_ts(const char* path, int64_t seconds) noexcept;

// --- Texts about files ----------------------------------------------------------------------------------------
//
// `size` is that of `out` in bytes, terminator included. Where false is returned, or the text does not fit, `out`
// becomes empty.

/// Writes a time in seconds since 1970 as local time "%2d-%02d-%02d %2d:%02d": day, month, year modulo 100, hour and
/// minute, for example " 7-03-24 18:05". Kept: the day comes first.
VELL_API void file_ts_2_txt(int64_t seconds, char* out, int32_t size) noexcept;

/// The same for a file's modification time. False when the path cannot be examined or the text does not fit.
VELL_API bool file_get_local_datetime_str(const char* path, char* out, int32_t size) noexcept;

/// A file's modification date: local "2024-03-07", or with `utc` the time in UTC, "2024-03-07T17:05:00Z". False when
/// the path cannot be examined or the text does not fit.
VELL_API bool file_get_mod_date_str(const char* path, char* out, int32_t size, bool utc) noexcept;

/// A size as people read it, in steps of 1024: "500 B", "1 KB", "1.5 KB", up to "EB"; with a "." in every locale.
/// Kept: the unit is chosen before rounding, so 1023.99 is "1024.0 B".
/// @return  false when the text does not fit; `out` is then cut.
VELL_API bool file_size_label(float bytes, char* out, int32_t size) noexcept;

/// The same for the number at the beginning of a text, with a "." in it whatever the locale; a text without one counts
/// as 0. False, with `out` left alone, for null, an empty text and a number that no float can hold.
VELL_API bool file_size_label(const char* text, char* out, int32_t size) noexcept;

// --- Names ----------------------------------------------------------------------------------------------------

/// Where the name in `path` (after its last "/") ends with `ext`, "A" to "Z" counting as "a" to "z".
/// @return  a pointer into `path`; null when it does not.
[[nodiscard]] VELL_API const char* file_extension(const char* path, const char* ext) noexcept;

/// Copies a name with every character that is one of ?~<>:"/\| or has a code from 1 to 30 replaced by "_".
///
/// @param size  0: all of `source` is copied, and `dest` has room for it. Otherwise at most `size` characters are
///              taken; when that many are, the last is not written but the terminator in its place.
/// @return  the number of characters taken: 4 for "abcdef" with size 4, which writes "abc". 0 for a negative size.
/// Kept: code 31 stays. A UTF-8 sequence may be cut at the end.
VELL_API int32_t vl_copy_valid_filename(char* dest, const char* source, int32_t size) noexcept;

/// Counts a name up: "clip" becomes "clip(1)", "clip(9)" becomes "clip(10)"; with `square` the brackets are "[" and
/// "]". The suffix reaches from the last opening bracket to a closing one at the name's end. What stands in it is read
/// as far as it is a number, so "clip()" and "clip(old)" become "clip(1)". A number that cannot be counted up in 32
/// bits gets a new suffix behind it.
/// @param name  has room for what is added: three bytes for a new suffix, one more when the digits get more.
/// @return  true; false for null.
VELL_API bool vl_increment_suffix(char* name, bool square) noexcept;

// --- Operations -----------------------------------------------------------------------------------------------

/// Creates a folder with permissions 0777.
/// @param recursive  true makes the missing folders above it first.
/// @return  0 when the folder was made directly, 1 when others were made first or somebody else made it meanwhile, -1
///          on failure (also when it exists).
VELL_API int32_t file_create_directory(const char* path, bool recursive) noexcept;

/// Removes a file or an empty folder; of a symbolic link the link itself. @return 0, or -1 with errno set.
VELL_API int32_t file_delete(const char* path) noexcept;

/// Deletes a folder with what it holds: the files in it, and with `recursive` its subfolders with theirs, which come
/// first. A file or symbolic link at `path` is deleted as file_delete does; links inside are removed, never followed,
/// and nothing outside the folder is touched even when paths are exchanged meanwhile.
///
/// A subfolder that cannot be deleted does not stop the rest; a file does. A bundle ("*.app") inside counts as a file,
/// so only an empty one is deleted. An empty path, "/" and paths that end in "." or ".." are refused.
/// @return  1, or -1 with errno set. Without `recursive` a folder with subfolders loses its files and answers -1.
VELL_API int32_t file_delete_directory(const char* path, bool recursive) noexcept;

/// Renames a file or folder, within one file system. Missing folders above the destination are made. Without
/// `overwrite` nothing is replaced, not even what appears during the call, where the file system can do that.
///
/// | result | reason                                                            |
/// |--------|-------------------------------------------------------------------|
/// |   0    | done                                                              |
/// |  -6    | no source                                                         |
/// | -10    | no destination                                                    |
/// |  -9    | source and destination are the same text                          |
/// |  -7    | the destination is a regular file and `overwrite` is false        |
/// |  -4    | the destination has no "/", or a folder of 1024 bytes or more     |
/// |  -5    | the destination's folder cannot be made, or is a bundle           |
/// | -11    | the rename failed; errno is set                                   |
VELL_API int32_t file_move(const char* source, const char* destination, bool overwrite) noexcept;

/// Looks for a regular file: `name` itself, then `name` in each folder of the search list.
///
/// In the list's entries "$NAME$" stands for an environment variable. An unset one is dropped with the debug line
/// "Environment variable '%s' not found".
///
/// @param out  receives the full path, at most 1024 bytes; null or `name` itself: nothing is written.
/// @return  1 when found, else 0; a path that needs more bytes is not found. An empty name is the error line
///          "Can't search for NULL file..." and 0.
VELL_API int32_t file_find(const char* name, char* out) noexcept;

/// Looks for the last part of `name` in a folder and, depth first and in their own order, in its subfolders. Links are
/// followed, but never into a folder that the search is already inside of.
///
/// @param out  receives folder + "/" + the last part of `name` for the first regular file; `size` bytes.
/// @return  1 when found, else 0; 0 also when the path found does not fit, then `out` is empty.
VELL_API int32_t file_search(const char* folder, const char* name, char* out, int32_t size) noexcept;

// --- Copying --------------------------------------------------------------------------------------------------

/// Sees every block of a copy before it is written, and null with 0 when the data ends. It must not throw.
///
/// @param data    valid during the call only.
/// @param length  bytes.
typedef void (*file_copy_callback)(const void* data, unsigned long long length, void* context);

/// Copies one file to up to 16 others, reading it once. Missing folders above the destinations are made; copies have
/// permissions 0666 within the process's mask, and the time of the copying.
///
/// All destinations are checked, in their order, before anything is opened; what a later failure leaves (folders, a
/// part of a copy) stays. Nothing is forced to the disk: see file_copy_secure for a copy that is compared.
///
/// | result | reason                                                    | error line with `log`: "File Copy: " and |
/// |--------|-----------------------------------------------------------|------------------------------------------|
/// |    0   | done: every byte arrived at every destination             |                                          |
/// |   -6   | no source                                                 | "no source file specified!", always      |
/// |  -12   | two or more destinations, a writer list of another length |                                          |
/// |  -13   | more than 16 destinations                                 |                                          |
/// |   -9   | a destination is the same text as the source              | "source and destination are the same!"   |
/// |   -4   | no destination, or one without a "/" or with a folder of  |                                          |
/// |        | 1024 bytes or more                                        |                                          |
/// |   -5   | a destination's folder cannot be made                     |                                          |
/// |   -7   | a destination is a regular file and `overwrite` is false, | "destination file already exists!"       |
/// |        | also one that appears meanwhile: it keeps its content     |                                          |
/// |   -1   | the source cannot be opened, or is a pipe                 | "failed to open '%s'"                    |
/// |   -3   | the source cannot be read, or became shorter              | "failed to read '%s'"                    |
/// |   -2   | a destination cannot be created, or is a pipe             | "failed to create '%s'"                  |
/// |   -8   | a write failed, also one that shows only at closing       |                                          |
///
/// A destination that is the source itself under another name (a link, another spelling) is not written and keeps its
/// content; so is one that is an earlier destination. An empty source makes empty destinations; a regular file that
/// tells a size of 0 and has content (the system's information files, as in /proc) is copied until it ends.
///
/// @param destinations  paths, ended by null or an empty text; at least one.
/// @param bytes_copied  grows by the length of every block that was written everywhere; not reset.
/// @param reader        null: one is made for the call (eight buffers of 1 MiB, read ahead). The caller's is left
///                      closed.
/// @param writers       null: they are made for the call (two buffers of 16 MiB each). Else one per destination, ended
///                      by null; left closed, with their error counts.
/// @param callback      null, or called with `context` on the calling thread.
/// @thread  any; a reader or writer serves one copy at a time.
VELL_API int32_t file_copy(const char* source, const char** destinations, bool overwrite,
                           unsigned long long& bytes_copied, fReadBuffer* reader, fWriteBuffer** writers,
                           file_copy_callback callback, void* context, bool log) noexcept;

/// The same for one destination, with null for a writer to be made.
VELL_API int32_t file_copy(const char* source, const char* destination, bool overwrite,
                           unsigned long long& bytes_copied, fReadBuffer* reader, fWriteBuffer* writer,
                           file_copy_callback callback, void* context, bool log) noexcept;
