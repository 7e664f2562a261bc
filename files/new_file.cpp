// Only an exclusive creation tells "was free" and "is ours" apart in one step. It refuses every name that exists, so
// links and devices are looked at afterwards.

#include "files/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "files/transfer_engine.h"
#include "platform/lock.h"
#include "platform/posix/file_calls.h"

namespace vell {
namespace {

constexpr mode_t k_new_file_mode = 0666;
constexpr int k_max_links = 40;  // as many as the system follows

/// Replaces the path of a symbolic link by what the link names. False when it is not a link, or what it names does not
/// fit.
bool follow_link(char (&path)[PATH_MAX]) noexcept {
    char named[PATH_MAX];
    const ssize_t length = readlink(path, named, sizeof named);
    if (length <= 0) return false;
    const char* slash = strrchr(path, '/');
    const size_t folder = named[0] != '/' && slash != nullptr ? static_cast<size_t>(slash - path) + 1 : 0;
    const auto bytes = static_cast<size_t>(length);
    if (folder + bytes >= sizeof path) return false;
    memcpy(path + folder, named, bytes);
    path[folder + bytes] = '\0';
    return true;
}

bool is_regular(const struct stat& facts) noexcept {
    return S_ISREG(facts.st_mode);
}

/// Opens what exists under a name without changing it, unless it is a regular file.
int open_existing(const char* path) noexcept {
    struct stat facts {};
    if (stat(path, &facts) == 0 && is_regular(facts)) {
        errno = EEXIST;
        return -1;
    }
    const int descriptor = open_above_streams(path, O_RDWR, /*mode*/ 0);
    // A file may have taken the name since.
    if (descriptor < 0 || (file_calls.fstat(descriptor, &facts) == 0 && !is_regular(facts))) return descriptor;
    file_calls.close(descriptor);
    errno = EEXIST;
    return -1;
}

int create_or_open(const char* path) noexcept {
    char target[PATH_MAX];
    const size_t length = strlen(path);
    if (length >= sizeof target) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(target, path, length + 1);
    for (int links = 0; links <= k_max_links; ++links) {
        const int descriptor = open_above_streams(target, O_RDWR | O_CREAT | O_EXCL, k_new_file_mode);
        if (descriptor >= 0 || errno != EEXIST) return descriptor;
        if (!follow_link(target)) return open_existing(target);
    }
    errno = ELOOP;
    return -1;
}

}  // namespace

int create_new_file(const char* path) noexcept {
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    const CancelShield shield;
    const int descriptor = create_or_open(path);
    if (descriptor >= 0) descriptor_begin(descriptor);
    return descriptor;
}

}  // namespace vell
