// Transfers go on until every byte was moved, the file ended or an error came. A file system that takes the flag for
// uncached transfers and then refuses a transfer (EINVAL) gets it again through the cache, which settle() drops.

#include "offload/uncached_file.h"

#include <fcntl.h>

#include <cerrno>

namespace tool {
namespace {

constexpr mode_t k_private = 0600;

}  // namespace

int UncachedFile::open(int folder, const char* name, bool follows_link) {
    // Without O_NONBLOCK a pipe that took the file's name would hold us until somebody writes into it.
    file_ = Descriptor(disk_calls.open(folder, name, O_RDONLY | O_NONBLOCK | (follows_link ? 0 : O_NOFOLLOW), 0));
    if (!file_.is_open()) return errno;
    struct stat facts {};
    if (disk_calls.file_facts(file_.get(), &facts) != 0) return errno;
    if (!S_ISREG(facts.st_mode)) return EINVAL;
    drop_from_cache(file_.get());
    is_direct_ = bypass_cache(file_.get());
    return 0;
}

int UncachedFile::create(int folder, const char* name) {
    file_ = Descriptor(disk_calls.open(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, k_private));
    if (!file_.is_open()) return errno;
    is_direct_ = bypass_cache(file_.get());
    return 0;
}

bool UncachedFile::leave_direct(int error) {
    if (error != EINVAL || !is_direct_) return false;
    use_cache(file_.get());
    is_direct_ = false;
    return true;
}

int UncachedFile::read(void* buffer, size_t capacity, uint64_t offset, size_t& bytes) {
    for (bytes = 0; bytes < capacity;) {
        const ssize_t moved = disk_calls.read(file_.get(), static_cast<char*>(buffer) + bytes, capacity - bytes,
                                              static_cast<off_t>(offset + bytes));
        if (moved < 0) {
            if (errno == EINTR || leave_direct(errno)) continue;
            return errno;
        }
        bytes += static_cast<size_t>(moved);
        // An odd count is the file's end; a direct transfer could not go on from there anyway.
        if (moved == 0 || (is_direct_ && bytes % k_transfer_alignment != 0)) break;
    }
    if (!is_direct_) drop_from_cache(file_.get(), static_cast<off_t>(offset), static_cast<off_t>(capacity));
    return 0;
}

int UncachedFile::write(const void* buffer, size_t bytes, uint64_t offset) {
    for (size_t done = 0; done < bytes;) {
        const size_t left = is_direct_ ? rounded_to_alignment(bytes - done) : bytes - done;
        const ssize_t moved = disk_calls.write(file_.get(), static_cast<const char*>(buffer) + done, left,
                                               static_cast<off_t>(offset + done));
        if (moved < 0) {
            if (errno == EINTR || leave_direct(errno)) continue;
            return errno;
        }
        if (moved == 0) return ENOSPC;
        done += static_cast<size_t>(moved);
        if (done < bytes && done % k_transfer_alignment != 0 && is_direct_) {
            use_cache(file_.get());
            is_direct_ = false;
        }
    }
    return 0;
}

int UncachedFile::settle() {
    if (disk_calls.sync_data(file_.get()) != 0) return errno;
    if (!is_direct_) drop_from_cache(file_.get());
    return 0;
}

}  // namespace tool
