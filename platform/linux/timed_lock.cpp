// Waits with a limit. Both measure against the monotonic clock, so that setting the wall clock neither shortens
// nor lengthens them.

#include <ctime>

#include "platform/lock.h"

namespace vell {
namespace {

constexpr int64_t k_ns_per_second = 1'000'000'000;

timespec deadline_after(int64_t limit_ns, clockid_t clock = CLOCK_MONOTONIC) noexcept {
    timespec now{};
    clock_gettime(clock, &now);
    const int64_t ns = now.tv_nsec + limit_ns % k_ns_per_second;
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(limit_ns / k_ns_per_second + ns / k_ns_per_second);
    deadline.tv_nsec = static_cast<long>(ns % k_ns_per_second);
    return deadline;
}

bool lock_native_within(pthread_mutex_t& mutex, int64_t limit_ns) noexcept {
#if defined(__SANITIZE_THREAD__)  // It does not see a lock that is taken by clocklock.
    const timespec deadline = deadline_after(limit_ns, CLOCK_REALTIME);
    return pthread_mutex_timedlock(&mutex, &deadline) == 0;
#else
    const timespec deadline = deadline_after(limit_ns);
    return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &deadline) == 0;
#endif
}

}  // namespace

bool Mutex::lock_within(int64_t limit_ns) noexcept {
    return lock_native_within(native_, limit_ns);
}

bool lock_within(__mutex_str& mutex, int64_t limit_ns) noexcept VELL_NO_LOCK_CHECK {
    return lock_native_within(mutex.native, limit_ns);
}

bool Condition::wait_for(Mutex& mutex, int64_t limit_ns) noexcept {
    const timespec deadline = deadline_after(limit_ns);
    return pthread_cond_clockwait(&native_, mutex.native(), CLOCK_MONOTONIC, &deadline) == 0;
}

bool wait_within(__cond_str& condition, __mutex_str& mutex, int64_t limit_ns) {
    const timespec deadline = deadline_after(limit_ns);
    return pthread_cond_clockwait(&condition.native, &mutex.native, CLOCK_MONOTONIC, &deadline) == 0;
}

}  // namespace vell
