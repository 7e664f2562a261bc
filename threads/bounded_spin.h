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

/// Processors that the threads which poll for each other may use at once, at least 1: measured by the latest of the two
/// calls below, or by the first call of this one. Affinity and the control group's quota count.
[[nodiscard]] int32_t usable_processors() noexcept;

/// Measures them now, for threads with the affinity of the calling one.
void measure_usable_processors() noexcept;

/// The same, when the latest measurement is a second old. `now_ns` is the monotonic clock's.
void refresh_usable_processors(int64_t now_ns) noexcept;

/// Tells the processor that this is a polling loop.
void pause_processor() noexcept;

}  // namespace vell
