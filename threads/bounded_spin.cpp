#include "threads/bounded_spin.h"

#include <sched.h>

#include <atomic>

#include "platform/monotonic_clock.h"
#include "platform/processor.h"

namespace vell {
namespace {

constexpr uint32_t k_polls_per_yield = 12;
constexpr int64_t k_look_interval_ns = 1'000'000'000;
constexpr uint32_t k_polls_per_clock_look = 8 * k_polls_per_yield;

std::atomic<int32_t> usable{0};  // 0: not measured yet
std::atomic<int64_t> next_look_ns{0};

}  // namespace

int32_t usable_processors() noexcept {
    if (usable.load(std::memory_order_relaxed) == 0) measure_usable_processors();
    return usable.load(std::memory_order_relaxed);
}

void measure_usable_processors() noexcept {
    next_look_ns.store(monotonic_ns() + k_look_interval_ns, std::memory_order_relaxed);
    usable.store(static_cast<int32_t>(allowed_processors()), std::memory_order_relaxed);
}

void refresh_usable_processors(int64_t now_ns) noexcept {
    int64_t due_ns = next_look_ns.load(std::memory_order_relaxed);
    if (now_ns < due_ns) return;
    // One thread measures; the others go on with what is known.
    if (!next_look_ns.compare_exchange_strong(due_ns, now_ns + k_look_interval_ns, std::memory_order_relaxed)) return;
    usable.store(static_cast<int32_t>(allowed_processors()), std::memory_order_relaxed);
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
