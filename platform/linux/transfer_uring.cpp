// The back end on a submission ring. One thread of its own submits and reaps: a transfer would otherwise end with the
// thread that submitted it, and its completion would interrupt that thread's system calls.
//
// Jobs wait in a queue, guarded by ring_lock, until the ring's thread takes them; an event descriptor that the ring
// reads all the time wakes it. The ring itself belongs to that thread. A ring that cannot be made again in a forked
// child is replaced by threads.

#include <liburing.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/first_use.h"
#include "platform/lock.h"
#include "platform/posix/file_calls.h"
#include "platform/transfer_backend.h"

namespace vell {
namespace {

constexpr unsigned k_most_in_flight = 64;
constexpr unsigned k_entries = 2 * k_most_in_flight;  // room for every transfer and the wake-up

Mutex ring_lock;

struct Queue {
    TransferJob* first VELL_GUARDED_BY(ring_lock) = nullptr;
    TransferJob* last VELL_GUARDED_BY(ring_lock) = nullptr;
    int wake VELL_GUARDED_BY(ring_lock) = -1;             // event descriptor
    bool is_open VELL_GUARDED_BY(ring_lock) = false;      // there is a ring
    bool is_running VELL_GUARDED_BY(ring_lock) = false;   // its thread was started
    bool is_sleeping VELL_GUARDED_BY(ring_lock) = false;  // the thread will not look at the queue unless woken
};
Queue queue;

/// A transfer's place in the ring.
struct Place {
    TransferJob* job;
    TransferPiece piece;
    Place* next_free;
};

/// Used by the ring's thread only, once that was started.
struct Ring {
    io_uring native;
    Place places[k_most_in_flight];
    Place* free;
    uint64_t wake_count;  // what the read of the event descriptor delivers
};
Ring ring;

bool knows_transfers(io_uring& native) noexcept {
    io_uring_probe* probe = io_uring_get_probe_ring(&native);
    if (probe == nullptr) return false;
    const bool is_known =
        io_uring_opcode_supported(probe, IORING_OP_READ) != 0 && io_uring_opcode_supported(probe, IORING_OP_WRITE) != 0;
    io_uring_free_probe(probe);
    return is_known;
}

/// False where the system has no rings or forbids them.
bool open_ring() noexcept VELL_REQUIRES(ring_lock) {
    if (queue.is_open) return true;
    if (io_uring_queue_init(k_entries, &ring.native, 0) != 0) return false;
    queue.wake = knows_transfers(ring.native) ? eventfd(0, EFD_CLOEXEC) : -1;
    if (queue.wake < 0) {
        io_uring_queue_exit(&ring.native);
        return false;
    }
    ring.free = nullptr;
    for (Place& place : ring.places) {
        place.next_free = ring.free;
        ring.free = &place;
    }
    queue.is_open = true;
    return true;
}

// --- The ring's thread ------------------------------------------------------------------------------------------

/// An entry of the submission queue, which is emptied when it is full.
io_uring_sqe& fresh_entry() noexcept {
    io_uring_sqe* entry = io_uring_get_sqe(&ring.native);
    while (entry == nullptr) {
        io_uring_submit(&ring.native);
        entry = io_uring_get_sqe(&ring.native);
    }
    return *entry;
}

void watch_for_wake(int wake) noexcept {
    io_uring_sqe& entry = fresh_entry();
    io_uring_prep_read(&entry, wake, &ring.wake_count, sizeof ring.wake_count, 0);
    io_uring_sqe_set_data(&entry, nullptr);
}

void submit_piece(Place& place) noexcept {
    place.piece = next_piece(*place.job);
    const TransferPiece& piece = place.piece;
    io_uring_sqe& entry = fresh_entry();
    const auto bytes = static_cast<unsigned>(piece.bytes);
    const auto offset = static_cast<__u64>(piece.offset);
    if (place.job->is_write) {
        io_uring_prep_write(&entry, piece.descriptor, piece.buffer, bytes, offset);
    } else {
        io_uring_prep_read(&entry, piece.descriptor, piece.buffer, bytes, offset);
    }
    entry.rw_flags = piece.flags;
    io_uring_sqe_set_data(&entry, &place);
}

/// The next job from the queue; null, and asleep from then on, when there is none.
TransferJob* take_job() noexcept {
    const ScopedLock lock(ring_lock);
    TransferJob* job = queue.first;
    queue.is_sleeping = job == nullptr;
    if (job == nullptr) return nullptr;
    queue.first = job->next;
    if (queue.first == nullptr) queue.last = nullptr;
    return job;
}

void submit_waiting_jobs() noexcept {
    while (ring.free != nullptr) {
        TransferJob* job = take_job();
        if (job == nullptr) return;
        Place& place = *ring.free;
        ring.free = place.next_free;
        place.job = job;
        submit_piece(place);
    }
}

void complete(Place& place, int32_t result) noexcept {
    TransferJob& job = *place.job;
    settle_piece(job, place.piece, file_calls.ring_result(result));
    if (!job.is_over) {
        submit_piece(place);
        return;
    }
    place.next_free = ring.free;
    ring.free = &place;
    job.ended(job);
}

void reap(int wake) noexcept {
    io_uring_cqe* entry = nullptr;
    while (io_uring_peek_cqe(&ring.native, &entry) == 0) {
        auto* place = static_cast<Place*>(io_uring_cqe_get_data(entry));
        const int32_t result = entry->res;
        io_uring_cqe_seen(&ring.native, entry);
        if (place == nullptr) {
            watch_for_wake(wake);
        } else {
            complete(*place, result);
        }
    }
}

int wake_descriptor() noexcept {
    const ScopedLock lock(ring_lock);
    return queue.wake;
}

void serve_ring() {
    const int wake = wake_descriptor();
    watch_for_wake(wake);
    for (;;) {
        submit_waiting_jobs();
        io_uring_submit_and_wait(&ring.native, 1);
        reap(wake);
    }
}

// --- What the engine calls --------------------------------------------------------------------------------------

bool is_ready() noexcept VELL_REQUIRES(ring_lock) {
    if (!open_ring()) return false;
    if (!queue.is_running) queue.is_running = start_transfer_thread("VL-IO-Ring", serve_ring) == 0;
    return queue.is_running;
}

bool enqueue(TransferJob& job) noexcept {
    const ScopedLock lock(ring_lock);
    if (!is_ready()) return false;
    job.next = nullptr;
    (queue.last != nullptr ? queue.last->next : queue.first) = &job;
    queue.last = &job;
    if (queue.is_sleeping) {
        queue.is_sleeping = false;
        const uint64_t one = 1;
        // Cannot fail: the counter is far from full.
        if (write(queue.wake, &one, sizeof one) < 0) errno = 0;
    }
    return true;
}

int submit(TransferJob& job) {
    return enqueue(job) ? 0 : threads_backend.submit(job);
}

bool dequeue(const TransferJob& job) noexcept {
    const ScopedLock lock(ring_lock);
    TransferJob* before = nullptr;
    for (TransferJob* each = queue.first; each != nullptr; before = each, each = each->next) {
        if (each != &job) continue;
        (before != nullptr ? before->next : queue.first) = job.next;
        if (queue.last == &job) queue.last = before;
        return true;
    }
    return false;
}

bool withdraw(TransferJob& job) {
    return dequeue(job) || threads_backend.withdraw(job);
}

void before_fork() VELL_NO_LOCK_CHECK {
    ring_lock.lock();
    threads_backend.before_fork();
}

void after_fork_in_parent() VELL_NO_LOCK_CHECK {
    threads_backend.after_fork_in_parent();
    ring_lock.unlock();
}

/// The ring is the parent's: what the child put into it would land among the parent's transfers.
void after_fork_in_child() VELL_NO_LOCK_CHECK {
    threads_backend.after_fork_in_child();
    ring_lock.unlock();
    if (queue.is_open) {
        io_uring_queue_exit(&ring.native);
        close(queue.wake);
    }
    queue = Queue{};
}

constexpr TransferBackend k_ring = {"uring", submit, withdraw, before_fork, after_fork_in_parent, after_fork_in_child};

bool has_ring() noexcept {
    const ScopedLock lock(ring_lock);
    return open_ring();
}

}  // namespace

const TransferBackend* ring_backend() noexcept {
    static constinit FirstUse probe;
    static constinit bool is_usable = false;
    probe.run([] { is_usable = has_ring(); });
    return is_usable ? &k_ring : nullptr;
}

}  // namespace vell
