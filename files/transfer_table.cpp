// The table of 96 transfers, the transfer numbers and the byte counters. Everything is guarded by table_lock, which
// is never held while a transfer is waited for or retried. The engine's lock is taken under it.
//
// The table serves only callers of the raw asynchronous calls, who know its strict turn. Readers and writers start
// their transfers past it: a paused reader's uncollected block would otherwise bring the whole process to a halt as
// soon as the turn reached its slot.

#include "files/transfer_table.h"

#include <cerrno>
#include <ctime>
#include <new>

#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr int k_slots = 96;
constexpr int k_start_attempts = 102;  // a refused start is repeated 101 times
constexpr long k_retry_pause_ns = 10'000'000;

Mutex table_lock;
Condition slot_freed;

struct Table {
    async_transfer slots[k_slots] VELL_GUARDED_BY(table_lock) = {};
    int next_slot VELL_GUARDED_BY(table_lock) = 0;  // whose turn it is
    int32_t last_number VELL_GUARDED_BY(table_lock) = 0;
    uint64_t read_bytes VELL_GUARDED_BY(table_lock) = 0;  // requested since the counters were fetched
    uint64_t written_bytes VELL_GUARDED_BY(table_lock) = 0;
    bool is_initialised VELL_GUARDED_BY(table_lock) = false;
};
Table table;

Transfer* transfer_of(const async_transfer& slot) noexcept {
    return static_cast<Transfer*>(slot.request);
}

void free_slot(async_transfer& slot) noexcept VELL_REQUIRES(table_lock) {
    Transfer* transfer = transfer_of(slot);
    transfer_abandon(transfer);
    slot = async_transfer{};
    slot_freed.broadcast();
}

async_transfer* find_slot(int descriptor, int32_t number) noexcept VELL_REQUIRES(table_lock) {
    for (async_transfer& slot : table.slots) {
        if (slot.descriptor == descriptor && slot.handle == number && descriptor != 0) return &slot;
    }
    return nullptr;
}

int32_t take_number(const TransferRequest& request) noexcept VELL_REQUIRES(table_lock) {
    table.last_number = number_after(table.last_number);
    (request.is_write ? table.written_bytes : table.read_bytes) += request.length;
    return table.last_number;
}

void pause_before_retry() noexcept {
    timespec pause{0, k_retry_pause_ns};
    nanosleep(&pause, nullptr);
}

const char* text_of(int error) noexcept {
    errno = error;
    return os_errormsg();
}

void log_refused_start(bool is_write, int error) noexcept {
    msgerror("AIO(%d%c): %d - '%s'", is_write ? 1 : 3, error == EAGAIN ? 'b' : 'a', error, text_of(error));
}

/// What stands in for a transfer that could not be started. True when every byte was moved.
bool carry_out_instead(const TransferRequest& request, int start_error) noexcept {
    log_refused_start(request.is_write, start_error);
    const TransferResult result = transfer_now(request, /*as_stream*/ false);
    if (result.error == 0 && result.moved == request.length) return true;
    msgerror("AIO(%dc): %d - '%s'", request.is_write ? 1 : 3, result.error, text_of(result.error));
    return false;
}

bool log_failed(const TransferResult& result) noexcept {
    if (result.error == 0) return false;
    msgerror("AIO(5): %s", text_of(result.error));
    return true;
}

int start_patiently(const TransferRequest& request, Transfer*& transfer) noexcept {
    const CancelShield shield;
    int error = transfer_start(request, transfer);
    for (int attempt = 1; error == EAGAIN && attempt < k_start_attempts; ++attempt) {
        pause_before_retry();
        error = transfer_start(request, transfer);
    }
    return error;
}

/// Fills the slot whose turn it is and starts its transfer. 0 or the error number of the refused start, which leaves
/// the slot reserved.
int open_slot(const TransferRequest& request, int32_t& number) noexcept {
    const ScopedLock lock(table_lock);
    async_transfer& slot = *io_get_slot();
    number = take_number(request);
    slot.descriptor = request.descriptor;
    slot.handle = number;
    slot.length = request.length;
    slot.done_synchronously = false;
    Transfer* transfer = nullptr;
    const int error = transfer_start(request, transfer);
    slot.request = transfer;
    return error;
}

