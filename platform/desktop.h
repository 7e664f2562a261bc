// The desktop: opening things with the user's applications, and what it knows about folders and volumes.
//
// To port: five operations over the system's own desktop service. Nothing goes through a shell: names reach programs
// as they are, whatever bytes they hold. Paths and URLs are UTF-8 and not null. An operation that opens something
// returns when the application was started; why it was not is told in `reason`, for the log.
//
// Called from the host's main thread as a rule; any thread may call. Nothing here may need a display or a session.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vell {

/// Opens a file or folder with the application for its kind. False for one that does not exist.
[[nodiscard]] bool open_with_default_application(const char* path, std::string& reason) noexcept;

/// Opens a URL with the application for its scheme.
[[nodiscard]] bool open_url(const char* url, std::string& reason) noexcept;

/// Starts an application that the desktop knows under this name; `file` may be null.
/// @param is_known  false when the desktop knows no such application: nothing was started then.
[[nodiscard]] bool open_with_application(const char* application, const char* file, bool& is_known,
                                         std::string& reason) noexcept;

/// The user's folder for films. A path that does not fit `capacity` bytes with its terminator is not told.
[[nodiscard]] bool movies_folder(char* path, size_t capacity) noexcept;

/// The mount points of the volumes of this machine that hold users' files, the root first; empty when memory is short.
[[nodiscard]] std::vector<std::string> local_volumes() noexcept;

}  // namespace vell
