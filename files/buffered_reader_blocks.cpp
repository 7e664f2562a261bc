// The buffered reader's blocks: buffers, the ring of reads in flight, and which block comes next.
//
// The slots from next_slot on are in flight in the order of their offsets; then come free slots, then the current
// one. The ring is filled in that order, so that blocks are collected in the order of the file.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "files/buffered_common.h"
#include "files/transfer_table.h"
#include "vellcore/buffered_file_reader.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

/// `valid` bytes of file data, asked for as `issued` bytes so that the transfer is aligned; 0: nothing is left.
struct fReadBuffer::Request {
    unsigned long long valid;
    unsigned long long issued;
};

fReadBuffer::Request fReadBuffer::request_at(unsigned long long position, unsigned long long nominal) const noexcept {
    if (position >= file_size) return {0, 0};
    const unsigned long long left = file_size - position;
    if (nominal <= left) return {nominal, nominal};
    return {left, std::min<unsigned long long>(vell::round_up(left, alignment), allocated_size)};
}

unsigned char* fReadBuffer::buffer_of(int slot) const noexcept {
    return static_cast<unsigned char*>(slots[slot].data);
}

int fReadBuffer::slot_after(int slot) const noexcept {
    return slot + 1 < buffer_count ? slot + 1 : 0;
}

// --- Buffers ----------------------------------------------------------------------------------------------------

bool fReadBuffer::ensure_buffers() noexcept {
    const unsigned long long wanted = vell::round_up(std::max(first_block_size, block_size), alignment);
    if (allocated_size >= wanted && buffers_owned != 0) return true;
    end_requests();
    free_buffers();
    forget_memory();
    // What was read ahead is gone with the buffers.
    read_ahead_position = next_read_position;
    current_slot = 0;
    next_slot = buffer_count >= 2 ? 1 : 0;
    for (int slot = 0; slot < buffer_count; ++slot) {
        slots[slot] = {os_alloc(wanted, 0), -1, 0};
        if (slots[slot].data == nullptr) {
            msgerror("FileBuffer: Failed to allocate buffer space (%.2fKb/%d)", static_cast<double>(wanted) / 1024.0,
                     slot);
            // With no buffer at all the next call tries again with the count that was asked for.
            if (slot != 0) buffer_count = slot;
            next_slot = buffer_count >= 2 ? 1 : 0;
            return false;
        }
        buffers_owned = 1;
        allocated_size = wanted;
    }
    return true;
}

void fReadBuffer::free_buffers() noexcept {
    if (buffers_owned == 1) {
        for (int slot = static_cast<int>(std::size(slots)) - 1; slot >= 0; --slot) {
            if (slots[slot].data != nullptr) os_free(slots[slot].data);
            slots[slot].data = nullptr;
        }
        block_length = 0;
        cursor = nullptr;
    }
    buffers_owned = 0;
    allocated_size = 0;
}

void fReadBuffer::forget_memory() noexcept {
    if (!is_memory_) return;
    is_memory_ = false;
    slots[0].data = nullptr;
    block_length = 0;
    cursor = nullptr;
}

/// Calls off what was not begun and waits for the rest: nothing writes to the buffers afterwards.
void fReadBuffer::end_requests() noexcept {
    for (vell::Transfer* transfer : transfers_) {
        if (transfer != nullptr) vell::transfer_call_off(*transfer);
    }
    for (size_t slot = 0; slot < std::size(slots); ++slot) {
        if (transfers_[slot] != nullptr) vell::transfer_collect(transfers_[slot]);
        slots[slot].request = -1;
        slots[slot].valid_length = 0;
    }
    is_prefetched_ = false;
}

// --- Reads in flight --------------------------------------------------------------------------------------------

/// Begins to read the next block ahead into a slot. False when nothing is left or the read cannot be issued.
bool fReadBuffer::issue(int slot) noexcept {
    const Request request = request_at(read_ahead_position, block_size);
    if (request.issued == 0) return false;
    int32_t number = -1;
    const bool is_issued = vell::start_counted(
        {file_handle, /*is_write*/ false, slots[slot].data, static_cast<int64_t>(read_ahead_position), request.issued},
        number, transfers_[slot]);
    if (!is_issued) return false;
    slots[slot].request = number;
    slots[slot].valid_length = request.valid;
    issued_[slot] = request.issued;
    read_ahead_position += request.issued;
    return true;
}

/// Fills the free ones among the `most_slots` slots from next_slot on.
void fReadBuffer::read_ahead(int most_slots) noexcept {
    int slot = next_slot;
    for (int i = 0; i < most_slots; ++i, slot = slot_after(slot)) {
        if (slots[slot].valid_length == 0 && !issue(slot)) return;
    }
}

