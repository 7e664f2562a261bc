#include "ui/error_text.h"

#include <cerrno>
#include <cstring>

#include "ui/translation.h"

namespace tool {
namespace {

struct SystemError {
    int number;
    const char* text;
};

// What a disk, a file or a connection may answer. The system's own translations would need its locale.
constexpr SystemError k_system_errors[] = {
    {EPERM, marked("system error", "Operation not permitted")},
    {ENOENT, marked("system error", "No such file or directory")},
    {EINTR, marked("system error", "Interrupted system call")},
    {EIO, marked("system error", "Input/output error")},
    {ENXIO, marked("system error", "No such device or address")},
    {EBADF, marked("system error", "Bad file descriptor")},
    {EAGAIN, marked("system error", "Resource temporarily unavailable")},
    {ENOMEM, marked("system error", "Cannot allocate memory")},
    {EACCES, marked("system error", "Permission denied")},
    {EBUSY, marked("system error", "Device or resource busy")},
    {EEXIST, marked("system error", "File exists")},
    {EXDEV, marked("system error", "Invalid cross-device link")},
    {ENODEV, marked("system error", "No such device")},
    {ENOTDIR, marked("system error", "Not a directory")},
    {EISDIR, marked("system error", "Is a directory")},
    {EINVAL, marked("system error", "Invalid argument")},
    {ENFILE, marked("system error", "Too many open files in system")},
    {EMFILE, marked("system error", "Too many open files")},
    {ETXTBSY, marked("system error", "Text file busy")},
    {EFBIG, marked("system error", "File too large")},
    {ENOSPC, marked("system error", "No space left on device")},
    {EROFS, marked("system error", "Read-only file system")},
    {EMLINK, marked("system error", "Too many links")},
    {EPIPE, marked("system error", "Broken pipe")},
    {ENAMETOOLONG, marked("system error", "File name too long")},
    {ENOTEMPTY, marked("system error", "Directory not empty")},
    {ELOOP, marked("system error", "Too many levels of symbolic links")},
    {EOVERFLOW, marked("system error", "Value too large for defined data type")},
    {EOPNOTSUPP, marked("system error", "Operation not supported")},
    {EADDRINUSE, marked("system error", "Address already in use")},
    {EADDRNOTAVAIL, marked("system error", "Cannot assign requested address")},
    {ENETUNREACH, marked("system error", "Network is unreachable")},
    {ECONNABORTED, marked("system error", "Software caused connection abort")},
    {ECONNRESET, marked("system error", "Connection reset by peer")},
    {ENOBUFS, marked("system error", "No buffer space available")},
    {ENOTCONN, marked("system error", "Transport endpoint is not connected")},
    {ESHUTDOWN, marked("system error", "Cannot send after transport endpoint shutdown")},
    {ETIMEDOUT, marked("system error", "Connection timed out")},
    {ECONNREFUSED, marked("system error", "Connection refused")},
    {EHOSTDOWN, marked("system error", "Host is down")},
    {EHOSTUNREACH, marked("system error", "No route to host")},
    {ESTALE, marked("system error", "Stale file handle")},
    {EDQUOT, marked("system error", "Disk quota exceeded")},
    {ENOMEDIUM, marked("system error", "No medium found")},
    {EMEDIUMTYPE, marked("system error", "Wrong medium type")},
    {ECANCELED, marked("system error", "Operation canceled")},
};

}  // namespace

std::string error_text(int error) {
    for (const SystemError& known : k_system_errors) {
        if (known.number == error) return tr("system error", known.text);
    }
    return strerror(error);
}

}  // namespace tool
