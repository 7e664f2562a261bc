// The table is filled while the library is loaded and only read afterwards.

#include "platform/fork_handlers.h"

#include <pthread.h>

#include <atomic>
#include <new>

namespace vell {
namespace {

constexpr size_t k_entries = static_cast<size_t>(ForkOrder::count);

struct Entry {
    ForkHandlers handlers;
    Mutex* lock = nullptr;
};

struct ForkTable {
    Entry entries[k_entries] = {};
    bool is_registered = false;
    std::atomic<uint32_t> generation{0};
};
constinit ForkTable fork_table;

void before_fork() VELL_NO_LOCK_CHECK {
    for (const Entry& entry : fork_table.entries) {
        if (entry.lock != nullptr) entry.lock->lock();
        if (entry.handlers.before != nullptr) entry.handlers.before();
    }
}

void after_fork_in_parent() VELL_NO_LOCK_CHECK {
    for (size_t i = k_entries; i-- > 0;) {
        const Entry& entry = fork_table.entries[i];
        if (entry.handlers.in_parent != nullptr) entry.handlers.in_parent();
        if (entry.lock != nullptr) entry.lock->unlock();
    }
}

void after_fork_in_child() VELL_NO_LOCK_CHECK {
    fork_table.generation.fetch_add(1, std::memory_order_relaxed);
    for (size_t i = k_entries; i-- > 0;) {
        const Entry& entry = fork_table.entries[i];
        if (entry.handlers.in_child != nullptr) entry.handlers.in_child();
        if (entry.lock != nullptr) entry.lock->unlock();
    }
}

Entry& entry_at(ForkOrder place) noexcept {
    if (!fork_table.is_registered)
        fork_table.is_registered = pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child) == 0;
    return fork_table.entries[static_cast<size_t>(place)];
}

}  // namespace

ForkEntry::ForkEntry(ForkOrder place, const ForkHandlers& handlers) noexcept {
    entry_at(place).handlers = handlers;
}

ForkEntry::ForkEntry(ForkOrder place, Mutex& lock, void (*in_child)() noexcept) noexcept {
    Entry& entry = entry_at(place);
    entry.lock = &lock;
    entry.handlers.in_child = in_child;
}

uint32_t process_generation() noexcept {
    return fork_table.generation.load(std::memory_order_relaxed);
}

}  // namespace vell