/// Zeros what the file did not deliver, so that neither old data nor foreign memory gets into copies and digests.
void fReadBuffer::settle_padding(int slot, unsigned long long moved, unsigned long long valid,
                                 unsigned long long issued) noexcept {
    // The file is shorter than it was when it was opened.
    if (moved < valid) has_failed_block_ = true;
    const unsigned long long from = std::min(moved, valid);
    std::memset(buffer_of(slot) + from, 0, static_cast<size_t>(issued - from));
}

/// Waits for the slot's read and makes it the current block. False when it failed.
bool fReadBuffer::collect(int slot) noexcept {
    const vell::TransferResult result = vell::collect_counted(transfers_[slot], issued_[slot]);
    block_length = slots[slot].valid_length;
    slots[slot].valid_length = 0;
    slots[slot].request = -1;
    if (result.error != 0) {
        is_broken_ = has_failed_block_ = true;
        return false;
    }
    settle_padding(slot, result.moved, block_length, issued_[slot]);
    current_slot = slot;
    next_slot = slot_after(slot);
    return true;
}

void fReadBuffer::prefetch_first_block() noexcept {
    is_prefetched_ = issue(0);
}

// --- The next block ---------------------------------------------------------------------------------------------

/// The block that open_file asked for. Positioning may have made it useless.
bool fReadBuffer::take_prefetched() noexcept {
    is_prefetched_ = false;
    return collect(0);
}

bool fReadBuffer::take_read_ahead() noexcept {
    // The block just left is free again and becomes the last of the ring.
    if (sequential) read_ahead(buffer_count);
    return collect(next_slot);
}

/// Fills the whole ring from the start of the file. False, with nothing in flight, when no read could be issued.
bool fReadBuffer::take_first_fill() noexcept {
    read_ahead_position = next_read_position;
    current_slot = buffer_count - 1;
    next_slot = 0;
    read_ahead(buffer_count);
    if (slots[0].valid_length != 0) return collect(0);
    current_slot = 0;
    next_slot = 1;
    return read_synchronously();
}

bool fReadBuffer::read_synchronously() noexcept {
    const Request request = request_at(next_read_position, next_read_position == 0 ? first_block_size : block_size);
    if (request.issued == 0) return false;
    const vell::TransferResult result =
        vell::transfer_counted({file_handle, /*is_write*/ false, slots[current_slot].data,
                                static_cast<int64_t>(next_read_position), request.issued});
    if (result.error != 0) {
        is_broken_ = has_failed_block_ = true;
        return false;
    }
    settle_padding(current_slot, result.moved, request.valid, request.issued);
    // Kept: here the length is the rounded one.
    block_length = request.issued;
    read_ahead_position = next_read_position + request.issued;
    return true;
}

/// The next block of a file that does not tell its size. A transfer is only short at the end of the file.
bool fReadBuffer::read_until_end() noexcept {
    const unsigned long long nominal = next_read_position == 0 ? first_block_size : block_size;
    const unsigned long long wanted = std::min<unsigned long long>(vell::round_up(nominal, alignment), allocated_size);
    const vell::TransferResult result = vell::transfer_counted(
        {file_handle, /*is_write*/ false, slots[current_slot].data, static_cast<int64_t>(next_read_position), wanted});
    if (result.error != 0) {
        is_broken_ = has_failed_block_ = true;
        return false;
    }
    block_length = result.moved;
    has_unknown_size_ = block_length == wanted;
    read_ahead_position = next_read_position + block_length;
    file_size = std::max(file_size, read_ahead_position);
    settle_padding(current_slot, block_length, block_length, wanted);
    return block_length != 0;
}

bool fReadBuffer::fetch() noexcept {
    if (is_prefetched_ && next_read_position == 0) return take_prefetched();
    if (is_prefetched_) end_requests();
    if (sequential) slots[current_slot].valid_length = 0;
    if (has_unknown_size_) return read_until_end();
    if (slots[next_slot].valid_length != 0) return take_read_ahead();
    if (buffer_count >= 2 && next_read_position == 0 && first_block_size == block_size) return take_first_fill();
    return read_synchronously();
}

void fReadBuffer::begin_block() noexcept {
    block_start = next_read_position;
    next_read_position += block_length;
    // A block made for a smaller alignment may end before the position that was set.
    const unsigned long long skipped = std::min(skip, block_length);
    cursor = buffer_of(current_slot) + skipped;
    skip -= skipped;
}

/// Returns 0, the length of no block.
unsigned long long fReadBuffer::drop_block() noexcept {
    block_length = 0;
    cursor = nullptr;
    skip = 0;
    return 0;
}

unsigned long long fReadBuffer::getNextBlock() noexcept {
    if (file_handle == -1 || is_broken_) return drop_block();
    ensure_buffers();
    if (slots[0].data == nullptr || !fetch()) return drop_block();
    begin_block();
    if (buffer_count >= 2 && sequential) read_ahead(buffer_count - 1);
    return block_length;
}
