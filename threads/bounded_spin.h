// Waiting for something that is about to happen, without the price of a kernel wake-up.
#pragma once

#include <cstdint>

namespace vell {

/// Polls with yields for a limited time: `while (!ready() && spin.again()) {}`.
///
/// Yielding instead of pausing keeps the wait short where there are more threads than processors, since the thread
/// that is waited for may need this very processor. With one processor there is nothing to wait for: again() answers
/// false at once.
class BoundedSpin {
public:
    explicit BoundedSpin(int64_t limit_ns) noexcept;
    /// Lets other threads run; false when the time is up.
    bool again() noexcept;

private:
    int64_t deadline_ns_ = 0;  // monotonic; 0 until the first look at the clock
    int64_t limit_ns_;
    uint32_t polls_ = 0;
};

}  // namespace vell
