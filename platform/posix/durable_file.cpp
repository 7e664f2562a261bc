#include "platform/posix/durable_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/lock.h"
#include "platform/posix/file_calls.h"

namespace vell {
namespace {

constexpr mode_t k_new_file_mode = 0666;

bool knows_no_flush(int error) noexcept {
    return error == EINVAL || error == ENOTSUP || error == ENOSYS;
}

int close_file(int descriptor) noexcept {
    // Linux closes the descriptor even when it was interrupted.
    return file_calls.close(descriptor) == 0 || errno == EINTR ? 0 : errno;
}

int write_all(int descriptor, std::string_view text) noexcept {
    for (size_t written = 0; written < text.size();) {
        const ssize_t bytes =
            file_calls.pwrite(descriptor, text.data() + written, text.size() - written, static_cast<off_t>(written));
        if (bytes < 0 && errno != EINTR) return errno;
        if (bytes == 0) return ENOSPC;
        if (bytes > 0) written += static_cast<size_t>(bytes);
    }
    return 0;
}

int write_and_close(int descriptor, std::string_view text) noexcept {
    int error = write_all(descriptor, text);
    if (error == 0) error = sync_file(descriptor);
    const int close_error = close_file(descriptor);
    return error != 0 ? error : close_error;
}

/// Creates a file of a free name beside `path`. A descriptor, or -1 and errno.
int create_beside(const char* path, mode_t mode, char (&name)[PATH_MAX]) noexcept {
    static std::atomic<unsigned> last_number{0};
    constexpr int k_max_attempts = 100;  // a process that ended early may have left some
    const char* slash = strrchr(path, '/');
    const int folder_length = slash != nullptr ? static_cast<int>(slash - path) + 1 : 0;
    for (int attempt = 0; attempt < k_max_attempts; ++attempt) {
        const int length = std::snprintf(name, sizeof name, "%.*s.%s.%d-%u", folder_length, path, path + folder_length,
                                         static_cast<int>(getpid()), ++last_number);
        if (length < 0 || static_cast<size_t>(length) >= sizeof name) {
            errno = ENAMETOOLONG;
            return -1;
        }
        const int descriptor = open_above_streams(name, O_WRONLY | O_CREAT | O_EXCL, mode);
        if (descriptor >= 0 || errno != EEXIST) return descriptor;
    }
    return -1;
}

int write_in_place(const char* path, std::string_view text) noexcept {
    const int descriptor = open_above_streams(path, O_WRONLY | O_CREAT, k_new_file_mode);
    return descriptor >= 0 ? write_and_close(descriptor, text) : errno;
}

/// `old` is the file's status, or null when there is none.
int replace_regular(const char* path, const struct stat* old, std::string_view text) noexcept {
    constexpr mode_t k_permissions = 07777;
    char beside[PATH_MAX];
    const int descriptor = create_beside(path, k_new_file_mode, beside);
    if (descriptor < 0) return errno;
    // Where the system refuses, the new file's permissions do.
    if (old != nullptr && fchmod(descriptor, old->st_mode & k_permissions) != 0) errno = 0;
    int error = write_and_close(descriptor, text);
    if (error == 0 && file_calls.rename(beside, path) != 0) error = errno;
    if (error != 0) file_calls.unlink(beside);
    return error;
}

}  // namespace

int sync_file(int descriptor) noexcept {
    const CancelShield shield;
    while (file_calls.fsync(descriptor) != 0) {
        if (errno == EINTR) continue;
        return knows_no_flush(errno) ? 0 : errno;
    }
    return 0;
}

int sync_folder(const char* path) noexcept {
    const CancelShield shield;
    const int folder = open_above_streams(path, O_RDONLY | O_DIRECTORY, /*mode*/ 0);
    if (folder < 0) return errno == EACCES ? 0 : errno;
    const int error = sync_file(folder);
    file_calls.close(folder);
    return error;
}

int replace_file(const char* path, std::string_view text) noexcept {
    const CancelShield shield;
    struct stat old {};
    const bool is_there = stat(path, &old) == 0;
    struct stat link {};
    const bool leads_nowhere = !is_there && lstat(path, &link) == 0;
    if (leads_nowhere || (is_there && !S_ISREG(old.st_mode))) return write_in_place(path, text);
    char target[PATH_MAX];
    const bool is_resolved = is_there && realpath(path, target) != nullptr;
    const char* name = is_resolved ? target : path;
    const int error = replace_regular(name, is_there ? &old : nullptr, text);
    if (error != 0) return error;
    char folder[PATH_MAX];
    const char* slash = strrchr(name, '/');
    std::snprintf(folder, sizeof folder, "%.*s", slash != nullptr ? static_cast<int>(slash - name) + 1 : 1,
                  slash != nullptr ? name : ".");
    // The file is complete either way; a power cut could only bring the old one back.
    static_cast<void>(sync_folder(folder));
    return 0;
}

}  // namespace vell
