// The table of file calls, filled with the system's own.

#include "platform/posix/file_calls.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace vell {
namespace {

int open_with_mode(const char* path, int flags, mode_t mode) noexcept {
    return open(path, flags, mode);
}
int open_in_folder(int folder, const char* name, int flags) noexcept {
    return openat(folder, name, flags);
}
int link_itself(const char* from, const char* to) noexcept {
    return linkat(AT_FDCWD, from, AT_FDCWD, to, /*flags*/ 0);
}
int status_of(int descriptor, struct stat* facts) noexcept {
    return fstat(descriptor, facts);
}
int32_t unchanged(int32_t result) noexcept {
    return result;
}

constexpr FileCalls own_calls() noexcept {
    FileCalls calls{};
    calls.open = open_with_mode;
    calls.close = close;
    calls.flock = flock;
    calls.fstat = status_of;
    calls.pread = pread;
    calls.pwrite = pwrite;
    calls.pread_flags = system_pread_flags;
    calls.pwrite_flags = system_pwrite_flags;
    calls.ring_result = unchanged;
    calls.fsync = fsync;
    calls.ftruncate = ftruncate;
    calls.rename = rename;
    calls.link = link_itself;
    calls.unlink = unlink;
    calls.mkdir = mkdir;
    calls.rmdir = rmdir;
    calls.openat = open_in_folder;
    calls.unlinkat = unlinkat;
    calls.rename_to_free_name = system_rename_to_free_name;
    calls.read_folder = system_read_folder;
    calls.entry_facts = system_entry_facts;
    calls.spawn = posix_spawnp;
    calls.create_thread = pthread_create;
    return calls;
}

}  // namespace

constinit FileCalls file_calls = own_calls();
constinit const FileCalls system_file_calls = own_calls();

int open_above_streams(const char* path, int flags, mode_t mode) noexcept {
    const int descriptor = file_calls.open(path, flags | O_CLOEXEC, mode);
    if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    file_calls.close(descriptor);
    errno = error;
    return moved;
}

}  // namespace vell
