// Reads from anywhere in the file into the caller's memory, large ones in pieces that run side by side.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

#include "files/buffered_common.h"
#include "files/io_settings.h"
#include "files/transfer_table.h"
#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "vellcore/buffered_file_reader.h"

namespace vell {
namespace {

constexpr size_t k_pieces_in_flight = 10;

/// Keeps the split reads of several readers from interleaving on the disk. Outermost of all locks.
Mutex serial_read_lock;

std::atomic<uint32_t> times_taken{0};  // serial_read_lock
bool is_held_for_fork = false;         // by the forking thread, on behalf of the fork

/// A read from a slow disk holds it for long, so it is not waited for without limit. It guards an order only.
void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
    is_held_for_fork = lock_unless_stalled(times_taken, serial_read_lock);
}

void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
    if (is_held_for_fork) serial_read_lock.unlock();
}

void renew_in_child() noexcept VELL_NO_LOCK_CHECK {
    is_held_for_fork ? serial_read_lock.unlock() : static_cast<void>(new (&serial_read_lock) Mutex);
}

const ForkEntry fork_entry(ForkOrder::serial_reads, {lock_before_fork, unlock_after_fork, renew_in_child});

/// The pieces in flight, oldest first. Of their results only the end of the file matters, behind which no more is
/// asked for.
class PieceRing {
public:
    ~PieceRing() {
        while (count_ != 0)
            collect_oldest();
    }
    PieceRing() = default;
    PieceRing(const PieceRing&) = delete;
    PieceRing& operator=(const PieceRing&) = delete;

    [[nodiscard]] bool has_met_end() const noexcept { return has_met_end_; }

    bool issue(const TransferRequest& request) noexcept {
        if (count_ == k_pieces_in_flight) collect_finished();
        const size_t place = (oldest_ + count_) % k_pieces_in_flight;
        int32_t number = 0;
        if (!start_counted(request, number, pieces_[place])) return false;
        ++count_;
        return true;
    }

private:
    void collect_oldest() noexcept {
        const TransferResult result = collect_counted(pieces_[oldest_], /*requested*/ 1);
        if (result.error == 0 && result.moved == 0) has_met_end_ = true;
        oldest_ = (oldest_ + 1) % k_pieces_in_flight;
        --count_;
    }
    void collect_finished() noexcept {
        collect_oldest();
        while (count_ != 0 && (pieces_[oldest_] == nullptr || transfer_is_over(*pieces_[oldest_])))
            collect_oldest();
    }

    Transfer* pieces_[k_pieces_in_flight] = {};
    size_t oldest_ = 0;
    size_t count_ = 0;
    bool has_met_end_ = false;
};

}  // namespace
}  // namespace vell

using vell::io_settings;

/// Returns the bytes that count as read; every piece has ended when it returns.
size_t fReadBuffer::read_split(unsigned char* dest, unsigned long long position,
                               unsigned long long length) const noexcept {
    const unsigned long long piece_bytes = io_settings.split_bytes.load(std::memory_order_relaxed);
    const vell::ScopedLock lock(vell::serial_read_lock);
    vell::count_turn(vell::times_taken);
    vell::PieceRing ring;
    unsigned long long issued = 0;
    while (issued < length) {
        // Nothing is there; the bytes count all the same.
        if (ring.has_met_end() || position + issued > static_cast<uint64_t>(INT64_MAX)) return length;
        const unsigned long long bytes = std::min(piece_bytes, length - issued);
        if (!ring.issue(
                {file_handle, /*is_write*/ false, dest + issued, static_cast<int64_t>(position + issued), bytes}))
            break;
        issued += bytes;
    }
    return static_cast<size_t>(issued);
}

size_t fReadBuffer::read_raw_bytes(void* dest, unsigned long long position, size_t length, size_t capacity) noexcept {
    if (dest == nullptr) return 0;
    auto* to = static_cast<unsigned char*>(dest);
    size_t copied = 0;
    unsigned long long rest = length;
    if (cursor != nullptr && position >= block_start && position - block_start < block_length) {
        const unsigned long long inside = position - block_start;
        const unsigned char* from = buffer_of(current_slot) + inside;
        if (length <= block_length - inside) {
            std::memcpy(to, from, length);
            return length;
        }
        const unsigned long long aligned_end = vell::round_down(block_start + block_length, alignment);
        copied = static_cast<size_t>(aligned_end > position ? aligned_end - position : 0);
        rest = vell::round_up(length - copied, alignment);
        if (copied > capacity || rest > capacity - copied) return 0;
        std::memcpy(to, from, copied);
        position += copied;
        to += copied;
    }
    if (rest == 0 || position % alignment != 0 || file_handle == -1) return copied;
    const unsigned long long piece_bytes = io_settings.split_bytes.load(std::memory_order_relaxed);
    if (!io_settings.never_splits.load(std::memory_order_relaxed) && rest > 2 * piece_bytes)
        return copied + read_split(to, position, rest);
    const bool is_read =
        vell::transfer_counted({file_handle, /*is_write*/ false, to, static_cast<int64_t>(position), rest}).error == 0;
    return is_read ? copied + static_cast<size_t>(rest) : copied;
}
