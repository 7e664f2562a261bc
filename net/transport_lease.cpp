// The table of waiting transports, under `table_lock`. Its entries are few: a search looks at all of them.

#include "net/transport_lease.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/lock.h"

namespace vell {
namespace {

using Clock = std::chrono::steady_clock;

// Servers keep a silent connection for about a minute.
constexpr auto k_longest_wait = std::chrono::minutes(2);

struct Waiting {
    std::unique_ptr<HttpTransport> transport;  ///< null: a free entry
    const void* owner = nullptr;
    pid_t process = 0;
    Clock::time_point since{};
};
using Table = std::array<Waiting, 16>;

constinit Mutex table_lock;
const ForkEntry fork_entry(ForkOrder::http_transports, table_lock);

constinit Immortal<Table> waiting VELL_GUARDED_BY(table_lock);

/// After a fork both processes would talk on the same connections, and closing one in the child would say goodbye in
/// the parent's name: what was there before belongs to the parent.
void forget_other_process(pid_t process) noexcept VELL_REQUIRES(table_lock) {
    for (Waiting& entry : waiting.value) {
        if (entry.transport != nullptr && entry.process != process) static_cast<void>(entry.transport.release());
    }
}

/// The most recent transport of the owner; null when there is none.
Waiting* find(const void* owner) noexcept VELL_REQUIRES(table_lock) {
    Waiting* found = nullptr;
    for (Waiting& entry : waiting.value) {
        if (entry.transport != nullptr && entry.owner == owner && (found == nullptr || entry.since > found->since))
            found = &entry;
    }
    return found;
}

/// The place for one more: a free one, else the one that nobody has asked for the longest.
Waiting* place() noexcept VELL_REQUIRES(table_lock) {
    return &*std::min_element(waiting.value.begin(), waiting.value.end(), [](const Waiting& a, const Waiting& b) {
        const bool has_a = a.transport != nullptr, has_b = b.transport != nullptr;
        return has_a != has_b ? !has_a : a.since < b.since;
    });
}

/// Takes out one that has waited too long; null when there is none.
std::unique_ptr<HttpTransport> take_stale() noexcept VELL_REQUIRES(table_lock) {
    const Clock::time_point now = Clock::now();
    for (Waiting& entry : waiting.value) {
        if (entry.transport != nullptr && now - entry.since > k_longest_wait) return std::move(entry.transport);
    }
    return nullptr;
}

}  // namespace

TransportLease::TransportLease(const void* owner) noexcept : owner_(owner), process_(getpid()) {
    {
        const ScopedLock lock(table_lock);
        forget_other_process(process_);
        Waiting* entry = find(owner);
        if (entry == nullptr) entry = find(nullptr);
        if (entry != nullptr) transport_ = std::move(entry->transport);
    }
    if (transport_ == nullptr) transport_ = make_http_transport();
}

TransportLease::~TransportLease() {
    if (transport_ == nullptr) return;
    const CancelShield shield;
    std::unique_ptr<HttpTransport> displaced, stale;  // closed behind the lock
    const ScopedLock lock(table_lock);
    forget_other_process(process_);
    Waiting* entry = place();
    displaced = std::move(entry->transport);
    *entry = {std::move(transport_), owner_, process_, Clock::now()};
    stale = take_stale();
}

void disown_transport(const void* owner) noexcept {
    const ScopedLock lock(table_lock);
    if (Waiting* entry = find(owner)) entry->owner = nullptr;
}

void close_waiting_transports() noexcept {
    const CancelShield shield;
    Table closed;  // behind the lock
    const ScopedLock lock(table_lock);
    forget_other_process(getpid());
    std::swap(closed, waiting.value);
}

}  // namespace vell
