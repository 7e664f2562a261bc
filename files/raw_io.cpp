// Opening, closing and immediate transfers of descriptors. What has to be remembered about a descriptor is the
// transfer engine's; there is no state here.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "files/transfer_engine.h"
#include "files/transfer_table.h"
#include "platform/lock.h"
#include "platform/posix/file_calls.h"
#include "platform/uncached_io.h"
#include "vellcore/file_io.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr mode_t k_new_file_mode = 0666;

/// Some file systems know no locks, and some want the descriptor open for writing (EBADF). There is nobody to lock
/// against then.
bool knows_no_lock(int error) noexcept {
    return error == EOPNOTSUPP || error == ENOLCK || error == ENOSYS || error == EINVAL || error == EBADF;
}

/// Takes the exclusive lock. False, with errno set, when somebody else has it.
bool lock_exclusively(int descriptor) noexcept {
    if (file_calls.flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        descriptor_set_locked(descriptor);
        return true;
    }
    return knows_no_lock(errno);
}

int open_fresh(const char* path, int flags) noexcept {
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    const int descriptor = open_above_streams(path, flags, k_new_file_mode);
    if (descriptor >= 0) descriptor_begin(descriptor);
    return descriptor;
}

}  // namespace
}  // namespace vell

int io_open64(const char* path, int flags, bool nocache, bool shared, bool) noexcept {
    const vell::CancelShield shield;
    const int descriptor = vell::open_fresh(path, flags);
    if (descriptor < 0) return descriptor;
    if (!shared && !vell::lock_exclusively(descriptor)) {
        const int error = errno;
        vell::file_calls.close(descriptor);
        errno = error;
        return -1;
    }
    if (nocache) vell::descriptor_set_uncached(descriptor);
    return descriptor;
}

int io_create64(const char* path, bool, unsigned long long) noexcept {
    const vell::CancelShield shield;
    return vell::open_fresh(path, O_RDWR | O_CREAT | O_TRUNC);
}

int io_close64(int descriptor) noexcept {
    const vell::CancelShield shield;
    vell::descriptor_forget(descriptor);
    vell::free_slots(descriptor);
    return vell::file_calls.close(descriptor);
}

unsigned long long io_get_filesize64(int descriptor, const char* path_for_message) noexcept {
    struct stat facts {};
    if (vell::file_calls.fstat(descriptor, &facts) == 0) return static_cast<unsigned long long>(facts.st_size);
    const char* reason = os_errormsg();
    msgerror("AIO: Can't get file status '%s': %s\n", path_for_message != nullptr ? path_for_message : "(null)",
             reason);
    return ~0ULL;
}

bool io_set_filesize64(int descriptor, unsigned long long size) noexcept {
    if (size > static_cast<unsigned long long>(INT64_MAX)) {
        errno = EINVAL;
        return false;
    }
    const vell::CancelShield shield;
    int result = 0;
    do {
        result = vell::file_calls.ftruncate(descriptor, static_cast<off_t>(size));
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool io_read64(int descriptor, void* buffer, long long offset, unsigned long long length) noexcept {
    return vell::transfer_counted({descriptor, /*is_write*/ false, buffer, offset, length}).error == 0;
}

bool io_write64(int descriptor, const void* buffer, long long offset, unsigned long long length) noexcept {
    return vell::transfer_counted({descriptor, /*is_write*/ true, const_cast<void*>(buffer), offset, length}).error ==
           0;
}

const char* io_backend_name() noexcept {
    return vell::transfer_backend_name();
}

const char* io_uncached_mode(const char* path) noexcept {
    const vell::CancelShield shield;
    return path != nullptr ? vell::uncached_mode_of(path) : "unknown";
}
