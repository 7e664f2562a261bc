// The background worker and its run queue. Absent until the first VL_Thread is constructed, then there until Destroy.
//
// `run_lock` guards everything below and lives as long as the process. The queue's own mutex and the thread table's
// lock are taken under it. It is not held while an object runs.
//
// Objects are numbered as they are queued. One worker runs them in that order, so "has run" is a comparison with
// `finished`, whichever worker it was. A stop is a number too: the worker that Destroy asks to end runs what was queued
// by then; what others queue in the meantime is left to a successor, which starts when the first has ended. Workers are
// numbered as well, so that nobody takes a successor for the worker that they were waiting for.

#include <atomic>
#include <new>
#include <utility>

#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "vellcore/queue.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

constexpr int64_t k_queue_entries = 64;
constexpr uint32_t k_run = 1;
constexpr uint64_t k_no_stop = ~uint64_t{0};

Mutex run_lock;
Condition entry_added;   // or a stop was asked for
Condition worker_moved;  // an object has run, or the worker has ended

struct Worker {
    vl_queue<vl_run_cmd>* queue = nullptr;
    uint64_t queued = 0;           // objects, since the process began
    uint64_t finished = 0;         // of these, run or given up
    uint64_t generation = 0;       // of the worker that runs, or ran last; 0 = there was none
    uint64_t stop_at = k_no_stop;  // it ends when that many have finished
    bool is_active = false;        // set by whoever starts the worker, cleared by the worker as it ends
    int32_t thread_index = -1;     // to be joined; -1 while somebody does
};
constinit Worker worker VELL_GUARDED_BY(run_lock);
thread_local uint64_t own_generation = 0;  // of a worker's thread; 0 in all others

bool is_worker_thread() noexcept VELL_REQUIRES(run_lock) {
    return own_generation != 0 && own_generation == worker.generation;
}

/// Waits for the next object. Null when the worker is to end instead.
VL_Thread* next_object() noexcept {
    const ScopedLock lock(run_lock);
    vl_run_cmd entry{};
    // A forked child has the worker's thread only when that thread forked, and no worker then.
    while (worker.is_active && is_worker_thread() && worker.finished < worker.stop_at) {
        if (worker.queue->take(entry)) return entry.object;
        entry_added.wait(run_lock);
    }
    return nullptr;
}

void count_as_finished() noexcept {
    const ScopedLock lock(run_lock);
    if (!is_worker_thread()) return;
    ++worker.finished;
    worker_moved.broadcast();
}

void* work(void*);

/// Starts a worker. Without one there is nobody to run what is queued: it is given up.
void start_worker() noexcept VELL_REQUIRES(run_lock) {
    worker.is_active = true;
    worker.stop_at = k_no_stop;
    ++worker.generation;
    worker.thread_index = mp_start_thread("VL_Worker", work, nullptr);
    if (worker.thread_index >= 0) return;
    worker.is_active = false;
    for (vl_run_cmd dropped{}; worker.queue->take(dropped);)
        ++worker.finished;
    worker_moved.broadcast();
}

void end_worker() noexcept {
    const ScopedLock lock(run_lock);
    if (!is_worker_thread()) return;
    worker.is_active = false;
    // Nobody waits for this thread when it was its own object that called Destroy.
    if (worker.thread_index >= 0) mp_detach_thread(std::exchange(worker.thread_index, -1));
    if (worker.finished < worker.queued) start_worker();
    worker_moved.broadcast();
}

void begin_worker() noexcept {
    const ScopedLock lock(run_lock);
    own_generation = worker.generation;
}

void* work(void*) {
    begin_worker();
    while (VL_Thread* object = next_object()) {
        object->Run();
        count_as_finished();
    }
    end_worker();
    return nullptr;
}

/// Makes the queue and starts the worker, where they are missing. Without a thread table there is no worker yet; a
/// later construction or start tries again.
void ensure_worker() noexcept VELL_REQUIRES(run_lock) {
    if (worker.is_active) return;
    if (worker.queue == nullptr) worker.queue = new (std::nothrow) vl_queue<vl_run_cmd>(k_queue_entries);
    if (worker.queue != nullptr) start_worker();
}

// --- fork: the child has no worker. What was queued is run by its parent's. -----------------------------------------

void forget_worker_in_child() noexcept VELL_NO_LOCK_CHECK {
    const uint64_t generation = worker.generation + 1;
    delete worker.queue;
    worker = Worker{};
    worker.generation = generation;
    new (&entry_added) Condition;
    new (&worker_moved) Condition;
}

const ForkEntry fork_entry(ForkOrder::worker, run_lock, forget_worker_in_child);

}  // namespace
}  // namespace vell

using vell::run_lock;
using vell::ScopedLock;
using vell::worker;

VL_Thread::VL_Thread() noexcept {
    const ScopedLock lock(run_lock);
    vell::ensure_worker();
}
VL_Thread::~VL_Thread() = default;
void VL_Thread::Run() {}

void VL_Thread::Start() {
    const ScopedLock lock(run_lock);
    vell::ensure_worker();
    if (!worker.is_active || !worker.queue->put({vell::k_run, this})) return;
    ++worker.queued;
    vell::entry_added.signal();
}

void VL_Thread::Flush() {
    const ScopedLock lock(run_lock);
    if (vell::is_worker_thread()) return;
    const uint64_t awaited = worker.queued;
    while (worker.finished < awaited)
        vell::worker_moved.wait(run_lock);
}

void VL_Thread::Destroy() {
    int32_t thread_index = -1;
    uint64_t generation = 0;
    {
        const ScopedLock lock(run_lock);
        if (worker.is_active && worker.stop_at == vell::k_no_stop) {
            worker.stop_at = worker.queued;
            vell::entry_added.signal();
        }
        if (vell::is_worker_thread()) return;  // It ends when this Run has returned and what is queued has run.
        generation = worker.generation;
        thread_index = std::exchange(worker.thread_index, -1);
    }
    if (thread_index >= 0) mp_join_thread(thread_index);
    const ScopedLock lock(run_lock);
    // Another thread may be the one that joins it.
    while (worker.is_active && worker.generation == generation)
        vell::worker_moved.wait(run_lock);
    if (worker.is_active || worker.finished < worker.queued) return;  // A successor works for others.
    delete worker.queue;
    worker.queue = nullptr;
}

VL_TFlush::VL_TFlush() noexcept = default;

void VL_TFlush::Run() {
    std::atomic_ref<int32_t>(done).store(1, std::memory_order_release);
}