/// Ends the start of a transfer whose slot was reserved. False when the slot was freed meanwhile.
bool settle_slot(const TransferRequest& request, int32_t number, Transfer* transfer, bool has_failed) noexcept {
    const ScopedLock lock(table_lock);
    async_transfer* slot = find_slot(request.descriptor, number);
    if (slot == nullptr || has_failed) {
        transfer_abandon(transfer);
        if (slot != nullptr) free_slot(*slot);
        return false;
    }
    slot->request = transfer;
    slot->done_synchronously = transfer == nullptr;
    slot_freed.broadcast();  // for those who wait for this start to be settled
    return true;
}

bool start_in_table(const TransferRequest& request, int* handle) noexcept {
    transfers_prepare();
    int error = open_slot(request, *handle);
    if (error == 0) return true;
    const int32_t number = *handle;
    Transfer* transfer = nullptr;
    if (error == EAGAIN) error = start_patiently(request, transfer);
    const bool has_failed = error != 0 && !carry_out_instead(request, error);
    return settle_slot(request, number, transfer, has_failed);
}

bool transfer_without_handle(const TransferRequest& request) noexcept {
    const TransferResult result = transfer_now(request, /*as_stream*/ false);
    if (result.error == 0 && result.moved == request.length) return true;
    msgerror("AIO(%d): %s", request.is_write ? 2 : 4, text_of(result.error));
    return false;
}

/// Descriptor 0 marks a free slot, so no slot can hold its transfers.
bool transfer_of_standard_input(const TransferRequest& request, int* handle) noexcept {
    *handle = number_transfer(request);
    return !log_failed(transfer_now(request, /*as_stream*/ true));
}

bool start(const TransferRequest& request, int* handle) noexcept {
    if (handle == nullptr) return transfer_without_handle(request);
    return request.descriptor == 0 ? transfer_of_standard_input(request, handle) : start_in_table(request, handle);
}

/// Frees the slot of a transfer that is over and returns its result.
TransferResult close_slot(async_transfer& slot) noexcept VELL_REQUIRES(table_lock) {
    Transfer* transfer = transfer_of(slot);
    slot.request = nullptr;
    const TransferResult result = transfer != nullptr ? transfer_collect(transfer) : TransferResult{slot.length, 0};
    free_slot(slot);
    return result;
}

// --- fork -------------------------------------------------------------------------------------------------------

/// A slot that another thread was still starting is free in the child: nobody there would ever settle it.
void free_unsettled_in_child() noexcept VELL_NO_LOCK_CHECK {
    for (async_transfer& slot : table.slots)
        if (slot.descriptor != 0 && slot.request == nullptr && !slot.done_synchronously) slot = async_transfer{};
    new (&slot_freed) Condition;
}

const ForkEntry fork_entry(ForkOrder::transfer_table, table_lock, free_unsettled_in_child);

/// A transfer of the table on its way to completion.
struct Completion {
    Transfer* transfer = nullptr;  // retained; null when there is nothing to wait for
    bool is_known = false;         // there is such a slot
    bool is_done = false;          // its transfer was done synchronously; the slot is free now
};

Completion begin_completion(int descriptor, int32_t number, bool wait) noexcept {
    const ScopedLock lock(table_lock);
    async_transfer* slot = find_slot(descriptor, number);
    // A slot with neither a transfer nor a result is still being started by another thread.
    while (wait && slot != nullptr && slot->request == nullptr && !slot->done_synchronously) {
        slot_freed.wait(table_lock);
        slot = find_slot(descriptor, number);
    }
    Completion found;
    if (slot == nullptr) return found;
    found.is_known = true;
    found.is_done = slot->done_synchronously;
    found.transfer = transfer_of(*slot);
    if (found.is_done) free_slot(*slot);
    if (found.transfer != nullptr) transfer_retain(*found.transfer);
    return found;
}

