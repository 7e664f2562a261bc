// The processing pool: threads that take shares of jobs from one queue.
//
// `queue_lock` guards the queue; the queue's own mutex is taken under it. `done_lock` pairs with `share_done` and is
// never held together with it. Both live as long as the process. A job's done counter belongs to the smp_exec that
// waits for it, so a share does not touch it after its own increment.
//
// A kernel wake-up costs tens of microseconds, an empty job one. So a pool thread that runs out of shares looks for
// more for a while, yielding, before it sleeps; a caller does the same while it waits for its last share. Nobody is
// woken who is looking anyway. An idle pool uses no processor time.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <new>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "threads/bounded_spin.h"
#include "vellcore/message_log.h"
#include "vellcore/processing_pool.h"
#include "vellcore/queue.h"
#include "vellcore/system_info.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

constexpr int32_t k_most_threads = 128;
constexpr int32_t k_entries_per_thread = 3;
constexpr int64_t k_idle_spin_ns = 700'000;  // of a pool thread without shares
constexpr int64_t k_done_spin_ns = 60'000;   // of a caller whose shares still run
constexpr int32_t k_between_shares = -1;

Mutex queue_lock;
Condition entry_added;
Condition room_made;
Mutex done_lock;
Condition share_done;

struct Pool {
    std::atomic<int32_t> processors{1};              // threads asked for
    std::atomic<int32_t> active{1};                  // shares of a job; outlives the threads
    std::atomic<__tls_key_str*> share_key{nullptr};  // a pool thread's value points at its share number
    std::atomic<bool> is_running{false};             // there is a queue with threads behind it
    std::atomic<int32_t> queued{0};                  // entries in the queue, for looking without the lock
    std::atomic<int32_t> lookers{0};                 // pool threads that poll `queued`
    std::atomic<int32_t> done_sleepers{0};           // callers that wait for share_done

    vl_queue<smp_entry_t>* queue VELL_GUARDED_BY(queue_lock) = nullptr;
    int32_t limit VELL_GUARDED_BY(queue_lock) = 0;         // entries that the queue takes
    int32_t sleepers VELL_GUARDED_BY(queue_lock) = 0;      // pool threads that wait for entry_added
    int32_t room_waiters VELL_GUARDED_BY(queue_lock) = 0;  // callers that wait for room_made

    int32_t* thread_indexes = nullptr;  // by slot, in the thread table; start-up and shutdown only
    int32_t started = 0;                // threads that run
};
constinit Pool pool;

/// The share that a thread outside the pool runs on the pool's behalf.
thread_local int32_t own_share = 0;

int32_t* pool_cell() noexcept {
    __tls_key_str* key = pool.share_key.load(std::memory_order_acquire);
    return key == nullptr ? nullptr : static_cast<int32_t*>(mp_getspecific(key));
}

void call(const smp_entry_t& entry) {
    void* const* a = entry.arguments;
    if (entry.function != nullptr) entry.function(a[0], a[1], a[2], a[3], a[4], a[5]);
}

/// Takes the queue's lock. A holder is done within a fraction of a microsecond, so it is not worth sleeping for.
void lock_queue() noexcept VELL_ACQUIRE(queue_lock) {
    BoundedSpin spin(k_done_spin_ns);
    while (!queue_lock.try_lock())
        if (!spin.again()) {
            queue_lock.lock();
            return;
        }
}

/// Wakes a thread for every entry that nobody is looking for already.
void wake_sleepers() noexcept VELL_REQUIRES(queue_lock) {
    const int32_t wanted = pool.queued.load(std::memory_order_relaxed) - pool.lookers.load(std::memory_order_relaxed);
    for (int32_t i = std::min(wanted, pool.sleepers); i > 0; --i)
        entry_added.signal();
}

/// Queues the entries for shares 0 to count - 1, waiting for room where there is none.
void queue_entries(smp_entry_t entry, int32_t count) noexcept {
    const CancelShield shield;
    lock_queue();
    for (int32_t i = 0; i < count; ++i) {
        while (pool.queued.load(std::memory_order_relaxed) >= pool.limit) {
            wake_sleepers();
            ++pool.room_waiters;
            room_made.wait(queue_lock);
            --pool.room_waiters;
        }
        entry.id = static_cast<uint32_t>(i);
        pool.queue->put(entry);
        pool.queued.fetch_add(1, std::memory_order_relaxed);
    }
    wake_sleepers();
    queue_lock.unlock();
}

bool take_entry(smp_entry_t& entry) noexcept VELL_REQUIRES(queue_lock) {
    if (!pool.queue->take(entry)) return false;
    pool.queued.fetch_sub(1, std::memory_order_relaxed);
    if (pool.room_waiters > 0) room_made.signal();
    return true;
}

/// Looks for an entry without sleeping. False when none came in time.
bool look_for_entry(smp_entry_t& entry) noexcept {
    BoundedSpin spin(k_idle_spin_ns);
    pool.lookers.fetch_add(1, std::memory_order_relaxed);
    bool found = false;
    do {
        if (pool.queued.load(std::memory_order_relaxed) == 0 || !queue_lock.try_lock()) continue;
        found = take_entry(entry);
        queue_lock.unlock();
    } while (!found && spin.again());
    pool.lookers.fetch_sub(1, std::memory_order_relaxed);
    return found;
}

void next_entry(smp_entry_t& entry) noexcept {
    const CancelShield shield;
    if (look_for_entry(entry)) return;
    const ScopedLock lock(queue_lock);
    ++pool.sleepers;
    while (!take_entry(entry))
        entry_added.wait(queue_lock);
    --pool.sleepers;
}

