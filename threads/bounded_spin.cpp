#include "threads/bounded_spin.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>

#include "platform/monotonic_clock.h"

namespace vell {
namespace {

constexpr uint32_t k_polls_per_yield = 12;
constexpr uint32_t k_polls_per_clock_look = 8 * k_polls_per_yield;

}  // namespace

int32_t usable_processors() noexcept {
    static const auto count = static_cast<int32_t>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    return count;
}

void pause_processor() noexcept {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

BoundedSpin::BoundedSpin(int64_t limit_ns) noexcept : limit_ns_(usable_processors() > 1 ? limit_ns : 0) {}

bool BoundedSpin::again() noexcept {
    if (limit_ns_ <= 0) return false;
    if (++polls_ % k_polls_per_yield != 0) {
        pause_processor();
        return true;
    }
    if (polls_ % k_polls_per_clock_look == 0) {
        const int64_t now_ns = monotonic_ns();
        if (deadline_ns_ == 0) deadline_ns_ = now_ns + limit_ns_;
        if (now_ns >= deadline_ns_) return false;
    }
    sched_yield();
    return true;
}

}  // namespace vell
