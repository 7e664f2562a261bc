// Operations on one or two paths: create, delete, move.

#include "vellcore/file_operations.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "files/path_checks.h"
#include "platform/posix/file_calls.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr mode_t k_folder_mode = 0777;

bool make_folder(const char* path) noexcept {
    return file_calls.mkdir(path, k_folder_mode) == 0;
}

/// Where the parent of `path` ends (its "/"), or null when it has none. "/"s at the end belong to the last name.
char* end_of_parent(char* path) noexcept {
    size_t length = strlen(path);
    while (length > 1 && path[length - 1] == '/')
        --length;
    while (length > 0 && path[length - 1] != '/')
        --length;
    return length > 1 ? path + length - 1 : nullptr;
}

/// Makes `path` after the folders above it that are missing, up to the first that exists.
bool make_folder_and_parents(char* path) noexcept {
    if (make_folder(path)) return true;
    if (errno != ENOENT) return false;
    char* end = end_of_parent(path);
    if (end == nullptr) return false;
    *end = '\0';
    const bool has_parent = make_folder_and_parents(path) || errno == EEXIST;
    *end = '/';
    return has_parent && make_folder(path);
}

/// Gives a file a second name, which the system does only when that name is free, and removes the first. Folders, and
/// files of a file system without second names, are renamed: what appears there meanwhile is replaced.
bool move_by_second_name(const char* source, const char* destination) noexcept {
    if (file_calls.link(source, destination) != 0) {
        const bool has_no_links = errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS || errno == EMLINK;
        return has_no_links && file_calls.rename(source, destination) == 0;
    }
    if (file_calls.unlink(source) == 0) return true;
    const int error = errno;
    file_calls.unlink(destination);
    errno = error;
    return false;
}

/// Renames without replacing anything. @return file_move's code.
int32_t rename_to_free_name(const char* source, const char* destination) noexcept {
    if (file_calls.rename_to_free_name(source, destination) == 0) return 0;
    const bool is_unable = errno == EINVAL || errno == ENOSYS;
    if (is_unable && move_by_second_name(source, destination)) return 0;
    const int error = errno;
    const bool has_appeared = error == EEXIST && file_exists(destination);
    errno = error;
    return has_appeared ? -7 : -11;
}

bool is_empty(const char* text) noexcept {
    return text == nullptr || *text == '\0';
}

}  // namespace

bool ensure_folder(const char* path) noexcept {
    if (file_is_directory(path) || file_create_directory(path, /*recursive*/ true) >= 0) return true;
    const int error = errno;
    const bool was_made_meanwhile = file_is_directory(path);
    errno = error;
    return was_made_meanwhile;
}

const char* end_of_folder(const char* path) noexcept {
    const char* name = strrchr(path, '/');
    return name != nullptr && static_cast<size_t>(name - path) < k_folder_bytes ? name : nullptr;
}

bool ensure_folder_of(const char* path) noexcept {
    const auto length = static_cast<size_t>(end_of_folder(path) - path);
    if (length == 0) return true;
    char folder[k_folder_bytes];
    memcpy(folder, path, length);
    folder[length] = '\0';
    return ensure_folder(folder);
}

}  // namespace vell

const char* _errormsg() noexcept {
    return os_errormsg();
}

int32_t file_create_directory(const char* path, bool recursive) noexcept {
    if (vell::is_empty(path)) return -1;
    if (vell::make_folder(path)) return 0;
    if (!recursive || errno != ENOENT) return -1;
    char copy[PATH_MAX];
    const size_t length = strlen(path);
    if (length >= sizeof copy) return -1;
    memcpy(copy, path, length + 1);
    if (vell::make_folder_and_parents(copy)) return 1;
    // It was not there at first, so a rival has made it since.
    return errno == EEXIST && vell::is_folder(path) ? 1 : -1;
}

int32_t file_delete(const char* path) noexcept {
    if (path == nullptr) return -1;
    if (vell::file_calls.unlink(path) == 0) return 0;
    const int error = errno;
    if (vell::is_folder(path)) return vell::file_calls.rmdir(path) == 0 ? 0 : -1;
    errno = error;
    return -1;
}

int32_t file_move(const char* source, const char* destination, bool overwrite) noexcept {
    if (vell::is_empty(source)) return -6;
    if (vell::is_empty(destination)) return -10;
    if (strcmp(source, destination) == 0) return -9;
    if (!overwrite && file_exists(destination)) return -7;
    if (vell::end_of_folder(destination) == nullptr) return -4;
    if (!vell::ensure_folder_of(destination)) return -5;
    if (overwrite) return vell::file_calls.rename(source, destination) == 0 ? 0 : -11;
    return vell::rename_to_free_name(source, destination);
}
