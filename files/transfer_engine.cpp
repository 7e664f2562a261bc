// The life of a transfer: started, held back behind an earlier one or handed to a back end, over, collected.
//
// All states change under engine_lock; the back ends' locks are taken under it. A transfer has one reference of its
// owner's and one of the lists', and is freed with the last.

#include "files/transfer_engine.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

#include "files/transfer_lists.h"
#include "platform/fork_handlers.h"

namespace vell {
namespace {

Condition transfer_over;
int waiting_threads VELL_GUARDED_BY(engine_lock) = 0;

void wait_for_change() noexcept VELL_REQUIRES(engine_lock) {
    ++waiting_threads;
    transfer_over.wait(engine_lock);
    --waiting_threads;
}

void hand_over(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock) {
    const bool is_taken = transfer.backend->submit(transfer) == 0;
    transfer.state = is_taken ? TransferState::handed_over : TransferState::unattended;
}

/// Hands over what waited for an earlier transfer of the descriptor and need not any more.
void release_held(int descriptor) noexcept VELL_REQUIRES(engine_lock) {
    for (Transfer* each = list_of(descriptor).first; each != nullptr; each = each->later) {
        if (each->descriptor != descriptor || each->state != TransferState::held || must_wait(*each)) continue;
        // One that runs in its caller is woken below and looks for itself.
        if (!each->is_on_stack) hand_over(*each);
    }
}

void finish(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock) {
    const int descriptor = transfer.descriptor;
    transfer.state = TransferState::over;
    unlink(transfer);
    release_held(descriptor);
    if (waiting_threads != 0) transfer_over.broadcast();
    if (!transfer.is_on_stack) drop_reference(transfer);
}

void finish_called_off(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock) {
    transfer.error = ECANCELED;
    transfer.is_over = true;
    finish(transfer);
}

/// What the back ends call at the end of a job.
void job_ended(TransferJob& job) {
    const ScopedLock lock(engine_lock);
    finish(static_cast<Transfer&>(job));
}

/// Takes the transfer out of other hands when it was not begun.
bool take_back(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock) {
    switch (transfer.state) {
        case TransferState::held:
        case TransferState::unattended:
            return !transfer.is_on_stack;
        case TransferState::handed_over:
            return transfer.backend->withdraw(transfer);
        case TransferState::in_caller:
        case TransferState::over:
            break;
    }
    return false;
}

/// Takes over a transfer that nobody works on, so that the caller does not wait for a thread that has others to serve.
bool take_for_caller(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock) {
    const bool is_free = transfer.state == TransferState::unattended ||
                         (transfer.state == TransferState::handed_over && !transfer.is_stream);
    if (!is_free || !take_back(transfer)) return false;
    transfer.state = TransferState::in_caller;
    return true;
}

/// A transfer of the descriptor that nobody works on, taken over by the caller; null when there is none. Whoever waits
/// on the descriptor looks here first, because what it waits for may be held back behind such a transfer.
Transfer* take_unattended(int descriptor) noexcept VELL_REQUIRES(engine_lock) {
    for (Transfer* each = list_of(descriptor).first; each != nullptr; each = each->later) {
        if (each->descriptor != descriptor || each->state != TransferState::unattended) continue;
        each->state = TransferState::in_caller;
        return each;
    }
    return nullptr;
}

void carry_out(Transfer& transfer) noexcept {
    const CancelShield shield;
    run_job(transfer);
    const ScopedLock lock(engine_lock);
    finish(transfer);
}

// --- fork -------------------------------------------------------------------------------------------------------

/// False until the first transfer: asking for the preferred back end would open it.
std::atomic<bool> has_backends{false};
bool had_backends_at_fork = false;

void before_fork() noexcept VELL_NO_LOCK_CHECK {
    engine_lock.lock();
    had_backends_at_fork = has_backends.load();
    if (!had_backends_at_fork) return;
    preferred_backend().before_fork();
    streams_backend.before_fork();
}

void after_fork_in_parent() noexcept VELL_NO_LOCK_CHECK {
    if (had_backends_at_fork) {
        streams_backend.after_fork_in_parent();
        preferred_backend().after_fork_in_parent();
    }
    engine_lock.unlock();
}

/// Leaves in the child's lists the reads that can be done again; calls off the rest.
void adopt_transfer(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock) {
    if (transfer.is_on_stack) {  // of a thread that the child does not have
        unlink(transfer);
    } else if (transfer.is_write || transfer.is_stream) {
        transfer.error = ECANCELED;
        transfer.is_over = true;
        transfer.state = TransferState::over;
        unlink(transfer);
        drop_reference(transfer);
    } else {
        transfer.moved = 0;
        transfer.error = 0;
        transfer.is_over = false;
        transfer.state = TransferState::unattended;
    }
}

void after_fork_in_child() noexcept VELL_NO_LOCK_CHECK {
    if (had_backends_at_fork) {
        preferred_backend().after_fork_in_child();
        streams_backend.after_fork_in_child();
    }
    engine_lock.unlock();
    new (&transfer_over) Condition;
    waiting_threads = 0;
    for (DescriptorList& list : descriptor_lists) {
        for (Transfer *each = list.first, *later = nullptr; each != nullptr; each = later) {
            later = each->later;
            adopt_transfer(*each);
        }
        // A lock belongs to the open file that parent and child share: only the parent may release it.
        for (DescriptorFacts* facts = list.facts; facts != nullptr; facts = facts->next)
            facts->is_locked = false;
    }
}

const ForkEntry fork_entry(ForkOrder::transfer_engine, {before_fork, after_fork_in_parent, after_fork_in_child});

// --- starting ---------------------------------------------------------------------------------------------------

void fill(Transfer& transfer, const TransferRequest& request) noexcept VELL_REQUIRES(engine_lock) {
    transfer.descriptor = request.descriptor;
    transfer.is_write = request.is_write;
    transfer.buffer = static_cast<std::byte*>(request.buffer);
    transfer.offset = request.offset;
    transfer.length = request.length;
    transfer.ended = job_ended;
    const DescriptorFacts* facts = find_facts(request.descriptor);
    transfer.uncached = facts != nullptr ? facts->uncached : nullptr;
}

/// A pipe's end is never ready for the other end's direction.
bool is_open_for(int descriptor, bool is_write) noexcept {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) != (is_write ? O_RDONLY : O_WRONLY);
}

/// The error number of a request that cannot be carried out; 0 for the others.
int refusal_of(const TransferRequest& request, bool is_stream) noexcept {
    if (request.buffer == nullptr && request.length != 0) return EFAULT;
    // Some system calls take -1 for the descriptor's own position.
    return request.offset < 0 && !is_stream ? EINVAL : 0;
}

}  // namespace

