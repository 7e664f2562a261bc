// Mutexes, conditions and thread-local keys behind handles: thin shells over POSIX threads.

#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <new>

#include "platform/lock.h"
#include "vellcore/message_log.h"
#include "vellcore/threads.h"

struct __tls_key_str {
    pthread_key_t native;
};

namespace {

constexpr int64_t k_ns_per_second = 1'000'000'000;

/// The wall-clock moment `nanoseconds` from now.
/// Kept: the public wait follows the wall clock. The library's own waits do not (wait_within in platform/lock.h).
timespec deadline_after(int64_t nanoseconds) noexcept {
    timeval now{};
    gettimeofday(&now, nullptr);
    int64_t seconds = now.tv_sec + nanoseconds / k_ns_per_second;
    int64_t rest_ns = nanoseconds % k_ns_per_second + int64_t{now.tv_usec} * 1000;
    if (rest_ns >= k_ns_per_second) {
        rest_ns -= k_ns_per_second;
        ++seconds;
    } else if (rest_ns < 0) {  // A negative wait has passed already; POSIX refuses a negative fraction.
        rest_ns += k_ns_per_second;
        --seconds;
    }
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(seconds);
    deadline.tv_nsec = static_cast<long>(rest_ns);
    return deadline;
}

}  // namespace

__mutex_str* mp_new_mutex(int32_t locked, uint32_t) noexcept {
    auto* mutex = new (std::nothrow) __mutex_str;
    if (mutex == nullptr) return nullptr;
    pthread_mutex_init(&mutex->native, nullptr);
    if (locked != 0) pthread_mutex_lock(&mutex->native);
    return mutex;
}

void mp_delete_mutex(__mutex_str* mutex) noexcept {
    if (mutex == nullptr) return;
    pthread_mutex_destroy(&mutex->native);
    delete mutex;
}

int32_t mp_get_mutex(__mutex_str* mutex) noexcept VELL_NO_LOCK_CHECK {
    const int32_t error = mutex == nullptr ? EINVAL : pthread_mutex_lock(&mutex->native);
    if (error != 0) msgerror("Mutex lock error (%d)\n", error);
    return error;
}

int32_t mp_release_mutex(__mutex_str* mutex) noexcept VELL_NO_LOCK_CHECK {
    const int32_t error = mutex == nullptr ? EINVAL : pthread_mutex_unlock(&mutex->native);
    if (error != 0) msgerror("Mutex ulock error (%d)\n", error);
    return error;
}

bool mp_test_mutex(__mutex_str* mutex) noexcept VELL_NO_LOCK_CHECK {
    return mutex != nullptr && pthread_mutex_trylock(&mutex->native) == 0;
}

__cond_str* mp_new_cond_block() noexcept {
    auto* condition = new (std::nothrow) __cond_str;
    if (condition != nullptr) pthread_cond_init(&condition->native, nullptr);
    return condition;
}

// Kept: the condition is freed without being destroyed, which would wait for waiters that are still on their way out.
void mp_delete_cond_block(__cond_str* condition) noexcept {
    delete condition;
}

int32_t mp_cond_signal(__cond_str* condition) noexcept {
    return condition == nullptr ? EINVAL : pthread_cond_signal(&condition->native);
}

int32_t mp_cond_broadcast(__cond_str* condition) noexcept {
    return condition == nullptr ? EINVAL : pthread_cond_broadcast(&condition->native);
}

int32_t mp_cond_wait(__cond_str* condition, __mutex_str* mutex) {
    if (condition == nullptr || mutex == nullptr) return EINVAL;
    return pthread_cond_wait(&condition->native, &mutex->native);
}

bool mp_cond_timedwait(__cond_str* condition, __mutex_str* mutex, int64_t nanoseconds) {
    if (condition == nullptr || mutex == nullptr) return false;
    const timespec deadline = deadline_after(nanoseconds);
    return pthread_cond_timedwait(&condition->native, &mutex->native, &deadline) == 0;
}

__tls_key_str* mp_key_create() noexcept {
    auto* key = new (std::nothrow) __tls_key_str;
    const int32_t error = key == nullptr ? ENOMEM : pthread_key_create(&key->native, nullptr);
    if (error == 0) return key;
    msgerror("Failed to allocate thread local storage: %d", error);
    delete key;
    return nullptr;
}

void mp_key_delete(__tls_key_str* key) noexcept {
    if (key == nullptr) return;
    pthread_key_delete(key->native);
    delete key;
}

int32_t mp_setspecific(__tls_key_str* key, const void* value) noexcept {
    const int32_t error = key == nullptr ? EINVAL : pthread_setspecific(key->native, value);
    if (error != 0) msgerror("Failed to set thread local storage: %d", error);
    return error;
}

void* mp_getspecific(__tls_key_str* key) noexcept {
    return key == nullptr ? nullptr : pthread_getspecific(key->native);
}
