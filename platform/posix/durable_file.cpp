#include "platform/posix/durable_file.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/lock.h"
#include "platform/posix/file_calls.h"

namespace vell {
namespace {

bool knows_no_flush(int error) noexcept {
    return error == EINVAL || error == ENOTSUP || error == ENOSYS;
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

}  // namespace vell
