// The library's own lock, condition and cancellation shield, for state that lives as long as the process.
//
// To port: POSIX threads carry all of it except lock_within, which waits for a lock with a time limit; a system
// without pthread_mutex_timedlock polls try_lock instead (see linux/timed_lock.cpp).
#pragma once

#include <pthread.h>

#include <cstdint>

#include "vellcore/export.h"

/// What the handles of vellcore/threads.h are. They belong to heaps, queues and hosts; the library's own state is
/// guarded by the classes below.
struct VELL_CAPABILITY("mutex") __mutex_str {
    pthread_mutex_t native;
};
struct __cond_str {
    pthread_cond_t native;
};

namespace vell {

/// A mutex that needs no construction and no destruction, so that a thread still running at process exit never
/// meets a dead one. Not recursive.
class VELL_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() noexcept = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() noexcept VELL_ACQUIRE() { pthread_mutex_lock(&native_); }
    void unlock() noexcept VELL_RELEASE() { pthread_mutex_unlock(&native_); }
    bool try_lock() noexcept VELL_TRY_ACQUIRE(true) { return pthread_mutex_trylock(&native_) == 0; }
    /// Waits at most `limit_ns` nanoseconds; false when the lock could not be had by then.
    bool lock_within(int64_t limit_ns) noexcept VELL_TRY_ACQUIRE(true);

    pthread_mutex_t* native() noexcept { return &native_; }

private:
    pthread_mutex_t native_ = PTHREAD_MUTEX_INITIALIZER;
};

/// Keeps pthread_cancel from ending the thread inside the scope. Every section that holds one of the library's
/// locks has one, because a cancelled thread would take the lock with it.
class CancelShield {
public:
    CancelShield() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~CancelShield() { pthread_setcancelstate(previous_, nullptr); }
    CancelShield(const CancelShield&) = delete;
    CancelShield& operator=(const CancelShield&) = delete;

private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

/// Holds a Mutex, shielded from cancellation, to the end of the scope.
class VELL_SCOPED_CAPABILITY ScopedLock {
public:
    explicit ScopedLock(Mutex& mutex) noexcept VELL_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~ScopedLock() VELL_RELEASE() { mutex_.unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    CancelShield shield_;
    Mutex& mutex_;
};

/// A condition variable that needs no construction. Waits belong inside a ScopedLock and a loop that tests what is
/// waited for.
class Condition {
public:
    constexpr Condition() noexcept = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    void wait(Mutex& mutex) noexcept VELL_REQUIRES(mutex) { pthread_cond_wait(&native_, mutex.native()); }
    /// False when nothing came within `limit_ns` nanoseconds.
    bool wait_for(Mutex& mutex, int64_t limit_ns) noexcept VELL_REQUIRES(mutex);
    void signal() noexcept { pthread_cond_signal(&native_); }
    void broadcast() noexcept { pthread_cond_broadcast(&native_); }

private:
    pthread_cond_t native_ = PTHREAD_COND_INITIALIZER;
};

/// Locks the mutex behind a handle; false when it could not be had within `limit_ns` nanoseconds.
[[nodiscard]] inline bool lock_within(Mutex& mutex, int64_t limit_ns) noexcept VELL_TRY_ACQUIRE(true, mutex) {
    return mutex.lock_within(limit_ns);
}
[[nodiscard]] bool lock_within(__mutex_str& mutex, int64_t limit_ns) noexcept VELL_TRY_ACQUIRE(true, mutex);

/// Waits on the condition behind a handle for at most `limit_ns` nanoseconds of the monotonic clock. False when nothing
/// came in time. A cancellation point: a thread cancelled here holds the mutex again.
bool wait_within(__cond_str& condition, __mutex_str& mutex, int64_t limit_ns) VELL_REQUIRES(mutex);

}  // namespace vell
