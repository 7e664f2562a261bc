// A file read or written past the system's cache, where the file system can.
#pragma once

#include <atomic>
#include <cstdint>

#include "offload/descriptor.h"

namespace tool {

/// Answers are 0 or the system's error number. One thread reads while another writes.
class UncachedFile {
public:
    /// Opens for reading. Anything but a regular file is refused with EINVAL, and a link unless it is to be followed.
    [[nodiscard]] int open(int folder, const char* name, bool follows_link = false);
    /// Makes a new file that only its owner may touch, for writing and reading back.
    [[nodiscard]] int create(int folder, const char* name);
    void close() { file_.close(); }

    /// Reads up to `capacity` bytes (a multiple of the alignment) at `offset` (a multiple too) into aligned memory.
    /// `bytes` is less than `capacity` at the end of the file only.
    [[nodiscard]] int read(void* buffer, size_t capacity, uint64_t offset, size_t& bytes);
    /// Writes `bytes`, rounded up to the alignment: the memory behind them is there and the file is cut afterwards.
    [[nodiscard]] int write(const void* buffer, size_t bytes, uint64_t offset);
    /// Has everything on disk, and nothing of it in the cache.
    [[nodiscard]] int settle();

    [[nodiscard]] bool is_open() const { return file_.is_open(); }
    [[nodiscard]] int descriptor() const { return file_.get(); }

private:
    [[nodiscard]] bool leave_direct(int error);

    Descriptor file_;
    std::atomic<bool> is_direct_{false};
};

}  // namespace tool