/// Counts a share as done. The last one wakes the caller, if it sleeps.
void report_done(const smp_entry_t& entry) noexcept {
    const auto count = static_cast<int32_t>(entry.count);
    if (std::atomic_ref<int32_t>(*entry.done).fetch_add(1, std::memory_order_seq_cst) + 1 != count) return;
    if (pool.done_sleepers.load(std::memory_order_seq_cst) == 0) return;
    const ScopedLock lock(done_lock);
    share_done.broadcast();
}

void wait_until_done(int32_t& counter, int32_t count) noexcept {
    const std::atomic_ref<int32_t> done(counter);
    BoundedSpin spin(k_done_spin_ns);
    do {
        if (done.load(std::memory_order_acquire) >= count) return;
    } while (spin.again());
    const ScopedLock lock(done_lock);
    pool.done_sleepers.fetch_add(1, std::memory_order_seq_cst);
    while (done.load(std::memory_order_seq_cst) < count)
        share_done.wait(done_lock);
    pool.done_sleepers.fetch_sub(1, std::memory_order_relaxed);
}

void* process_shares(void*) {
    int32_t share = k_between_shares;
    mp_setspecific(pool.share_key.load(std::memory_order_acquire), &share);
    smp_entry_t entry{};
    for (next_entry(entry); !entry.stop; next_entry(entry)) {
        share = static_cast<int32_t>(entry.id);
        call(entry);
        share = k_between_shares;
        report_done(entry);
    }
    return nullptr;
}

/// Runs all shares on the calling thread, each with its number as smp_id().
void run_in_turn(const smp_entry_t& entry, int32_t& share, int32_t count) {
    const int32_t before = share;
    for (share = 0; share < count; ++share)
        call(entry);
    share = before;
}

/// Starts thread after thread. False, after an error line, at the first that cannot be started.
bool start_threads(int32_t count) noexcept {
    for (int32_t i = 0; i < count; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "SMP-%d", i);
        const int32_t index = mp_start_thread(name, process_shares, nullptr);
        if (index < 0) {
            msgerror("SMP: Can't create MP thread: %d\n", i);
            return false;
        }
        pool.thread_indexes[i] = index;
        pool.started = i + 1;
    }
    return true;
}

bool make_queue(int32_t count) noexcept {
    const ScopedLock lock(queue_lock);
    pool.limit = k_entries_per_thread * count;
    pool.queue = new (std::nothrow) vl_queue<smp_entry_t>(pool.limit);
    return pool.queue != nullptr;
}

int32_t degrade_to_single() noexcept {
    pool.processors.store(1);
    pool.active.store(1);
    return 1;
}

int32_t physical_processors() noexcept {
    return std::max(static_cast<int32_t>(mp_get_numcpu(0)), 1);
}

}  // namespace
}  // namespace vell

using vell::pool;

int32_t smp_initialize(int32_t requested) noexcept {
    if (pool.processors.load() > 1) return pool.processors.load();
    smp_closedown();  // Threads of a start that failed half-way.
    const int32_t wanted = requested >= 1 ? requested : vell::physical_processors();
    const int32_t count = std::min(wanted, vell::k_most_threads);
    if (count < 2) return 1;
    __tls_key_str* key = mp_key_create();
    if (key == nullptr) {
        msgerror("SMP: Can't allocate thread local storage..");
        return vell::degrade_to_single();
    }
    pool.share_key.store(key);
    pool.thread_indexes = new (std::nothrow) int32_t[static_cast<size_t>(count)];
    if (pool.thread_indexes == nullptr || !vell::make_queue(count)) {
        pool.processors.store(count);
        pool.active.store(1);
        return count;
    }
    pool.processors.store(count);
    pool.is_running.store(true);
    if (!vell::start_threads(count)) return vell::degrade_to_single();
    pool.active.store(count);
    return count;
}

void smp_exec(smp_function function, void* a1, void* a2, void* a3, void* a4, void* a5, void* a6) {
    const int32_t count = pool.active.load(std::memory_order_relaxed);
    int32_t done = 0;
    const smp_entry_t entry{.id = 0,
                            .stop = false,
                            .function = function,
                            .arguments = {a1, a2, a3, a4, a5, a6},
                            .count = static_cast<uint32_t>(count),
                            .done = &done};
    if (count < 2) {
        vell::call(entry);
        return;
    }
    if (int32_t* cell = vell::pool_cell(); cell != nullptr) {
        vell::run_in_turn(entry, *cell, count);
        return;
    }
    if (!pool.is_running.load(std::memory_order_acquire)) {
        vell::run_in_turn(entry, vell::own_share, count);
        return;
    }
    vell::queue_entries(entry, count);
    vell::wait_until_done(done, count);
}

int32_t smp_id() noexcept {
    const int32_t* cell = vell::pool_cell();
    return cell != nullptr ? *cell : vell::own_share;
}

bool smp_is_spawned() noexcept {
    const int32_t* cell = vell::pool_cell();
    return cell != nullptr && *cell != vell::k_between_shares;
}

int32_t smp_numprocs() noexcept {
    return pool.active.load(std::memory_order_relaxed);
}

void smp_closedown() noexcept {
    if (pool.is_running.exchange(false)) {
        const smp_entry_t stop{
            .id = 0, .stop = true, .function = nullptr, .arguments = {}, .count = 0, .done = nullptr};
        vell::queue_entries(stop, pool.started);
        for (int32_t i = 0; i < pool.started; ++i)
            mp_join_thread(pool.thread_indexes[i]);
    }
    delete[] pool.thread_indexes;
    pool.thread_indexes = nullptr;
    pool.started = 0;
    mp_key_delete(pool.share_key.exchange(nullptr));
    const vell::ScopedLock lock(vell::queue_lock);
    delete pool.queue;
    pool.queue = nullptr;
    // Kept: the active count stays, and with it the number of shares that jobs are divided into.
    pool.processors.store(1);
}
