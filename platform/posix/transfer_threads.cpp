// The back end that works everywhere: a few threads that take jobs in turn and carry them out with blocking calls.
//
// Threads start when jobs wait and nobody is idle, sleep when there is nothing to do and live to the end of the
// process. Everything here is guarded by pool_lock, under which nothing else is taken.

#include <pthread.h>

#include <cerrno>
#include <new>

#include "platform/lock.h"
#include "platform/posix/file_calls.h"
#include "platform/posix/signals_blocked.h"
#include "platform/thread_identity.h"
#include "platform/transfer_backend.h"

namespace vell {
namespace {

// Enough transfers in flight for a fast disk; more would only add switches between threads.
constexpr int k_most_threads = 8;

Mutex pool_lock;
Condition work_waits;

struct Pool {
    TransferJob* first VELL_GUARDED_BY(pool_lock) = nullptr;  // of the queue
    TransferJob* last VELL_GUARDED_BY(pool_lock) = nullptr;
    int queued VELL_GUARDED_BY(pool_lock) = 0;   // jobs in the queue
    int threads VELL_GUARDED_BY(pool_lock) = 0;  // started
    int idle VELL_GUARDED_BY(pool_lock) = 0;     // of these, waiting for work
};
Pool pool;

TransferJob& take_first() noexcept VELL_REQUIRES(pool_lock) {
    TransferJob& job = *pool.first;
    pool.first = job.next;
    if (pool.first == nullptr) pool.last = nullptr;
    --pool.queued;
    return job;
}

TransferJob& wait_for_job() noexcept {
    const ScopedLock lock(pool_lock);
    ++pool.idle;
    while (pool.first == nullptr)
        work_waits.wait(pool_lock);
    --pool.idle;
    return take_first();
}

void serve_jobs() {
    for (;;) {
        TransferJob& job = wait_for_job();
        run_job(job);
        job.ended(job);
    }
}

int submit(TransferJob& job) {
    const ScopedLock lock(pool_lock);
    if (pool.idle <= pool.queued && pool.threads < k_most_threads) {
        if (start_transfer_thread("VL-IO", serve_jobs) == 0) {
            ++pool.threads;
        } else if (pool.threads == 0) {
            return EAGAIN;
        }
    }
    job.next = nullptr;
    (pool.last != nullptr ? pool.last->next : pool.first) = &job;
    pool.last = &job;
    ++pool.queued;
    work_waits.signal();
    return 0;
}

bool withdraw(TransferJob& job) {
    const ScopedLock lock(pool_lock);
    TransferJob* before = nullptr;
    for (TransferJob* each = pool.first; each != nullptr; before = each, each = each->next) {
        if (each != &job) continue;
        (before != nullptr ? before->next : pool.first) = job.next;
        if (pool.last == &job) pool.last = before;
        --pool.queued;
        return true;
    }
    return false;
}

void before_fork() VELL_NO_LOCK_CHECK {
    pool_lock.lock();
}
void after_fork_in_parent() VELL_NO_LOCK_CHECK {
    pool_lock.unlock();
}

void after_fork_in_child() VELL_NO_LOCK_CHECK {
    pool_lock.unlock();
    new (&work_waits) Condition;
    pool = Pool{};
}

struct ThreadStart {
    const char* name;
    void (*entry)();
};

void* run_thread(void* argument) {
    const auto* start = static_cast<ThreadStart*>(argument);
    const ThreadStart mine = *start;
    delete start;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    identify_thread(mine.name);
    mine.entry();
    return nullptr;
}

}  // namespace

int start_transfer_thread(const char* name, void (*entry)()) noexcept {
    auto* start = new (std::nothrow) ThreadStart{name, entry};
    if (start == nullptr) return ENOMEM;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const SignalsBlocked signals_blocked;
    const int error = file_calls.create_thread(&thread, &attributes, run_thread, start);
    pthread_attr_destroy(&attributes);
    if (error != 0) delete start;
    return error;
}

constinit const TransferBackend threads_backend = {
    "threads", submit, withdraw, before_fork, after_fork_in_parent, after_fork_in_child};

}  // namespace vell
