// The connections of this process, and how they end when it exits.
#pragma once

#include <cstdint>

#include "platform/posix/work_turn.h"

namespace vell {

/// A connection as long as its thread runs.
///
/// exit() runs while threads go on, and takes the TLS library's state down under them. So before that, connections that
/// say goodbye get a moment for it, and then the rest fail and nobody gets a turn any more.
class OpenLink : public InterruptibleWork {
public:
    OpenLink() noexcept;
    virtual ~OpenLink() = default;
    OpenLink(const OpenLink&) = delete;
    OpenLink& operator=(const OpenLink&) = delete;

    /// Puts it on the list. False while the process exits.
    [[nodiscard]] bool enlist() noexcept;
    /// Takes it off the list; waits while exit() walks through it.
    void delist() noexcept;

    /// False in a forked child: its copy of the connection has no thread, and the socket is its parent's.
    [[nodiscard]] bool is_of_this_process() const noexcept;

    /// Fails everything that is under way. The turn is frozen, and nobody has it.
    virtual void abandon() noexcept = 0;

    WorkTurn turn;
    std::atomic<bool> is_left{false};  ///< its owner has gone: what it still does is its goodbye

private:
    friend class OpenLinks;
    const uint32_t generation_;     // of processes, when this was made
    OpenLink* previous_ = nullptr;  // guarded by the lock of the list
    OpenLink* next_ = nullptr;
};

}  // namespace vell
