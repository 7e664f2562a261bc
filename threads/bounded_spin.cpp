#include "threads/bounded_spin.h"

#include <sched.h>
#include <unistd.h>

#include <ctime>

namespace vell {
namespace {

constexpr uint32_t k_polls_per_clock_look = 16;

int64_t monotonic_ns() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool has_several_processors() noexcept {
    static const bool several = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    return several;
}

}  // namespace

BoundedSpin::BoundedSpin(int64_t limit_ns) noexcept : limit_ns_(has_several_processors() ? limit_ns : 0) {}

bool BoundedSpin::again() noexcept {
    if (limit_ns_ <= 0) return false;
    if (polls_++ % k_polls_per_clock_look == 0) {
        const int64_t now_ns = monotonic_ns();
        if (deadline_ns_ == 0) deadline_ns_ = now_ns + limit_ns_;
        if (now_ns >= deadline_ns_) return false;
    }
    sched_yield();
    return true;
}

}  // namespace vell
