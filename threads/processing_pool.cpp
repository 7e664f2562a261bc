// The processing pool: threads that take shares of jobs from one queue.
//
// `queue_lock` guards the queue. `done_lock` pairs with `share_done` and is never held together with it. Both live as
// long as the process. A job's done counter belongs to the smp_exec that waits for it, so a share does not touch it
// after its own increment.
//
// A kernel wake-up costs tens of microseconds, an empty job one. So as many pool threads as may use a processor at once
// (affinity and quota of the control group count) look for work for a while before they sleep, and a caller does the
// same while it waits for its last share. Only as many threads are woken for a job as can run at once; when it is not
// done soon, its caller wakes one for every share that nobody has taken, since the shares that run may wait for the
// others. An idle pool uses no processor time, and with one processor nobody polls.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <new>

#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "platform/monotonic_clock.h"
#include "threads/bounded_spin.h"
#include "threads/share_queue.h"
#include "vellcore/message_log.h"
#include "vellcore/processing_pool.h"
#include "vellcore/system_info.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

constexpr int32_t k_most_threads = 128;
constexpr int64_t k_idle_spin_ns = 700'000;  // of a pool thread without shares
constexpr int64_t k_done_spin_ns = 60'000;   // of a caller whose shares still run
constexpr int64_t k_quick_job_ns = 1'000;    // a caller waits that long without yielding,
constexpr int64_t k_short_job_ns = 5'000;    // and then that long before it wakes more threads
constexpr int32_t k_between_shares = -1;

struct Pool {
    std::atomic<int32_t> processors{1};              // threads asked for
    std::atomic<int32_t> active{1};                  // shares of a job; outlives the threads
    std::atomic<__tls_key_str*> share_key{nullptr};  // a pool thread's value points at its share number
    std::atomic<bool> is_running{false};             // there are threads behind the queue
    int32_t* thread_indexes = nullptr;               // by slot, in the thread table; start-up and shutdown only
    int32_t started = 0;                             // threads that run
};
constinit Pool pool;

/// What callers and pool threads pass to and fro; the lock and what is looked at with it share a cache line.
struct alignas(128) Exchange {
    Mutex lock;
    std::atomic<int32_t> queued{0};                  // shares in the queue, for looking without the lock
    std::atomic<int32_t> lookers{0};                 // pool threads that poll `queued`
    int32_t sleepers VELL_GUARDED_BY(lock) = 0;      // pool threads that wait for entry_added
    int32_t room_waiters VELL_GUARDED_BY(lock) = 0;  // callers that wait for room_made
    ShareQueue queue VELL_GUARDED_BY(lock);
    Condition entry_added;
    Condition room_made;
};
constinit Exchange exchange;

struct alignas(64) Completion {
    Mutex lock;
    Condition share_done;
    std::atomic<int32_t> sleepers{0};  // callers that wait for share_done
};
constinit Completion completion;

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
void lock_queue() noexcept VELL_ACQUIRE(exchange.lock) {
    BoundedSpin spin(k_done_spin_ns);
    while (!exchange.lock.try_lock())
        if (!spin.again()) {
            exchange.lock.lock();
            return;
        }
}

/// Wakes threads until `wanted` run or look for work, as far as shares and sleepers go.
void wake_sleepers(int32_t wanted) noexcept VELL_REQUIRES(exchange.lock) {
    const int32_t needed = std::min(wanted, exchange.queue.shares()) - exchange.lookers.load(std::memory_order_relaxed);
    for (int32_t i = std::min(needed, exchange.sleepers); i > 0; --i)
        exchange.entry_added.signal();
}

/// Queues the shares of a job, waiting for room where there is none.
void queue_job(const smp_entry_t& job) noexcept {
    const CancelShield shield;
    lock_queue();
    while (!exchange.queue.has_room()) {
        wake_sleepers(k_most_threads);
        ++exchange.room_waiters;
        exchange.room_made.wait(exchange.lock);
        --exchange.room_waiters;
    }
    exchange.queue.put(job);
    exchange.queued.store(exchange.queue.shares(), std::memory_order_relaxed);
    wake_sleepers(usable_processors());
    exchange.lock.unlock();
}

bool take_share(smp_entry_t& share) noexcept VELL_REQUIRES(exchange.lock) {
    if (!exchange.queue.take(share)) return false;
    exchange.queued.store(exchange.queue.shares(), std::memory_order_relaxed);
    if (exchange.room_waiters > 0 && exchange.queue.has_room()) exchange.room_made.signal();
    return true;
}

/// Takes a share if that can be done at once.
bool try_share(smp_entry_t& share) noexcept {
    if (exchange.queued.load(std::memory_order_relaxed) == 0 || !exchange.lock.try_lock()) return false;
    const bool is_taken = take_share(share);
    exchange.lock.unlock();
    return is_taken;
}

/// Lets a pool thread look again, now and then, how many processors the pool may use: masks and quotas change while
/// programs run. In a pool thread, because a caller may have a mask of its own.
void look_at_processors() noexcept {
    constexpr uint32_t k_calls_per_look = 64;
    thread_local uint32_t calls = 0;
    if (++calls % k_calls_per_look == 0) refresh_usable_processors(monotonic_ns());
}

