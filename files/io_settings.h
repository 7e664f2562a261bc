// The process-wide switches of readers and writers, set with rwBufferConfigure and fReadBuffer::set_xfer_breakvalue.
// Each is read by itself, when a file is opened or a transfer begins; there is no lock.
#pragma once

#include <atomic>
#include <cstdint>

namespace vell {

struct IoSettings {
    std::atomic<uint64_t> alignment{8192};         // of uncached transfers, bytes
    std::atomic<bool> write_through{true};         // writers may open files uncached
    std::atomic<bool> direct_io{true};             // readers may open files uncached
    std::atomic<bool> overlapped_io{true};         // handed to io_open64, which ignores it
    std::atomic<uint64_t> split_bytes{1'572'864};  // pieces of a large read into the caller's memory
    std::atomic<bool> never_splits{false};
};
extern IoSettings io_settings;

}  // namespace vell
