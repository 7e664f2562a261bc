// A thread that helps for the length of a scope.
#pragma once

#include <pthread.h>

#include "platform/lock.h"

namespace vell {

/// Runs `work(context)` on a thread of its own and waits for its end in the destructor. On a machine with one
/// processor, or when no thread can be had, nothing is run: the work is one that the caller finishes alone.
class SecondThread {
public:
    SecondThread(void (*work)(void*), void* context) noexcept;
    ~SecondThread();
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

private:
    static void* run(void* self);

    CancelShield shield_;  // the caller has to come to the destructor
    void (*work_)(void*);
    void* context_;
    pthread_t thread_{};
    bool is_running_ = false;
};

}  // namespace vell
