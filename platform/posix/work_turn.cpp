#include "platform/posix/work_turn.h"

#include "platform/monotonic_clock.h"

namespace vell {
namespace {

constexpr int64_t k_grace_ns = 5'000'000;  // for the next caller to come

}  // namespace

void WorkTurn::take_as_owner() noexcept {
    const ScopedLock lock(lock_);
    for (;;) {
        const bool is_free = holder_ == Holder::nobody && !is_caller_coming_ && !is_frozen();
        const int64_t rest_ns = is_free ? owner_may_take_ns_ - monotonic_ns() : 0;
        if (is_free && rest_ns <= 0) break;
        if (is_free) {
            owner_may_look_.wait_for(lock_, rest_ns);
        } else {
            is_owner_asleep_ = true;
            owner_may_look_.wait(lock_);
            is_owner_asleep_ = false;
        }
    }
    holder_ = Holder::owner;
    work_.resume();
}

bool WorkTurn::take_as_caller() noexcept {
    const ScopedLock lock(lock_);
    if (holder_ == Holder::caller || is_caller_coming_ || is_frozen()) return false;
    is_caller_coming_ = true;
    if (holder_ == Holder::owner) work_.interrupt();
    while (holder_ == Holder::owner && !is_frozen())
        given_back_.wait(lock_);
    is_caller_coming_ = false;
    if (is_frozen()) return false;
    holder_ = Holder::caller;
    work_.resume();
    return true;
}

void WorkTurn::give_back(bool is_awaited) noexcept {
    const ScopedLock lock(lock_);
    if (holder_ == Holder::caller) owner_may_take_ns_ = is_awaited ? 0 : monotonic_ns() + k_grace_ns;
    holder_ = Holder::nobody;
    if (is_caller_coming_ || is_frozen()) given_back_.broadcast();
    if (is_owner_asleep_ || is_awaited) owner_may_look_.signal();
}

bool WorkTurn::freeze(int64_t limit_ns) noexcept {
    const ScopedLock lock(lock_);
    is_frozen_.store(true, std::memory_order_relaxed);
    if (holder_ != Holder::nobody) work_.interrupt();
    const int64_t end_ns = monotonic_ns() + limit_ns;
    for (int64_t rest_ns = limit_ns; holder_ != Holder::nobody && rest_ns > 0; rest_ns = end_ns - monotonic_ns())
        given_back_.wait_for(lock_, rest_ns);
    given_back_.broadcast();
    return holder_ == Holder::nobody;
}

}  // namespace vell
