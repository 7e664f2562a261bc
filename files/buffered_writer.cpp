// The buffered writer's files, positions and small values. Buffers and transfers are in buffered_writer_buffers.cpp.

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>

#include "files/buffered_common.h"
#include "files/io_settings.h"
#include "files/new_file.h"
#include "files/transfer_table.h"
#include "platform/lock.h"
#include "platform/posix/durable_file.h"
#include "vellcore/buffered_file_writer.h"
#include "vellcore/file_io.h"
#include "vellcore/file_operations.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

using vell::io_settings;

namespace {
constexpr int k_usual_buffer_bytes = 1'048'576;
}

fWriteBuffer::fWriteBuffer(int handle, bool allocate) noexcept
    : file_handle(handle),
      close_on_close(handle == -1),
      alignment(io_settings.alignment.load(std::memory_order_relaxed)),
      mutex(mp_new_mutex(0)) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(offsetof(fWriteBuffer, file_name) == 8 && offsetof(fWriteBuffer, file_handle) == 1032);
    static_assert(offsetof(fWriteBuffer, buffer_file_offset) == 1040 && offsetof(fWriteBuffer, request_a) == 1056);
    static_assert(offsetof(fWriteBuffer, buffer_a) == 1072 && offsetof(fWriteBuffer, locked_block) == 1088);
    static_assert(offsetof(fWriteBuffer, memory_block) == 1104 && offsetof(fWriteBuffer, used) == 1120);
    static_assert(offsetof(fWriteBuffer, swap) == 1145 && offsetof(fWriteBuffer, mutex) == 1152);
#pragma GCC diagnostic pop
    if (handle != -1 && allocate) fWriteBuffer::set_buffer(k_usual_buffer_bytes, /*double_buffered*/ true);
}

fWriteBuffer::~fWriteBuffer() {
    if (file_handle != -1) fWriteBuffer::close_file(/*final*/ true);
    fWriteBuffer::reset_buffers();
    mp_delete_mutex(mutex);
}

/// Deletes what a writer with errors left. A device or a link that it wrote through is nobody's to delete, and a name
/// that did not fit would name another file.
void fWriteBuffer::discard_failed_file() noexcept {
    const size_t length = strnlen(file_name, sizeof file_name);
    if (length == 0) return;
    msgerror("Failed to write file '%.*s'.", static_cast<int>(length), file_name);
    struct stat facts {};
    if (length < sizeof file_name && lstat(file_name, &facts) == 0 && S_ISREG(facts.st_mode)) file_delete(file_name);
}

bool fWriteBuffer::open_file(const char* name, long long size, bool write_through) noexcept {
    if (file_handle != -1) close_file(/*final*/ true);
    if (error_count != 0) discard_failed_file();
    error_count = 0;
    const bool is_uncached = write_through && io_settings.write_through.load(std::memory_order_relaxed);
    const int created = must_be_new_ ? vell::create_new_file(name)
                                     : io_create64(name, !is_uncached, static_cast<unsigned long long>(size));
    if (created < 1) return false;
    if (is_uncached) vell::descriptor_set_uncached(created);
    alignment = is_uncached ? io_settings.alignment.load(std::memory_order_relaxed)
                            : static_cast<unsigned long long>(mem_pagesize());
    vell::store_path(file_name, name);
    close_on_close = true;
    used = offset = 0;
    // A buffer made for a smaller alignment has no room for the rounding.
    const bool has_room =
        buffer_a != nullptr && vell::round_up(static_cast<unsigned>(buffer_size), alignment) <= buffer_room_;
    const int wanted = buffer_a != nullptr ? buffer_size : k_usual_buffer_bytes;
    const bool double_buffered = buffer_a == nullptr || buffer_b != nullptr;
    if (!has_room) {
        reset_buffers();
        set_buffer(wanted, double_buffered);
    }
    file_handle = created;
    buffer_file_offset = file_size = 0;
    request_a = request_b = -1;
    write_count = 0;
    start_empty_buffer();
    return true;
}

void fWriteBuffer::close_descriptor() noexcept {
    const bool is_cut = io_set_filesize64(file_handle, file_size);
    const int error = errno;
    if (syncs_on_close_ && vell::sync_file(file_handle) != 0) ++error_count;
    syncs_on_close_ = false;
    if (close_on_close) io_close64(file_handle);
    errno = error;
    if (!is_cut) msg_os_error("Writebuffer set FileSize");
    file_handle = -1;
}

bool fWriteBuffer::close_file(bool final) noexcept {
    const vell::CancelShield shield;
    const AutoLock lock(mutex);
    if (file_handle == -1) return true;
    if (!final) {
        poll_requests();
        if (request_a != -1 && request_b != -1) return false;
        if (holds_whole_file()) return begin_early_write();
    }
    // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall): in the destructor the own class's is meant
    flush_buffers();
    close_descriptor();
    return true;
}

bool fWriteBuffer::data_pending() const noexcept {
    return file_handle != -1 && used != 0;
}

int fWriteBuffer::error() noexcept {
    return error_count;
}

size_t fWriteBuffer::get_file_position() const noexcept {
    return static_cast<size_t>(buffer_file_offset + offset);
}

bool fWriteBuffer::is_file_position_inside_current_buffer(size_t position) const noexcept {
    return position >= buffer_file_offset && position - buffer_file_offset < static_cast<unsigned>(buffer_size);
}

bool fWriteBuffer::set_file_position(size_t position) noexcept {
    if (fWriteBuffer::is_file_position_inside_current_buffer(position)) {
        const unsigned long long moved = position - buffer_file_offset;
        // The gap would go out with whatever the buffer held before.
        if (moved > used && !fill_from_file(used, moved)) std::memset(write_pointer - offset + used, 0, moved - used);
        write_pointer += static_cast<ptrdiff_t>(moved) - static_cast<ptrdiff_t>(offset);
        offset = moved;
        return true;
    }
    flush_buffers();
    // A position moved inside an empty buffer survives the flush.
    if (file_handle != -1) start_empty_buffer();
    buffer_file_offset = vell::round_down(position, alignment);
    return true;
}

// --- Small values -----------------------------------------------------------------------------------------------

/// Stores the low `bytes` bytes of the value. `fits` is the caller's test; a position past the used mark may leave less
/// room than it saw.
size_t fWriteBuffer::put(uint32_t value, unsigned bytes, bool fits) noexcept {
    unsigned char stored[sizeof value];
    for (unsigned i = 0; i < bytes; ++i)
        stored[swap ? bytes - 1 - i : i] = static_cast<unsigned char>(value >> (8 * i));
    if (!fits || offset + bytes > static_cast<unsigned>(buffer_size)) return write_file(stored, bytes, 1);
    std::memcpy(write_pointer, stored, bytes);
    write_pointer += bytes;
    offset += bytes;
    used = std::max(used, offset);
    return static_cast<size_t>(offset);
}

// Kept: bytes measure their room from the offset, the others from the used mark.
size_t fWriteBuffer::put_byte(int value) noexcept {
    return put(static_cast<uint32_t>(value), 1, static_cast<unsigned>(buffer_size) >= offset + 2);
}

size_t fWriteBuffer::put_short(unsigned short value) noexcept {
    return put(value, 2, static_cast<unsigned>(buffer_size) > used + 2);
}

size_t fWriteBuffer::put_int(unsigned int value) noexcept {
    return put(value, 4, static_cast<unsigned>(buffer_size) > used + 4);
}

size_t fWriteBuffer::put_float(float value) noexcept {
    return put(std::bit_cast<uint32_t>(value), 4, static_cast<unsigned>(buffer_size) > used + 4);
}