int transfer_start(const TransferRequest& request, Transfer*& started) noexcept {
    started = nullptr;
    const bool has_position = lseek(request.descriptor, 0, SEEK_CUR) >= 0;
    if (!has_position && errno == EBADF) return EBADF;
    const bool is_stream = !has_position && errno == ESPIPE;
    if (is_stream && !is_open_for(request.descriptor, request.is_write)) return EBADF;
    const TransferBackend& backend = is_stream ? streams_backend : preferred_backend();
    has_backends.store(true, std::memory_order_relaxed);
    auto* transfer = new (std::nothrow) Transfer;
    if (transfer == nullptr) return EAGAIN;
    const ScopedLock lock(engine_lock);
    fill(*transfer, request);
    transfer->is_stream = is_stream;
    transfer->backend = &backend;
    append(*transfer);
    ++transfer->references;
    transfer->error = refusal_of(request, is_stream);
    // A pipe would only answer a request for nothing once it has something.
    transfer->is_over = transfer->error != 0 || (is_stream && request.length == 0);
    if (transfer->is_over) {
        finish(*transfer);
    } else if (!must_wait(*transfer)) {
        hand_over(*transfer);
        if (transfer->state == TransferState::unattended) {
            unlink(*transfer);
            delete transfer;
            return EAGAIN;
        }
    }
    started = transfer;
    return 0;
}