/// The slot may have been freed and used again while the transfer was waited for.
int32_t end_completion(int descriptor, int32_t number, const Transfer& transfer) noexcept {
    TransferResult result{0, 0};
    {
        const ScopedLock lock(table_lock);
        async_transfer* slot = find_slot(descriptor, number);
        if (slot == nullptr || transfer_of(*slot) != &transfer) return 1;
        result = close_slot(*slot);
    }
    return log_failed(result) ? -1 : 1;
}

}  // namespace

int32_t number_transfer(const TransferRequest& request) noexcept {
    const ScopedLock lock(table_lock);
    return take_number(request);
}

bool start_counted(const TransferRequest& request, int32_t& number, Transfer*& transfer) noexcept {
    number = number_transfer(request);
    const int error = start_patiently(request, transfer);
    return error == 0 || carry_out_instead(request, error);
}

TransferResult collect_counted(Transfer*& transfer, uint64_t requested) noexcept {
    if (transfer == nullptr) return {requested, 0};
    const TransferResult result = transfer_collect(transfer);
    log_failed(result);
    return result;
}

TransferResult transfer_counted(const TransferRequest& request) noexcept {
    number_transfer(request);
    const TransferResult result = transfer_now(request, /*as_stream*/ true);
    log_failed(result);
    return result;
}

void free_slots(int descriptor) noexcept {
    const ScopedLock lock(table_lock);
    for (async_transfer& slot : table.slots) {
        if (slot.descriptor == descriptor && descriptor != 0) free_slot(slot);
    }
}

}  // namespace vell

using vell::table;
using vell::table_lock;

// Slots that were used before the first start are freed as well: a table begins empty.
void vl_init_io64() noexcept {
    const vell::ScopedLock lock(table_lock);
    if (table.is_initialised) return;
    for (async_transfer& slot : table.slots) {
        if (slot.descriptor != 0) vell::free_slot(slot);
    }
    table.is_initialised = true;
}

void vl_close_io64() noexcept {
    const vell::ScopedLock lock(table_lock);
    table.is_initialised = false;
}

async_transfer* io_get_slot() noexcept VELL_NO_LOCK_CHECK {
    async_transfer& slot = table.slots[table.next_slot];
    table.next_slot = (table.next_slot + 1) % vell::k_slots;
    while (slot.descriptor != 0)
        vell::slot_freed.wait(table_lock);
    return &slot;
}

bool io_read_async64(int descriptor, void* buffer, long long offset, unsigned long long length, int* handle) noexcept {
    const vell::TransferRequest request{descriptor, /*is_write*/ false, buffer, offset, length};
    return vell::start(request, handle);
}

bool io_write_async64(int descriptor, const void* buffer, long long offset, unsigned long long length,
                      int* handle) noexcept {
    const vell::TransferRequest request{descriptor, /*is_write*/ true, const_cast<void*>(buffer), offset, length};
    return vell::start(request, handle);
}

int io_complete64(int descriptor, int* handle, bool wait) noexcept {
    if (handle == nullptr) return -1;
    const int32_t number = *handle;
    const vell::Completion found = vell::begin_completion(descriptor, number, wait);
    if (!found.is_known || found.is_done) return 1;
    if (found.transfer == nullptr) return 0;
    if (wait) vell::transfer_wait(*found.transfer);
    const bool is_over = wait || vell::transfer_is_over(*found.transfer);
    const int result = is_over ? vell::end_completion(descriptor, number, *found.transfer) : 0;
    vell::transfer_release(found.transfer);
    return result;
}

void io_flush64(int descriptor) noexcept {
    vell::transfers_call_off(descriptor);
    vell::free_slots(descriptor);
}

void io_get_counters(unsigned long long* read_total, unsigned long long* write_total) noexcept {
    const vell::ScopedLock lock(table_lock);
    if (read_total != nullptr) *read_total = table.read_bytes;
    if (write_total != nullptr) *write_total = table.written_bytes;
    table.read_bytes = table.written_bytes = 0;
}

void io_inc_counters(unsigned long long read_bytes, unsigned long long write_bytes) noexcept {
    const vell::ScopedLock lock(table_lock);
    table.read_bytes += read_bytes;
    table.written_bytes += write_bytes;
}
