// Linux. To port: bypass_cache is a switch of the descriptor elsewhere too (F_NOCACHE), renaming without replacing has
// another name (renamex_np), and reserving is optional.

#include "offload/disk_calls.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tool {
namespace {

int call_open(int folder, const char* name, int flags, mode_t mode) {
    int file = -1;
    do {
        file = openat(folder, name, flags | O_CLOEXEC, mode);
    } while (file < 0 && errno == EINTR);
    return file;
}

int call_reserve(int file, off_t bytes) {
    return fallocate(file, /*mode*/ 0, 0, bytes);
}

int call_facts(int folder, const char* name, struct stat* facts) {
    return fstatat(folder, name, facts, AT_SYMLINK_NOFOLLOW);
}

/// For file systems that have no second names either: a test before the renaming. Only there could another program
/// that makes the same name in between lose its file.
int rename_after_test(int folder, const char* from, const char* to) {
    struct stat facts {};
    if (fstatat(folder, to, &facts, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return -1;
    }
    return errno == ENOENT ? renameat(folder, from, folder, to) : -1;
}

/// For file systems that cannot refuse to replace: a second name is given only when it is free.
int rename_by_second_name(int folder, const char* from, const char* to) {
    if (linkat(folder, from, folder, to, /*flags*/ 0) != 0) {
        const bool has_no_links = errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS || errno == EMLINK;
        return has_no_links ? rename_after_test(folder, from, to) : -1;
    }
    if (unlinkat(folder, from, /*flags*/ 0) == 0) return 0;
    const int error = errno;
    unlinkat(folder, to, /*flags*/ 0);
    errno = error;
    return -1;
}

int call_rename(int folder, const char* from, const char* to, bool replaces) {
    if (replaces) return renameat(folder, from, folder, to);
    if (renameat2(folder, from, folder, to, RENAME_NOREPLACE) == 0) return 0;
    return errno == EINVAL || errno == ENOSYS ? rename_by_second_name(folder, from, to) : -1;
}

int call_remove(int folder, const char* name) {
    return unlinkat(folder, name, /*flags*/ 0);
}

}  // namespace

const DiskCalls system_disk_calls = {call_open,   pread,       pwrite,   write,   call_reserve, ftruncate,
                                     fdatasync,   fsync,       futimens, fchmod,  call_facts,   fstat,
                                     call_rename, call_remove, mkdirat,  fstatvfs};
DiskCalls disk_calls = system_disk_calls;

// The flag is set after opening: with it, open makes the file and fails on a file system that knows no such transfers.
bool bypass_cache(int file) {
    const int flags = fcntl(file, F_GETFL);
    return flags >= 0 && fcntl(file, F_SETFL, flags | O_DIRECT) == 0;
}

void use_cache(int file) {
    const int flags = fcntl(file, F_GETFL);
    if (flags >= 0) fcntl(file, F_SETFL, flags & ~O_DIRECT);
}

void drop_from_cache(int file, off_t offset, off_t bytes) {
    posix_fadvise(file, offset, bytes, POSIX_FADV_DONTNEED);
}

}  // namespace tool
