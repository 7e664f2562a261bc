// The buffered reader's files, positions and typed reads. The blocks themselves come from buffered_reader_blocks.cpp.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "files/buffered_common.h"
#include "files/io_settings.h"
#include "platform/posix/file_calls.h"
#include "vellcore/buffered_file_reader.h"
#include "vellcore/file_io.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

using vell::io_settings;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(sizeof(fReadBuffer::buffer_slot) == 24);
static_assert(offsetof(fReadBuffer, file_name) == 8 && offsetof(fReadBuffer, file_handle) == 1032);
static_assert(offsetof(fReadBuffer, next_read_position) == 1040 && offsetof(fReadBuffer, block_start) == 1064);
static_assert(offsetof(fReadBuffer, alignment) == 1080 && offsetof(fReadBuffer, slots) == 1104);
static_assert(offsetof(fReadBuffer, buffer_count) == 1296 && offsetof(fReadBuffer, skip) == 1312);
static_assert(offsetof(fReadBuffer, cursor) == 1336 && offsetof(fReadBuffer, swap) == 1344);
#pragma GCC diagnostic pop

namespace {

/// True for a regular file. One that tells a size of 0 may have content all the same.
bool is_regular(int descriptor) noexcept {
    struct stat facts {};
    return vell::file_calls.fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
}

}  // namespace

fReadBuffer::fReadBuffer(int handle) noexcept
    : file_handle(handle),
      close_on_close(handle == -1),
      alignment(io_settings.alignment.load(std::memory_order_relaxed)),
      first_block_size(alignment) {
    for (buffer_slot& slot : slots)
        slot = {nullptr, -1, 0};
    if (handle == -1) return;
    file_size = io_get_filesize64(handle, nullptr);
    if (file_size == ~0ULL) file_size = 0;
    failed = file_size == 0;
    has_unknown_size_ = file_size == 0 && is_regular(handle);
}

fReadBuffer::~fReadBuffer() {
    close_file();
    free_buffers();
}

bool fReadBuffer::open_file(const char* name, bool shared, bool prefetch, bool direct) noexcept {
    close_file();
    has_failed_block_ = false;
    failed = true;
    const bool is_uncached = direct && io_settings.direct_io.load(std::memory_order_relaxed);
    const int opened =
        io_open64(name, O_RDONLY, is_uncached, shared, io_settings.overlapped_io.load(std::memory_order_relaxed));
    if (opened < 1) return false;
    file_size = io_get_filesize64(opened, name);
    if (file_size == ~0ULL) {
        file_size = 0;
        io_close64(opened);
        return false;
    }
    file_handle = opened;
    has_unknown_size_ = file_size == 0 && is_regular(opened);
    vell::store_path(file_name, name);
    failed = false;
    close_on_close = true;
    alignment = is_uncached ? io_settings.alignment.load(std::memory_order_relaxed)
                            : static_cast<unsigned long long>(mem_pagesize());
    if (prefetch && ensure_buffers()) prefetch_first_block();
    return true;
}

bool fReadBuffer::close_file() noexcept {
    end_requests();
    forget_memory();
    if (close_on_close && file_handle != -1) io_close64(file_handle);
    file_handle = -1;
    skip = next_read_position = read_ahead_position = file_size = block_start = block_length = 0;
    cursor = nullptr;
    current_slot = 0;
    next_slot = buffer_count >= 2 ? 1 : 0;
    is_broken_ = has_unknown_size_ = false;
    return true;
}

void fReadBuffer::cfg_buffers(int count, int new_block_size, int new_first_block_size) noexcept {
    const bool has_buffers = buffers_owned != 0 && allocated_size != 0;
    if (has_buffers && count != buffer_count) return;
    buffer_count = std::clamp(count, 1, static_cast<int>(std::size(slots)));
    if (!has_buffers) next_slot = buffer_count >= 2 ? 1 : 0;
    const auto smallest = static_cast<long long>(alignment);
    if (new_first_block_size >= 1)
        first_block_size = static_cast<unsigned long long>(std::max<long long>(smallest, new_first_block_size));
    block_size = static_cast<unsigned long long>(std::max<long long>(smallest, new_block_size));
}

void fReadBuffer::set_memory_buffer(const void* data, size_t length) noexcept {
    end_requests();
    free_buffers();
    read_ahead_position = next_read_position;
    current_slot = 0;
    next_slot = buffer_count >= 2 ? 1 : 0;
    slots[0].data = const_cast<void*>(data);
    block_length = data != nullptr ? length : 0;
    cursor = static_cast<const unsigned char*>(data);
    is_memory_ = true;
}

void fReadBuffer::set_xfer_breakvalue(int value) noexcept {
    constexpr int k_smallest_piece = 65537;
    if (value >= k_smallest_piece)
        io_settings.split_bytes.store(static_cast<uint64_t>(value), std::memory_order_relaxed);
    io_settings.never_splits.store(value < k_smallest_piece, std::memory_order_relaxed);
}

size_t fReadBuffer::unread() const noexcept {
    if (cursor == nullptr) return 0;
    return static_cast<size_t>(block_length) - static_cast<size_t>(cursor - buffer_of(current_slot));
}

/// Moves `bytes` forward, into `dest` unless it is null. Returns how far it got.
size_t fReadBuffer::take(void* dest, unsigned long long bytes) noexcept {
    size_t taken = 0;
    while (taken < bytes) {
        if (unread() == 0 && getNextBlock() == 0) break;
        const size_t part = static_cast<size_t>(std::min<unsigned long long>(unread(), bytes - taken));
        if (dest != nullptr) std::memcpy(static_cast<unsigned char*>(dest) + taken, cursor, part);
        cursor += part;
        taken += part;
    }
    return taken;
}

size_t fReadBuffer::read_file(void* dest, size_t size, size_t count) noexcept {
    return dest != nullptr ? take(dest, vell::total_bytes(size, count)) : 0;
}

size_t fReadBuffer::skip_file(size_t size, size_t count) noexcept {
    return take(nullptr, vell::total_bytes(size, count));
}

float fReadBuffer::read_float() noexcept {
    uint32_t bits = 0;
    if (take(&bits, sizeof bits) != sizeof bits) return -1.0F;
    // The bytes stand in memory as in the file, which is their value on a little-endian machine.
    if (swap) bits = __builtin_bswap32(bits);
    const float value = std::bit_cast<float>(bits);
    return std::isfinite(value) ? value : 0.0F;
}

bool fReadBuffer::set_position(unsigned long long position) noexcept {
    if (cursor != nullptr && position >= block_start && position - block_start < block_length) {
        cursor = buffer_of(current_slot) + (position - block_start);
        return true;
    }
    if (is_memory_ && file_handle == -1) {
        if (position != block_length || cursor == nullptr) return false;
        cursor = buffer_of(current_slot) + block_length;
        return true;
    }
    if (file_size != 0 && position > file_size) return false;
    if (buffer_count == 1) {
        drop_block();
        is_broken_ = false;
        next_read_position = vell::round_down(position, alignment);
        skip = position - next_read_position;
        return true;
    }
    const unsigned long long end = next_read_position;
    if (position < end) {
        msgerror("FileBuffer: Failed to position backwards...");
        return false;
    }
    drop_block();
    if (position > end) skip_file(static_cast<size_t>(position - end), 1);
    return true;
}
