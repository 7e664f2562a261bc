// How a job is told to stop.
#pragma once

#include <atomic>

namespace tool {

/// Set by any thread or by a signal handler. A job stops at its next block and leaves everything in order.
using CancelFlag = std::atomic<bool>;
static_assert(CancelFlag::is_always_lock_free, "signal handlers write it");

[[nodiscard]] inline bool is_set(const CancelFlag& flag) {
    return flag.load(std::memory_order_relaxed);
}

}  // namespace tool
