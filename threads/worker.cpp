// The background worker and its run queue. Absent until the first VL_Thread is constructed, then there until Destroy.
//
// `run_lock` guards everything below, including the construction of the queue, and lives as long as the process. The
// queue's own mutex and the thread table's lock are taken under it. It is not held while an object runs.

#include <atomic>
#include <new>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "vellcore/queue.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

constexpr int64_t k_queue_entries = 64;
enum RunCommand : uint32_t { k_stop = 0, k_run = 1 };

Mutex run_lock;
Condition entry_added;
Condition worker_moved;  // an entry was taken, a flush was reached, or the worker ended

struct Worker {
    vl_queue<vl_run_cmd>* queue = nullptr;
    int32_t thread_index = -1;
    bool is_active = false;         // set by whoever starts the worker, cleared by the worker as it ends
    bool stops_when_empty = false;  // asked for by Destroy when the queue had no room for a stop entry
};
constinit Worker worker VELL_GUARDED_BY(run_lock);
thread_local bool is_worker_thread = false;

/// Waits for the next entry. False when the worker is to end instead.
bool next_entry(vl_run_cmd& entry) noexcept {
    const ScopedLock lock(run_lock);
    while (!worker.queue->take(entry)) {
        if (worker.stops_when_empty) return false;
        entry_added.wait(run_lock);
    }
    worker_moved.broadcast();
    return entry.command != k_stop;
}

/// What was queued behind the stop entry is dropped: nobody will run it.
void end_worker() noexcept {
    const ScopedLock lock(run_lock);
    vl_run_cmd dropped{};
    while (worker.queue->take(dropped)) {
    }
    worker.is_active = false;
    worker.stops_when_empty = false;
    worker_moved.broadcast();
}

void* work(void*) {
    is_worker_thread = true;
    vl_run_cmd entry{};
    while (next_entry(entry))
        if (entry.command == k_run && entry.object != nullptr) entry.object->Run();
    end_worker();
    return nullptr;
}

/// Makes the queue and starts the worker, where they are missing. Without a thread table there is no worker yet; a
/// later construction tries again.
void ensure_worker() noexcept {
    const ScopedLock lock(run_lock);
    if (worker.is_active) return;
    if (worker.queue == nullptr) worker.queue = new (std::nothrow) vl_queue<vl_run_cmd>(k_queue_entries);
    if (worker.queue == nullptr) return;
    worker.is_active = true;
    worker.thread_index = mp_start_thread("VL_Worker", work, nullptr);
    if (worker.thread_index < 0) worker.is_active = false;
}

/// Asks the worker to end when it has run what is queued.
void request_stop() noexcept VELL_REQUIRES(run_lock) {
    if (!worker.queue->put({k_stop, nullptr})) worker.stops_when_empty = true;
    entry_added.signal();
}

}  // namespace
}  // namespace vell

using vell::run_lock;
using vell::ScopedLock;
using vell::worker;

VL_Thread::VL_Thread() noexcept {
    vell::ensure_worker();
}
VL_Thread::~VL_Thread() = default;
void VL_Thread::Run() {}

void VL_Thread::Start() {
    const ScopedLock lock(run_lock);
    if (worker.queue == nullptr) return;
    worker.queue->put({vell::k_run, this});
    vell::entry_added.signal();
}

void VL_Thread::Flush() {
    {
        const ScopedLock lock(run_lock);
        if (!worker.is_active || vell::is_worker_thread) return;
    }
    VL_TFlush flush;
    const ScopedLock lock(run_lock);
    while (worker.is_active && !worker.queue->put({vell::k_run, &flush}))
        vell::worker_moved.wait(run_lock);
    vell::entry_added.signal();
    const std::atomic_ref<int32_t> done(flush.done);
    while (worker.is_active && done.load(std::memory_order_acquire) == 0)
        vell::worker_moved.wait(run_lock);
}

void VL_Thread::Destroy() {
    int32_t thread_index = -1;
    {
        const ScopedLock lock(run_lock);
        if (worker.queue == nullptr) return;
        if (worker.is_active) {
            vell::request_stop();
            if (vell::is_worker_thread) return;  // It ends when this Run has returned and the queue is empty.
        }
        thread_index = worker.thread_index;
        worker.thread_index = -1;
    }
    if (thread_index >= 0) mp_join_thread(thread_index);
    const ScopedLock lock(run_lock);
    if (worker.is_active) return;  // Another construction has started a new worker meanwhile.
    delete worker.queue;
    worker.queue = nullptr;
}

VL_TFlush::VL_TFlush() noexcept = default;

// Under the lock, so that Flush, which returns as soon as it sees the flag, cannot take the object away before the
// worker is done with it.
void VL_TFlush::Run() {
    const ScopedLock lock(run_lock);
    std::atomic_ref<int32_t>(done).store(1, std::memory_order_release);
    vell::worker_moved.broadcast();
}