namespace {

/// Waits until nothing keeps the transfer from running in its caller.
void wait_for_turn(Transfer& transfer) noexcept {
    for (;;) {
        Transfer* unattended = nullptr;
        {
            const ScopedLock lock(engine_lock);
            while (must_wait(transfer) && (unattended = take_unattended(transfer.descriptor)) == nullptr)
                wait_for_change();
            if (unattended == nullptr) {
                transfer.state = TransferState::in_caller;
                return;
            }
        }
        carry_out(*unattended);
    }
}

TransferResult start_and_collect(const TransferRequest& request) noexcept {
    Transfer* started = nullptr;
    const int error = transfer_start(request, started);
    return error != 0 ? TransferResult{0, error} : transfer_collect(started);
}

}  // namespace

TransferResult transfer_now(const TransferRequest& request, bool as_stream) noexcept {
    // A pipe takes any offset, and the start finds out whether it is one.
    if (request.offset < 0 && as_stream) return start_and_collect(request);
    if (const int error = refusal_of(request, /*is_stream*/ false); error != 0) return {0, error};
    const CancelShield shield;
    Transfer transfer;
    {
        const ScopedLock lock(engine_lock);
        fill(transfer, request);
        transfer.is_on_stack = true;
        append(transfer);
    }
    wait_for_turn(transfer);
    carry_out(transfer);
    if (transfer.error != ESPIPE || !as_stream) return {transfer.moved, transfer.error};
    return start_and_collect(request);
}

bool transfer_is_over(Transfer& transfer) noexcept {
    for (;;) {
        Transfer* unattended = nullptr;
        {
            const ScopedLock lock(engine_lock);
            if (transfer.state == TransferState::over) return true;
            unattended = take_unattended(transfer.descriptor);
            if (unattended == nullptr) return false;
        }
        carry_out(*unattended);
    }
}

void transfer_wait(Transfer& transfer) noexcept {
    for (;;) {
        Transfer* mine = nullptr;
        {
            const ScopedLock lock(engine_lock);
            while (transfer.state != TransferState::over && mine == nullptr) {
                mine = take_for_caller(transfer) ? &transfer : take_unattended(transfer.descriptor);
                if (mine == nullptr) wait_for_change();
            }
            if (mine == nullptr) return;
        }
        carry_out(*mine);
    }
}

TransferResult transfer_collect(Transfer*& transfer) noexcept {
    if (transfer == nullptr) return {0, EINVAL};
    transfer_wait(*transfer);
    const TransferResult result{transfer->moved, transfer->error};
    transfer_release(transfer);
    transfer = nullptr;
    return result;
}

void transfer_call_off(Transfer& transfer) noexcept {
    const ScopedLock lock(engine_lock);
    if (take_back(transfer)) finish_called_off(transfer);
}

void transfer_abandon(Transfer*& transfer) noexcept {
    if (transfer == nullptr) return;
    const ScopedLock lock(engine_lock);
    if (take_back(*transfer)) finish_called_off(*transfer);
    drop_reference(*transfer);
    transfer = nullptr;
}

void transfer_retain(Transfer& transfer) noexcept {
    const ScopedLock lock(engine_lock);
    ++transfer.references;
}

void transfer_release(Transfer* transfer) noexcept {
    const ScopedLock lock(engine_lock);
    if (transfer != nullptr) drop_reference(*transfer);
}

namespace {

void call_off_all(int descriptor) noexcept VELL_REQUIRES(engine_lock) {
    // Backwards, so that nothing that is held back is handed over only to be called off.
    for (Transfer *each = list_of(descriptor).last, *earlier = nullptr; each != nullptr; each = earlier) {
        earlier = each->earlier;
        if (each->descriptor == descriptor && take_back(*each)) finish_called_off(*each);
    }
}

bool has_transfers(int descriptor) noexcept VELL_REQUIRES(engine_lock) {
    const Transfer* each = list_of(descriptor).first;
    while (each != nullptr && each->descriptor != descriptor)
        each = each->later;
    return each != nullptr;
}

}  // namespace

void transfers_call_off(int descriptor) noexcept {
    const ScopedLock lock(engine_lock);
    call_off_all(descriptor);
}

void transfers_drain(int descriptor) noexcept {
    const ScopedLock lock(engine_lock);
    call_off_all(descriptor);
    while (has_transfers(descriptor))
        wait_for_change();
}

void transfers_prepare() noexcept {
    static_cast<void>(preferred_backend());
}

const char* transfer_backend_name() noexcept {
    return preferred_backend().name;
}

}  // namespace vell
