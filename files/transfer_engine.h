// The transfer engine: reads and writes of descriptors at offsets, in the caller's thread or behind its back.
//
// A transfer that was started is an object of the engine's until the I/O has really ended, whoever lost interest in
// it meanwhile: memory that the system may still write to is never reused. Transfers of one descriptor that overlap,
// one of them a write, are carried out in the order in which they were started; so are all transfers of a pipe, per
// direction. Everything else runs in parallel.
//
// The engine needs no start and no stop: it works before the library was started, after it was shut down and while
// the process exits. In a forked child, reads that were in flight are read again when somebody asks for them; writes
// stay the parent's and fail in the child with ECANCELED.
//
// Any thread may call anything here. Waits are not cancellation points.
#pragma once

#include <cstdint>

namespace vell {

/// One started transfer, owned by whoever started it until it is collected or abandoned.
struct Transfer;

struct TransferRequest {
    int descriptor;
    bool is_write;
    void* buffer;     // stays the caller's; must live until the transfer is collected or the descriptor drained
    int64_t offset;   // of the file, bytes; pipes ignore it
    uint64_t length;  // bytes; any size
};

struct TransferResult {
    uint64_t moved;  // bytes; fewer than asked only at the end of a file
    int error;       // 0, or the error number of a failed transfer
};

/// Starts a transfer. 0 and the transfer; EBADF for a descriptor that is not open, or a pipe's that is not
/// open for this direction; EAGAIN when memory or threads are short, which may pass.
[[nodiscard]] int transfer_start(const TransferRequest& request, Transfer*& started) noexcept;

/// Carries a transfer out in the calling thread and waits for it. With `as_stream` false a pipe is refused (ESPIPE).
[[nodiscard]] TransferResult transfer_now(const TransferRequest& request, bool as_stream) noexcept;

[[nodiscard]] bool transfer_is_over(Transfer& transfer) noexcept;

/// Waits until the transfer is over.
void transfer_wait(Transfer& transfer) noexcept;

/// Waits until the transfer is over and gives it up. The pointer becomes null.
TransferResult transfer_collect(Transfer*& transfer) noexcept;

/// Calls the transfer off when it was not begun: it then ends with ECANCELED.
void transfer_call_off(Transfer& transfer) noexcept;

/// Gives the transfer up without waiting, calling it off when it was not begun. Its buffer stays in use until the
/// descriptor was drained. The pointer becomes null.
void transfer_abandon(Transfer*& transfer) noexcept;

/// Makes another thread's transfer_abandon or transfer_collect harmless until the matching transfer_release.
void transfer_retain(Transfer& transfer) noexcept;
void transfer_release(Transfer* transfer) noexcept;

/// Calls off what was not begun on the descriptor; those transfers end with ECANCELED.
void transfers_call_off(int descriptor) noexcept;

/// Calls off what was not begun and waits for what runs: no transfer of the descriptor touches memory afterwards.
void transfers_drain(int descriptor) noexcept;

// --- What is known about a descriptor ---------------------------------------------------------------------------

/// To be called for a new descriptor before the calls below: what is known under its number is about a file that was
/// closed behind our back.
void descriptor_begin(int descriptor) noexcept;

/// Keeps the descriptor's data out of the system's cache from here to descriptor_forget.
void descriptor_set_uncached(int descriptor) noexcept;

/// Remembers that the descriptor holds a lock of ours, which descriptor_forget releases.
void descriptor_set_locked(int descriptor) noexcept;

/// Forgets the descriptor before it is closed: drains it, drops cached data, releases the lock.
void descriptor_forget(int descriptor) noexcept;

/// Chooses the back end of files, which takes a while once: for callers that hold a lock when they start a transfer.
void transfers_prepare() noexcept;

/// The name of the back end that carries the transfers of files.
[[nodiscard]] const char* transfer_backend_name() noexcept;

}  // namespace vell
