// Waiting for something that is about to happen, without the price of a kernel wake-up.
#pragma once

#include <cstdint>

namespace vell {

/// Polls for a limited time: `while (!ready() && spin.again()) {}`.
///
/// A few polls in a row are only a processor's pause apart, then the thread yields: the thread that is waited for may
/// need this very processor. With one processor there is nothing to wait for, and again() answers false at once.
class BoundedSpin {
public:
    explicit BoundedSpin(int64_t limit_ns) noexcept;
    /// Pauses or lets other threads run; false when the time is up.
    bool again() noexcept;

private:
    int64_t deadline_ns_ = 0;  // monotonic; 0 until the first look at the clock
    int64_t limit_ns_;
    uint32_t polls_ = 0;
};

/// Processors that threads of this process may run on at once, at least 1.
[[nodiscard]] int32_t usable_processors() noexcept;

/// Tells the processor that this is a polling loop.
void pause_processor() noexcept;

}  // namespace vell
