// Moving bytes between files and memory behind the caller's back: jobs, and the back ends that carry them out.
//
// A back end takes jobs, works on several at once and calls job.ended when one is over. Three exist: threads with
// pread and pwrite (posix/transfer_threads.cpp, everywhere), a submission ring (linux/transfer_uring.cpp, where the
// system has one), and one poller for descriptors without a position (posix/transfer_streams.cpp).
//
// To port: the threads and the poller are POSIX. A system folder provides preferred_backend, read_without_waiting
// and write_without_waiting (see linux/transfer_choice.cpp, linux/flagged_calls.cpp).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vell {

struct UncachedFile;

/// One transfer as a back end sees it. The owner keeps it alive until `ended` was called or `withdraw` answered true.
struct TransferJob {
    // Set by the owner and constant from then on.
    int descriptor = -1;
    bool is_write = false;
    std::byte* buffer = nullptr;
    int64_t offset = 0;                     // of the file, bytes; ignored by the poller
    uint64_t length = 0;                    // bytes
    UncachedFile* uncached = nullptr;       // how to keep the data out of the system's cache; null: do not try
    void (*ended)(TransferJob&) = nullptr;  // called once, by a thread of the back end that holds no lock

    // Progress. Touched by the one thread that works on the job, read by the owner after `ended`.
    uint64_t moved = 0;  // bytes so far
    int error = 0;       // error number of a failed job
    bool is_over = false;
    bool is_cache_asked = false;  // the data was looked for in the cache already
    TransferJob* next = nullptr;  // the back end's queue
};

// --- One job in pieces ----------------------------------------------------------------------------------------

enum class PieceKind : uint8_t { plain, direct, dropped_behind, from_cache };

/// One system call's worth of a job.
struct TransferPiece {
    int descriptor;  // the job's, or its twin that bypasses the cache
    PieceKind kind;
    int flags;  // for pread_flags and pwrite_flags; 0 for the plain calls
    std::byte* buffer;
    size_t bytes;
    off_t offset;
};

/// What to do next for a job that is not over.
TransferPiece next_piece(TransferJob& job) noexcept;

/// Takes the result of a piece into the job: bytes moved or a negative error number. Afterwards the job is over
/// (done, end of file, failed) or wants its next piece, which is how short transfers are continued and how a piece
/// that a file system refuses is done again in a plainer way.
void settle_piece(TransferJob& job, const TransferPiece& piece, int64_t result) noexcept;

/// Carries out the job in the calling thread.
void run_job(TransferJob& job) noexcept;

// --- Back ends ------------------------------------------------------------------------------------------------

struct TransferBackend {
    const char* name;
    /// Takes a job. 0, or EAGAIN when there is no thread to work on it and none can be started.
    int (*submit)(TransferJob& job);
    /// Takes a job back that was not begun. False: it is being worked on, or over; `ended` is or will be called.
    bool (*withdraw)(TransferJob& job);
    /// Around fork(). The child forgets jobs and threads, which stay the parent's.
    void (*before_fork)();
    void (*after_fork_in_parent)();
    void (*after_fork_in_child)();
};

extern const TransferBackend threads_backend;
extern const TransferBackend streams_backend;

/// The submission ring, or null where system, container or build have none. The answer is found once per process.
const TransferBackend* ring_backend() noexcept;

/// What files use: the choice of VELLCORE_AIO (threads, uring) where it can be had, else what measured best.
const TransferBackend& preferred_backend() noexcept;

// --- For the back ends ----------------------------------------------------------------------------------------

/// Starts a detached thread that blocks all signals but faults and has an alternate signal stack. 0 or an error number.
int start_transfer_thread(const char* name, void (*entry)()) noexcept;

/// At most `bytes` of what a pipe, socket or terminal has ready or has room for, without waiting where the system
/// can promise that. Bytes moved (0: end of data) or a negative error number, EAGAIN when nothing is ready.
int64_t read_without_waiting(int descriptor, void* buffer, size_t bytes) noexcept;
int64_t write_without_waiting(int descriptor, const void* buffer, size_t bytes) noexcept;

}  // namespace vell
