// The process clock and the fixed answers about scheduling.

#include <sched.h>
#include <sys/time.h>

#include <atomic>
#include <ctime>

#include "vellcore/threads.h"

namespace {

/// Seconds since 1970 that mp_getclock counts from.
std::atomic<double> clock_origin{0.0};

int32_t time_of_day(double& seconds) noexcept {
    timeval now{};
    const int32_t result = gettimeofday(&now, nullptr);
    seconds = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) * 1e-6;
    return result;
}

}  // namespace

int32_t mp_init_clock() noexcept {
    double now = 0;
    const int32_t result = time_of_day(now);
    clock_origin.store(now, std::memory_order_relaxed);
    return result;
}

double mp_getclock() noexcept {
    double now = 0;
    time_of_day(now);
    return now - clock_origin.load(std::memory_order_relaxed);
}

double mp_getclockfrequency() noexcept {
    return 1000.0;
}

void mp_yield() noexcept {
    sched_yield();
}

int32_t mp_timedwait(int64_t nanoseconds) {
    const int64_t microseconds = nanoseconds / 1000;
    if (microseconds <= 0) return 0;
    timespec duration{};
    duration.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
    duration.tv_nsec = static_cast<long>(microseconds % 1'000'000 * 1000);
    nanosleep(&duration, nullptr);
    return 0;
}

int32_t mp_timer_initialize() noexcept {
    return 1;
}
bool mp_scheduler_initialize() noexcept {
    return true;
}
void mp_scheduler_closedown() noexcept {}
void mp_schedule_ndpi() noexcept {}
void mp_schedule_highest() noexcept {}
void mp_schedule_high() noexcept {}
void mp_schedule_low() noexcept {}
int32_t mp_set_thread_affinity(int32_t, uint64_t) noexcept {
    return 0;
}
