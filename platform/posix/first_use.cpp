#include "platform/first_use.h"

#include <pthread.h>

#include <new>

#include "platform/fork_handlers.h"
#include "platform/lock.h"

namespace vell {
namespace {

Mutex first_use_lock;
std::atomic<pthread_t> owner{};  // of first_use_lock

bool is_owner() noexcept {
    return pthread_equal(owner.load(std::memory_order_relaxed), pthread_self()) != 0;
}

void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
    if (!is_owner()) first_use_lock.lock();
}

void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
    if (!is_owner()) first_use_lock.unlock();
}

const ForkEntry fork_entry(ForkOrder::first_uses, {lock_before_fork, unlock_after_fork, unlock_after_fork});

}  // namespace

FirstUseLock::FirstUseLock() noexcept VELL_NO_LOCK_CHECK : is_nested_(is_owner()) {
    if (is_nested_) return;
    first_use_lock.lock();
    owner.store(pthread_self(), std::memory_order_relaxed);
}

FirstUseLock::~FirstUseLock() VELL_NO_LOCK_CHECK {
    if (is_nested_) return;
    owner.store(pthread_t{}, std::memory_order_relaxed);
    first_use_lock.unlock();
}

}  // namespace vell