/// Looks for a share without sleeping. False when none came in time, or when enough threads look already.
bool look_for_share(smp_entry_t& share) noexcept {
    if (try_share(share)) return true;
    look_at_processors();
    BoundedSpin spin(k_idle_spin_ns);
    bool is_taken = false;
    if (exchange.lookers.fetch_add(1, std::memory_order_relaxed) < usable_processors())
        while (!is_taken && spin.again())
            is_taken = try_share(share);
    exchange.lookers.fetch_sub(1, std::memory_order_relaxed);
    return is_taken;
}

void next_share(smp_entry_t& share) noexcept {
    if (look_for_share(share)) return;
    refresh_usable_processors(monotonic_ns());
    const ScopedLock lock(exchange.lock);
    ++exchange.sleepers;
    while (!take_share(share))
        exchange.entry_added.wait(exchange.lock);
    --exchange.sleepers;
}

/// Counts `shares` of a job as done. Whoever counts the last one wakes the caller, if it sleeps.
void report_done(int32_t& done, int32_t count, int32_t shares) noexcept {
    if (std::atomic_ref<int32_t>(done).fetch_add(shares, std::memory_order_seq_cst) + shares != count) return;
    if (completion.sleepers.load(std::memory_order_seq_cst) == 0) return;
    const ScopedLock lock(completion.lock);
    completion.share_done.broadcast();
}

/// True when the counter reaches `count` within the time of a quick job, in which the caller keeps its processor: the
/// threads on other processors are faster than a switch to the ones that wait for this one.
bool is_done_at_once(const std::atomic_ref<int32_t>& done, int32_t count) noexcept {
    const int64_t end_ns = monotonic_ns() + k_quick_job_ns;
    do {
        for (int i = 0; i < 4; ++i)
            pause_processor();
        if (done.load(std::memory_order_acquire) >= count) return true;
    } while (monotonic_ns() < end_ns);
    return false;
}

bool is_done_within(const std::atomic_ref<int32_t>& done, int32_t count, int64_t limit_ns) noexcept {
    BoundedSpin spin(limit_ns);
    do {
        if (done.load(std::memory_order_acquire) >= count) return true;
    } while (spin.again());
    return false;
}

void wait_until_done(int32_t& counter, int32_t count) noexcept {
    const std::atomic_ref<int32_t> done(counter);
    if (usable_processors() > 1 && is_done_at_once(done, count)) return;
    if (is_done_within(done, count, k_short_job_ns)) return;
    lock_queue();
    wake_sleepers(k_most_threads);
    exchange.lock.unlock();
    if (is_done_within(done, count, k_done_spin_ns)) return;
    const ScopedLock lock(completion.lock);
    completion.sleepers.fetch_add(1, std::memory_order_seq_cst);
    while (done.load(std::memory_order_seq_cst) < count)
        completion.share_done.wait(completion.lock);
    completion.sleepers.fetch_sub(1, std::memory_order_relaxed);
}

/// Runs `share` and as many shares of its job as can be had at once, and counts them together: the counter belongs to
/// another processor's cache. `share` is then the next one to run, or a copy of the last where there is none: false.
bool run_shares(smp_entry_t& share, int32_t& share_number) {
    int32_t* const done = share.done;
    const auto count = static_cast<int32_t>(share.count);
    int32_t finished = 0;
    for (;;) {
        share_number = static_cast<int32_t>(share.id);
        call(share);
        share_number = k_between_shares;
        ++finished;
        const bool has_next = try_share(share);
        if (has_next && share.done == done) continue;
        report_done(*done, count, finished);
        return has_next;
    }
}

void* process_shares(void*) {
    int32_t share_number = k_between_shares;
    mp_setspecific(pool.share_key.load(std::memory_order_acquire), &share_number);
    smp_entry_t share{};
    for (next_share(share); !share.stop;)
        if (!run_shares(share, share_number)) next_share(share);
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

void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
    exchange.lock.lock();
    completion.lock.lock();
}

void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
    completion.lock.unlock();
    exchange.lock.unlock();
}

/// A forked child has none of its parent's threads: its jobs run on their callers. What was queued is its parent's.
void forget_threads_in_child() noexcept VELL_NO_LOCK_CHECK {
    pool.is_running.store(false);
    pool.started = 0;
    unlock_after_fork();
    new (&exchange) Exchange;
    exchange.queue.reset(pool.processors.load());
    new (&completion) Completion;
}

const ForkEntry fork_entry(ForkOrder::processing_pool, {lock_before_fork, unlock_after_fork, forget_threads_in_child});

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

using vell::exchange;
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
    pool.processors.store(count);
    if (pool.thread_indexes == nullptr) {  // Kept: the full count is answered while jobs run on their callers.
        pool.active.store(1);
        return count;
    }
    {
        const vell::ScopedLock lock(exchange.lock);
        exchange.queue.reset(count);
    }
    vell::measure_usable_processors();  // the threads inherit the mask of this one
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
    vell::queue_job(entry);
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
    if (pool.is_running.exchange(false) && pool.started > 0) {
        const smp_entry_t stop{.id = 0,
                               .stop = true,
                               .function = nullptr,
                               .arguments = {},
                               .count = static_cast<uint32_t>(pool.started),
                               .done = nullptr};
        vell::queue_job(stop);
        exchange.entry_added.broadcast();
        for (int32_t i = 0; i < pool.started; ++i)
            mp_join_thread(pool.thread_indexes[i]);
    }
    delete[] pool.thread_indexes;
    pool.thread_indexes = nullptr;
    pool.started = 0;
    mp_key_delete(pool.share_key.exchange(nullptr));
    // Kept: the active count stays, and with it the number of shares that jobs are divided into.
    pool.processors.store(1);
}
