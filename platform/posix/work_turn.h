// Who runs the work of a connection: a thread of its own, or the caller that waits for it anyway.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/lock.h"

namespace vell {

/// What is run in turns. Both are called under the turn's lock.
class InterruptibleWork {
public:
    /// Makes the thread that has the turn return from the work soon. It stays interrupted until resume().
    virtual void interrupt() noexcept = 0;
    virtual void resume() noexcept = 0;

protected:
    ~InterruptibleWork() = default;
};

/// One thread at a time has the turn; what the work touches needs no other lock.
///
/// The connection's own thread has the turn while nobody calls. A caller that waits takes it: waking another thread,
/// and being woken by it, would cost more than the work. When the caller goes, the own thread waits a little before it
/// takes the turn back, since the next caller usually comes at once.
class WorkTurn {
public:
    /// The own thread has the turn at first.
    explicit WorkTurn(InterruptibleWork& work) noexcept : work_(work) {}
    WorkTurn(const WorkTurn&) = delete;
    WorkTurn& operator=(const WorkTurn&) = delete;

    /// For the own thread: waits until it is its turn. It never returns after freeze().
    void take_as_owner() noexcept;
    /// For a caller: false when another caller has the turn or is about to, or the turn is frozen.
    [[nodiscard]] bool take_as_caller() noexcept;

    /// Gives the turn back. @param is_awaited  the own thread takes over at once.
    void give_back(bool is_awaited) noexcept;

    /// Nobody gets the turn any more. Waits until nobody has it: false when somebody still has after `limit_ns`
    /// nanoseconds.
    [[nodiscard]] bool freeze(int64_t limit_ns) noexcept;
    [[nodiscard]] bool is_frozen() const noexcept { return is_frozen_.load(std::memory_order_relaxed); }

private:
    InterruptibleWork& work_;
    std::atomic<bool> is_frozen_{false};  // written under lock_
    Mutex lock_;
    Condition owner_may_look_;
    Condition given_back_;
    enum class Holder : uint8_t { nobody, owner, caller } holder_ VELL_GUARDED_BY(lock_) = Holder::owner;
    bool is_caller_coming_ VELL_GUARDED_BY(lock_) = false;  // it waits for the owner to give the turn back
    bool is_owner_asleep_ VELL_GUARDED_BY(lock_) = false;   // without a limit, until it is told to look
    int64_t owner_may_take_ns_ VELL_GUARDED_BY(lock_) = 0;  // monotonic
};

}  // namespace vell
