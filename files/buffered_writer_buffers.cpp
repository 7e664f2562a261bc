// The buffered writer's buffers and transfers.
//
// With two buffers, A fills while B is being written by request A; a buffer in flight is never the one that fills.
// Direct writes of the caller's blocks are kept in a short list, so that none is lost sight of. Every request is
// waited for before its memory is freed or filled again.

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <typeinfo>
#include <utility>

#include "files/buffered_common.h"
#include "files/transfer_table.h"
#include "vellcore/buffered_file_writer.h"
#include "vellcore/file_io.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

namespace {

constexpr int k_memory_step_bytes = 131'072;

vell::TransferRequest write_request(int descriptor, const void* data, unsigned long long at,
                                    unsigned long long bytes) noexcept {
    return {descriptor, /*is_write*/ true, const_cast<void*>(data), static_cast<int64_t>(at), bytes};
}

}  // namespace

// --- Buffers ----------------------------------------------------------------------------------------------------

/// Lays the buffers into the locked block, [A | B], aligned where the block's spare bytes allow it.
void fWriteBuffer::carve_buffers(unsigned long long bytes, bool double_buffered) noexcept {
    const unsigned long long buffers = double_buffered ? 2 : 1;
    const auto address = reinterpret_cast<uintptr_t>(locked_block);
    const unsigned long long spare = vell::round_up(address, alignment) - address;
    const unsigned long long rounded = vell::round_up(static_cast<unsigned>(buffer_size), alignment);
    const bool fits = spare + buffers * rounded <= bytes;
    buffer_room_ = fits ? rounded : bytes / buffers;
    buffer_a = static_cast<unsigned char*>(locked_block) + (fits ? spare : 0);
    buffer_b = double_buffered ? buffer_a + buffer_room_ : nullptr;
}

void fWriteBuffer::start_empty_buffer() noexcept {
    write_pointer = buffer_a != nullptr ? buffer_a : memory_block;
    used = offset = 0;
}

void fWriteBuffer::set_buffer(int size, bool double_buffered) noexcept {
    if (size == buffer_size && (buffer_b != nullptr) == double_buffered) return;
    flush_buffers();
    reset_buffers();
    const unsigned long long bytes = std::max<unsigned long long>(static_cast<unsigned>(std::max(size, 0)), alignment);
    const unsigned long long block_bytes = (alignment + bytes) * (double_buffered ? 2 : 1);
    if (mem_alloc_locked_buffer(&locked_block, block_bytes, MEM_HEAP_AUTO) == nullptr) {
        locked_block = nullptr;
        msgwarn("WRITE BUFFER: Allocation failed (size = %d)", static_cast<int>(double_buffered ? 2 * bytes : bytes));
        return;
    }
    buffer_size = static_cast<int>(bytes);
    carve_buffers(block_bytes, double_buffered);
    start_empty_buffer();
}

void* fWriteBuffer::get_current_buffer() const noexcept {
    return buffer_a;
}

void fWriteBuffer::ensure_minimum_buffer_size(int size) noexcept {
    if (size > buffer_size) set_buffer(size, buffer_b != nullptr);
}

void fWriteBuffer::reset_buffers() noexcept {
    wait_for_buffer();
    if (locked_block != nullptr) mem_free_locked_buffer(&locked_block);
    locked_block = nullptr;
    std::free(memory_block);
    buffer_a = buffer_b = memory_block = write_pointer = nullptr;
    buffer_size = 0;
    used = offset = 0;
    buffer_room_ = 0;
}

void fWriteBuffer::set_memory_buffer(int size) noexcept {
    reset_buffers();
    if (size < 1) return;
    memory_block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(size)));
    if (memory_block == nullptr) return;
    buffer_size = size;
    write_pointer = memory_block;
}

void* fWriteBuffer::get_buffer_used(int& bytes_used) noexcept {
    bytes_used = static_cast<int>(std::min<unsigned long long>(used, INT_MAX));
    void* block = memory_block;
    if (block != nullptr) {
        memory_block = write_pointer = nullptr;
        buffer_size = 0;
        used = offset = 0;
    }
    return block;
}

