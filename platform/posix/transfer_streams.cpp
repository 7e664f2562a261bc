// The back end for pipes, sockets and terminals: descriptors without a position, on which a transfer may stay in
// flight for ever. One thread polls them all and moves what is ready, so that they keep no other thread busy and can
// be withdrawn at any time.
//
// A read is over with the first bytes that arrive; a write goes on until everything was taken. Jobs of the same
// descriptor and direction are handed over one at a time, by the owner. Guarded by streams_lock, under which nothing
// else is taken; `ended` is called without it.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/lock.h"
#include "platform/transfer_backend.h"

namespace vell {
namespace {

Mutex streams_lock;
Condition poll_left;

struct Streams {
    TransferJob* jobs VELL_GUARDED_BY(streams_lock) = nullptr;  // all that wait
    int wake_read VELL_GUARDED_BY(streams_lock) = -1;           // ends of the pipe that interrupts the poll
    int wake_write VELL_GUARDED_BY(streams_lock) = -1;
    bool is_running VELL_GUARDED_BY(streams_lock) = false;  // the thread was started
    bool is_polling VELL_GUARDED_BY(streams_lock) = false;  // it may hold references to the descriptors polled
    uint64_t rounds VELL_GUARDED_BY(streams_lock) = 0;      // polls begun
};
Streams streams;

struct PolledJob {
    TransferJob* job;
};

/// The set handed to poll. Used by the poller only; grows and never shrinks.
struct PollSet {
    pollfd* entries = nullptr;
    PolledJob* jobs = nullptr;  // beside the entries
    size_t capacity = 0;
    size_t count = 0;
};

bool grow(PollSet& set, size_t wanted) noexcept {
    if (wanted <= set.capacity) return true;
    const size_t capacity = wanted * 2;
    auto* entries = static_cast<pollfd*>(std::realloc(set.entries, capacity * sizeof(pollfd)));
    if (entries != nullptr) set.entries = entries;
    auto* jobs = static_cast<PolledJob*>(std::realloc(set.jobs, capacity * sizeof(PolledJob)));
    if (jobs != nullptr) set.jobs = jobs;
    if (entries == nullptr || jobs == nullptr) return false;
    set.capacity = capacity;
    return true;
}

/// Collects what to poll. Short of memory the jobs that do not fit wait for a later round.
void gather(PollSet& set) noexcept VELL_REQUIRES(streams_lock) {
    size_t count = 0;
    for (const TransferJob* job = streams.jobs; job != nullptr; job = job->next)
        ++count;
    if (!grow(set, count + 1)) count = set.capacity == 0 ? 0 : set.capacity - 1;
    set.count = 0;
    if (set.capacity == 0) return;
    set.jobs[0] = {nullptr};
    set.entries[set.count++] = {streams.wake_read, POLLIN, 0};
    for (TransferJob* job = streams.jobs; job != nullptr && set.count <= count; job = job->next) {
        set.jobs[set.count] = {job};
        set.entries[set.count++] = {job->descriptor, static_cast<short>(job->is_write ? POLLOUT : POLLIN), 0};
    }
}

bool take_out(const TransferJob& job) noexcept VELL_REQUIRES(streams_lock) {
    for (TransferJob** link = &streams.jobs; *link != nullptr; link = &(*link)->next) {
        if (*link != &job) continue;
        *link = job.next;
        return true;
    }
    return false;
}

void empty_wake_pipe() noexcept VELL_REQUIRES(streams_lock) {
    char bytes[64];
    while (read(streams.wake_read, bytes, sizeof bytes) > 0) {
    }
}

void wake_poller() noexcept VELL_REQUIRES(streams_lock) {
    const char byte = 0;
    // A full pipe wakes the poller just as well.
    if (write(streams.wake_write, &byte, 1) < 0) errno = 0;
}

/// Moves what is ready. Called under the lock, which is safe because it does not wait.
void serve(TransferJob& job) noexcept VELL_REQUIRES(streams_lock) {
    const size_t left = static_cast<size_t>(job.length - job.moved);
    std::byte* at = job.buffer + job.moved;
    const int64_t result =
        job.is_write ? write_without_waiting(job.descriptor, at, left) : read_without_waiting(job.descriptor, at, left);
    if (result == -EAGAIN || result == -EINTR) return;
    if (result < 0) {
        job.error = static_cast<int>(-result);
        job.is_over = true;
        return;
    }
    job.moved += static_cast<uint64_t>(result);
    job.is_over = !job.is_write || job.moved >= job.length;
}

/// Serves the jobs that are ready; the ones that are over are taken out and returned as a list.
TransferJob* serve_ready(const PollSet& set) noexcept VELL_REQUIRES(streams_lock) {
    TransferJob* over = nullptr;
    for (size_t i = 1; i < set.count; ++i) {
        if (set.entries[i].revents == 0) continue;
        // A job that was withdrawn during the poll is not ours any more and may be gone.
        TransferJob* job = streams.jobs;
        while (job != nullptr && job != set.jobs[i].job)
            job = job->next;
        if (job == nullptr) continue;
        serve(*job);
        if (!job->is_over) continue;
        take_out(*job);
        job->next = over;
        over = job;
    }
    return over;
}

void begin_round(PollSet& set) noexcept {
    const ScopedLock lock(streams_lock);
    gather(set);
    streams.is_polling = true;
    ++streams.rounds;
}

TransferJob* end_round(const PollSet& set) noexcept {
    const ScopedLock lock(streams_lock);
    streams.is_polling = false;
    poll_left.broadcast();
    empty_wake_pipe();
    return serve_ready(set);
}

void serve_streams() {
    PollSet set;
    for (;;) {
        begin_round(set);
        constexpr int k_no_set_wait_ms = 100;
        poll(set.entries, set.count, set.count == 0 ? k_no_set_wait_ms : -1);
        TransferJob* over = end_round(set);
        while (over != nullptr) {
            TransferJob& job = *over;
            over = job.next;
            job.ended(job);
        }
    }
}

bool open_wake_pipe() noexcept VELL_REQUIRES(streams_lock) {
    if (streams.wake_read >= 0) return true;
    int ends[2];
    if (pipe(ends) != 0) return false;
    for (const int end : ends) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
        fcntl(end, F_SETFL, O_NONBLOCK);
    }
    streams.wake_read = ends[0];
    streams.wake_write = ends[1];
    return true;
}

int submit(TransferJob& job) {
    const ScopedLock lock(streams_lock);
    if (!open_wake_pipe()) return EAGAIN;
    if (!streams.is_running) {
        if (start_transfer_thread("VL-IO-Stream", serve_streams) != 0) return EAGAIN;
        streams.is_running = true;
    }
    job.next = streams.jobs;
    streams.jobs = &job;
    wake_poller();
    return 0;
}

// While the system polls a descriptor it also keeps the file behind it open. So the poller is made to let go, or the
// other end of a pipe would not notice that this one was closed.
bool withdraw(TransferJob& job) {
    const ScopedLock lock(streams_lock);
    if (!take_out(job)) return false;
    if (streams.is_polling) wake_poller();
    const uint64_t round = streams.rounds;
    while (streams.is_polling && streams.rounds == round)
        poll_left.wait(streams_lock);
    return true;
}

void before_fork() VELL_NO_LOCK_CHECK {
    streams_lock.lock();
}
void after_fork_in_parent() VELL_NO_LOCK_CHECK {
    streams_lock.unlock();
}

void after_fork_in_child() VELL_NO_LOCK_CHECK {
    streams_lock.unlock();
    new (&poll_left) Condition;
    if (streams.wake_read >= 0) close(streams.wake_read);
    if (streams.wake_write >= 0) close(streams.wake_write);
    streams = Streams{};
}

}  // namespace

constinit const TransferBackend streams_backend = {
    "poll", submit, withdraw, before_fork, after_fork_in_parent, after_fork_in_child};

}  // namespace vell
