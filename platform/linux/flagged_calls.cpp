// Positioned reads and writes with flags for the single call: preadv2 and pwritev2.

#include <sys/uio.h>

#include "platform/posix/file_calls.h"

namespace vell {

ssize_t system_pread_flags(int descriptor, void* buffer, size_t bytes, off_t offset, int flags) noexcept {
    const iovec part{buffer, bytes};
    return preadv2(descriptor, &part, 1, offset, flags);
}

ssize_t system_pwrite_flags(int descriptor, const void* buffer, size_t bytes, off_t offset, int flags) noexcept {
    const iovec part{const_cast<void*>(buffer), bytes};
    return pwritev2(descriptor, &part, 1, offset, flags);
}

}  // namespace vell