// --- Transfers --------------------------------------------------------------------------------------------------

void fWriteBuffer::count_result(vell::Transfer*& transfer) noexcept {
    if (vell::collect_counted(transfer, 0).error != 0) ++error_count;
}

void fWriteBuffer::wait_for_buffer() noexcept {
    if (transfer_a_ != nullptr) count_result(transfer_a_);
    request_a = -1;
}

/// Collects direct writes, oldest first, until at most `most_left` are in flight.
void fWriteBuffer::wait_for_direct(int most_left) noexcept {
    while (direct_count_ > most_left) {
        count_result(direct_[0]);
        std::copy(direct_ + 1, direct_ + direct_count_, direct_);
        direct_[--direct_count_] = nullptr;
    }
    if (direct_count_ == 0) request_b = -1;
}

/// Collects what has ended.
void fWriteBuffer::poll_requests() noexcept {
    if (transfer_a_ == nullptr || vell::transfer_is_over(*transfer_a_)) wait_for_buffer();
    while (direct_count_ != 0 && vell::transfer_is_over(*direct_[0]))
        wait_for_direct(direct_count_ - 1);
    if (direct_count_ == 0) request_b = -1;
}

unsigned long long fWriteBuffer::rounded_used() const noexcept {
    return vell::round_up(used, alignment);
}

/// Brings the file's bytes into [from, to) of the buffer, zeros where it has none. False when they cannot be read.
bool fWriteBuffer::fill_from_file(unsigned long long from, unsigned long long to) noexcept {
    unsigned char* const target = write_pointer - offset + from;
    const size_t bytes = static_cast<size_t>(to - from);
    const unsigned long long position = buffer_file_offset + from;
    // Only what a caller's descriptor brought along can lie past what was written here.
    unsigned long long known_end = file_size;
    if (file_handle != -1 && !close_on_close) {
        struct stat facts {};
        if (fstat(file_handle, &facts) == 0)
            known_end = std::max(known_end, static_cast<unsigned long long>(facts.st_size));
    }
    size_t filled = 0;
    if (file_handle != -1 && position < known_end) {
        const vell::TransferResult result = vell::transfer_now(
            {file_handle, /*is_write*/ false, target, static_cast<int64_t>(position), bytes}, /*as_stream*/ false);
        if (result.error != 0) return false;
        filled = static_cast<size_t>(result.moved);
    }
    std::memset(target + filled, 0, bytes - filled);
    return true;
}

/// Notes a write that was issued: data to the file offset `data_bytes` on, `file_bytes` with its rounding.
void fWriteBuffer::advance(unsigned long long data_bytes, unsigned long long file_bytes) noexcept {
    ++write_count;
    file_size = std::max(file_size, buffer_file_offset + data_bytes);
    buffer_file_offset += file_bytes;
}

/// Starts to write the buffer as request A. The one before it is waited for only then, so that the disk has its next
/// block at hand when it ends one.
bool fWriteBuffer::begin_buffer_write(unsigned long long bytes) noexcept {
    int32_t number = -1;
    vell::Transfer* next = nullptr;
    const bool is_started =
        vell::start_counted(write_request(file_handle, buffer_a, buffer_file_offset, bytes), number, next);
    wait_for_buffer();
    transfer_a_ = next;
    request_a = next != nullptr ? number : -1;
    return is_started;
}

void fWriteBuffer::flush_buffers() noexcept {
    if (file_handle == -1) return;
    wait_for_buffer();
    wait_for_direct(0);
    if (used == 0) return;
    if (buffer_a == nullptr) {  // a memory block beside an open file is not for that file
        ++error_count;
        start_empty_buffer();
        return;
    }
    const unsigned long long rounded = rounded_used();
    // Where the file's own bytes cannot be had, none are put in their place.
    const unsigned long long bytes = fill_from_file(used, rounded) ? rounded : used;
    if (vell::transfer_counted(write_request(file_handle, buffer_a, buffer_file_offset, bytes)).error != 0)
        ++error_count;
    advance(used, rounded);
    start_empty_buffer();
}

