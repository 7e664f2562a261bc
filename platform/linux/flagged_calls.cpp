// Reads and writes with flags for the single call: preadv2 and pwritev2.

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/file_calls.h"
#include "platform/transfer_backend.h"

namespace vell {
namespace {

constexpr off_t k_no_position = -1;            // the descriptor's own, which is all that a pipe has
constexpr size_t k_fits_when_writable = 4096;  // a pipe that polls as writable has room for a page

bool knows_no_flags(int error) noexcept {
    return error == EOPNOTSUPP || error == EINVAL || error == ENOSYS;
}

int64_t bytes_or_error(ssize_t result) noexcept {
    return result < 0 ? -int64_t{errno} : result;
}

}  // namespace

ssize_t system_pread_flags(int descriptor, void* buffer, size_t bytes, off_t offset, int flags) noexcept {
    const iovec part{buffer, bytes};
    return preadv2(descriptor, &part, 1, offset, flags);
}

ssize_t system_pwrite_flags(int descriptor, const void* buffer, size_t bytes, off_t offset, int flags) noexcept {
    const iovec part{const_cast<void*>(buffer), bytes};
    return pwritev2(descriptor, &part, 1, offset, flags);
}

int64_t read_without_waiting(int descriptor, void* buffer, size_t bytes) noexcept {
    const int64_t result = bytes_or_error(file_calls.pread_flags(descriptor, buffer, bytes, k_no_position, RWF_NOWAIT));
    if (result >= 0 || !knows_no_flags(static_cast<int>(-result))) return result;
    return bytes_or_error(read(descriptor, buffer, bytes));
}

int64_t write_without_waiting(int descriptor, const void* buffer, size_t bytes) noexcept {
    const int64_t result =
        bytes_or_error(file_calls.pwrite_flags(descriptor, buffer, bytes, k_no_position, RWF_NOWAIT));
    if (result >= 0 || !knows_no_flags(static_cast<int>(-result))) return result;
    return bytes_or_error(write(descriptor, buffer, std::min(bytes, k_fits_when_writable)));
}

}  // namespace vell
