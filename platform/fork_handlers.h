// What happens to the library's state around fork(): one table, in which each family has one entry.
//
// A forked child has a copy of all memory and one thread. A lock that another thread held would stay held for ever, and
// what it guards may be half changed. So before the fork the forking thread takes every lock, in the order below; after
// it both sides release them, and the child forgets threads, waiters and work that stay with its parent.
//
// Locks under which a host's code runs (heaps, libraries) and the log's may stall: the host's code may be waiting for
// the forking thread. One that a single holder keeps for a second is not waited for any longer. What it guards is
// unusable in the child, and its calls fail there.
//
// vfork() and posix_spawn() run no handlers, and need none.
//
// To port: POSIX.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/lock.h"

namespace vell {

/// The entries, outermost lock first. docs/locks.md tells what each lock guards.
enum class ForkOrder : uint8_t {
    first_uses,
    instance_claim,
    library_table,
    serial_reads,
    heaps,
    system_allocations,
    worker,
    processing_pool,
    thread_table,
    transfer_table,
    transfer_engine,
    copy_text,
    listing_names,
    children,
    volumes,
    language_list,
    locales,
    user_locale,
    http_transports,
    websocket_objects,
    websocket_links,
    log,
    time_zone,
    count
};

struct ForkHandlers {
    void (*before)() noexcept = nullptr;  // in the forking thread; null: nothing to do
    void (*in_parent)() noexcept = nullptr;
    void (*in_child)() noexcept = nullptr;
};

/// Puts a family's entry into the table. One static object each, beside the state that it is about:
///
///     const ForkEntry fork_entry(ForkOrder::copy_text, last_text_lock);
class ForkEntry {
public:
    ForkEntry(ForkOrder place, const ForkHandlers& handlers) noexcept;
    /// For state that is consistent whenever its lock is free: the lock is taken, and released on both sides. In the
    /// child, `in_child` runs before that; null: nothing to do.
    ForkEntry(ForkOrder place, Mutex& lock, void (*in_child)() noexcept = nullptr) noexcept;
    ForkEntry(const ForkEntry&) = delete;
    ForkEntry& operator=(const ForkEntry&) = delete;
};

/// For the holder of a lock that may stall, each time it has taken it.
inline void count_turn(std::atomic<uint32_t>& turns) noexcept {
    turns.store(turns.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

/// Takes a lock that may stall. However many threads want it, the fork's turn comes; false when one holder keeps it.
template <class Lock>
[[nodiscard]] bool lock_unless_stalled(const std::atomic<uint32_t>& turns, Lock& lock) noexcept VELL_NO_LOCK_CHECK {
    constexpr int64_t k_stall_limit_ns = 1'000'000'000;
    for (;;) {
        const uint32_t before = turns.load(std::memory_order_relaxed);
        if (lock_within(lock, k_stall_limit_ns)) return true;
        if (turns.load(std::memory_order_relaxed) == before) return false;
    }
}

/// How many forks lie between the first process and this one.
[[nodiscard]] uint32_t process_generation() noexcept;

}  // namespace vell