/// Writes out the first buffer, which holds the whole file, without waiting for the write's end where there is another
/// buffer to go on in.
bool fWriteBuffer::begin_early_write() noexcept {
    const unsigned long long rounded = rounded_used();
    const unsigned long long bytes = fill_from_file(used, rounded) ? rounded : used;
    if (!begin_buffer_write(bytes)) {
        ++error_count;
        return false;
    }
    advance(used, rounded);
    if (buffer_b != nullptr) {
        std::swap(buffer_a, buffer_b);
    } else {
        wait_for_buffer();
    }
    start_empty_buffer();
    return true;
}

size_t fWriteBuffer::add_write_buffer(const void* data, size_t length) noexcept {
    if (file_handle == -1 || data == nullptr || length == 0) return 0;
    poll_requests();
    if (holds_whole_file() && !begin_early_write()) return 0;
    const unsigned long long rounded = vell::round_up(length, alignment);
    if (rounded != length) msgwarn("fWriteBuffer: Write buffer not aligned");
    wait_for_direct(k_most_direct - 1);
    vell::Transfer* transfer = nullptr;
    if (!vell::start_counted(write_request(file_handle, data, buffer_file_offset, rounded), request_b, transfer)) {
        request_b = -1;
        ++error_count;
        return 0;
    }
    if (transfer != nullptr) direct_[direct_count_++] = transfer;
    if (direct_count_ == 0) request_b = -1;
    advance(length, rounded);
    return length;
}

// --- Filling the buffer -----------------------------------------------------------------------------------------

bool fWriteBuffer::grow_memory() noexcept {
    if (buffer_size > INT_MAX - k_memory_step_bytes) return false;
    void* grown = std::realloc(memory_block, static_cast<size_t>(buffer_size) + k_memory_step_bytes);
    if (grown == nullptr) return false;
    memory_block = static_cast<unsigned char*>(grown);
    write_pointer = memory_block + used;
    buffer_size += k_memory_step_bytes;
    return true;
}

void fWriteBuffer::write_full_buffer() noexcept {
    const auto bytes = static_cast<unsigned>(buffer_size);
    if (buffer_b != nullptr) {
        if (!begin_buffer_write(bytes)) ++error_count;
        std::swap(buffer_a, buffer_b);
    } else if (vell::transfer_counted(write_request(file_handle, buffer_a, buffer_file_offset, bytes)).error != 0) {
        ++error_count;
    }
    advance(bytes, bytes);
    start_empty_buffer();
}

/// Called with a full buffer. False when no room can be made.
bool fWriteBuffer::make_room() noexcept {
    if (file_handle == -1) return (memory_block != nullptr || buffer_a == nullptr) && grow_memory();
    if (buffer_a == nullptr) {
        ++error_count;
        return false;
    }
    write_full_buffer();
    return true;
}

/// Puts as much into the buffer as fits. Returns the bytes taken.
size_t fWriteBuffer::store(const unsigned char* data, unsigned long long bytes) noexcept {
    const unsigned long long room = static_cast<unsigned>(buffer_size) - offset;
    const size_t taken = static_cast<size_t>(std::min(bytes, room));
    if (taken == 0) return 0;
    std::memcpy(write_pointer, data, taken);
    write_pointer += taken;
    offset += taken;
    used = std::max(used, offset);
    return taken;
}

size_t fWriteBuffer::write_file(const void* data, size_t size, size_t count) noexcept {
    const unsigned long long total = vell::total_bytes(size, count);
    if (data == nullptr || total == 0) return 0;
    const auto* from = static_cast<const unsigned char*>(data);
    // A derived class sees the rest of every write; our own goes round here instead of nesting thousands of calls.
    const bool is_ours = typeid(*this) == typeid(fWriteBuffer);
    size_t taken = 0;
    for (;;) {
        taken += store(from + taken, total - taken);
        const bool is_full = offset >= static_cast<unsigned>(buffer_size);
        if (!is_full || !make_room() || taken == total) return taken;
        if (!is_ours) return taken + write_file(from + taken, static_cast<size_t>(total - taken), 1);
    }
}
