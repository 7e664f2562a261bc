// A flag of the calling thread that a signal handler may look at.
//
// Not a thread_local: in a library that is loaded late the first look at one allocates, and the handler may have
// interrupted the allocator. POSIX.
#pragma once

#include <pthread.h>

namespace vell {

/// False in every thread until it is set there, and before its constructor has run. Never destroyed.
class ThreadFlag {
public:
    ThreadFlag() noexcept : is_usable_(pthread_key_create(&key_, nullptr) == 0) {}
    ThreadFlag(const ThreadFlag&) = delete;
    ThreadFlag& operator=(const ThreadFlag&) = delete;

    [[nodiscard]] bool is_set() const noexcept { return is_usable_ && pthread_getspecific(key_) != nullptr; }
    void set(bool value) noexcept {
        if (is_usable_) pthread_setspecific(key_, value ? this : nullptr);
    }

private:
    pthread_key_t key_{};
    bool is_usable_;
};

}  // namespace vell
