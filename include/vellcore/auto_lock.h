#pragma once
// AutoLock: holds a mutex to the end of a scope.

#include "threads.h"

/// Takes `mutex` when constructed and releases it when destroyed. A null mutex makes both do nothing.
class VELL_SCOPED_CAPABILITY AutoLock {
public:
    explicit AutoLock(__mutex_str* mutex) noexcept VELL_ACQUIRE(mutex) : mutex_(mutex) {
        if (mutex_ != nullptr) mp_get_mutex(mutex_);
    }
    ~AutoLock() VELL_RELEASE() {
        if (mutex_ != nullptr) mp_release_mutex(mutex_);
    }
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

private:
    __mutex_str* mutex_;
};
