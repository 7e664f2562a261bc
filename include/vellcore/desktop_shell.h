#pragma once
// Services of the desktop: the pool that start-up holds, well-known folders, opening things with the user's
// applications, running programs, what is hidden, mounted volumes, the user's locale.
//
// Texts are UTF-8. Every path copy is bounded by the size of the caller's buffer, whose last byte is always a
// terminator. Any thread may call everything here.
//
// Nothing here needs a display, and nothing goes through a shell: names reach programs as they are.

#include <cstdint>

#include "export.h"

/// A pool for the desktop's temporary objects: made first at start-up and released last at shutdown. On a system
/// without such pools it is a token.
/// @return  never null. Give it back with vl_release_autorelease_pool.
[[nodiscard]] VELL_API void* vl_create_autorelease_pool() noexcept;
[[nodiscard]] VELL_API void* cocoa_create_autorelease_pool() noexcept;

/// Releases a pool. Null is accepted.
VELL_API void vl_release_autorelease_pool(void* pool) noexcept;
VELL_API void cocoa_release_autorelease_pool(void* pool) noexcept;

// --- Folders ----------------------------------------------------------------------------------------------------
//
// Each writes an absolute path, which may not exist, cut to `size` bytes with the terminator.
// @return  false, with `buffer` untouched, when there is no such folder, or for a null buffer or a size below 1.

/// The folder that lists the applications installed for all users: "applications" in the first of $XDG_DATA_DIRS that
/// has one, else "/usr/share/applications".
VELL_API bool cocoa_application_path(char* buffer, int32_t size) noexcept;

/// The folder in which applications keep their data: $XDG_DATA_HOME, or ".local/share" in the user's home.
VELL_API bool cocoa_application_support_path(char* buffer, int32_t size) noexcept;

/// The user's folder for films as the desktop is set up, else "Videos" in the user's home.
VELL_API bool cocoa_movies_path(char* buffer, int32_t size) noexcept;

/// The folder for files that need not last, $TMPDIR or "/tmp".
/// Kept: when the path does not end in "/", "/0" is written after it (the digit), and the result does not count it:
/// "/tmp" gives "/tmp/0" and 4, "/var/tmp/" stays and gives 9.
/// @return  the length; 0 when it is not below size - 3 (the buffer then holds the path, cut to its size), and for a
///          null buffer or a size below 1.
VELL_API int32_t cocoa_get_temp_path(char* buffer, int32_t size) noexcept;

/// The user's locale as language and country, for example "en_GB". When the system does not tell (a "C" locale, for
/// instance) the answer of the last call that knew, or "en_US".
/// @return  a buffer of the calling thread, overwritten by its next call.
[[nodiscard]] VELL_API const char* cocoa_user_locale() noexcept;

/// True for an item that the desktop does not show: a name with a dot in front, or one that stands in the file
/// ".hidden" of its folder, one name on a line. A symbolic link is asked about itself.
/// @return  false for null, for an item that does not exist and, without a look, for "/Volumes".
[[nodiscard]] VELL_API bool cocoa_file_is_hidden(const char* path) noexcept;

// --- Opening things with the user's applications --------------------------------------------------------------------
//
// @return  true when an application was started; whether it could open the thing is between it and the user. False for
//          null, for what does not exist, and when there is no application for it: a debug line tells why.

/// Shows a folder in the user's file manager.
VELL_API bool cocoa_open_dir_in_finder(const char* path) noexcept;

/// Opens a URL with the application for its scheme; one of the scheme "file" like a path.
VELL_API bool cocoa_open_url(const char* url) noexcept;

/// Opens a file or folder with the application for its kind.
VELL_API bool cocoa_open_file_with_default_app(const char* path) noexcept;

/// Starts an application: one that the desktop knows by this name or under "<name>.desktop", an application entry by
/// its full path, or else a program, by its path or along the search path.
/// @param file  opened with it; null for none.
VELL_API bool cocoa_open_file_with_application(const char* application, const char* file) noexcept;

// --- Running programs -----------------------------------------------------------------------------------------------

/// Starts a program, looked up in the search path unless it has a "/".
///
/// @param argument_vector  ended by null; element 0 is the program's name as it sees it.
/// @param wait    not 0: returns when the program has ended. 0: returns at once; the program is reaped by a later call.
/// @param status  may be null. 0 for a program that runs on; else its exit code (0 to 255), the signal that ended it
///                with bit 31 set, or -1 when the program did not start or how it ended is not known.
/// @return  true when the program was started; false after the warning "Failed to start '%s' - %d" with the system's
///          error number.
/// @waits   with `wait`, until the program ends, and cannot be cancelled.
VELL_API bool cocoa_run_executable_with_args(const char* executable, char* const* argument_vector, int32_t wait,
                                             int32_t* status) noexcept;

/// Runs a program with up to two arguments; null ends them. @return  true when it was started.
VELL_API bool cocoa_open_file_with_executable(const char* executable, const char* first, const char* second,
                                              uint32_t wait) noexcept;

// --- Volumes --------------------------------------------------------------------------------------------------------

/// How many volumes of this machine are mounted: the root, and disks and cards with users' files; no volumes of the
/// network or of the system's own.
[[nodiscard]] VELL_API int32_t cocoa_get_num_mounted_local_volume_paths() noexcept;

/// The mount point of one of them, the root being number 0. Asked anew each time, so a volume that comes or goes
/// changes the numbers.
/// @return  null for a number below 0 or beyond the last. The text is the library's and stays.
[[nodiscard]] VELL_API const char* cocoa_get_mounted_local_volume_path(int32_t index) noexcept;
