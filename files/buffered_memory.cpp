// The writer into memory.

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <typeinfo>

#include "files/buffered_common.h"
#include "vellcore/buffered_file_writer.h"

namespace {
constexpr int k_step_bytes = 131'072;
}

fMemBuffer::fMemBuffer() noexcept : fWriteBuffer(-1, /*allocate*/ false) {}

fMemBuffer::~fMemBuffer() {
    fMemBuffer::reset_buffers();
}

void fMemBuffer::reset_buffers() noexcept {
    if (owns_memory) std::free(memory);
    memory = mem_write_pointer = nullptr;
    capacity = 0;
    mem_used = position = 0;
}

void fMemBuffer::set_memory_buffer(int size) noexcept {
    if (!owns_memory) return;
    reset_buffers();
    if (size < 1) return;
    memory = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(size)));
    mem_write_pointer = memory;
    capacity = memory != nullptr ? size : 0;
}

void fMemBuffer::set_memory_buffer(void* callers_memory, int size) noexcept {
    reset_buffers();
    if (size < 1 || callers_memory == nullptr) return;
    memory = mem_write_pointer = static_cast<unsigned char*>(callers_memory);
    capacity = size;
    owns_memory = false;
}

void fMemBuffer::set_buffer(int size, bool) noexcept {
    set_memory_buffer(size);
}

void* fMemBuffer::get_current_buffer() const noexcept {
    return memory;
}

void fMemBuffer::ensure_minimum_buffer_size(int size) noexcept {
    if (size > capacity) set_buffer(size, /*double_buffered*/ false);
}

void fMemBuffer::flush_buffers() noexcept {}

void* fMemBuffer::get_buffer_used(int& bytes_used) noexcept {
    bytes_used = static_cast<int>(std::min<unsigned long long>(mem_used, INT_MAX));
    void* handed_over = memory;
    memory = mem_write_pointer = nullptr;
    capacity = 0;
    mem_used = position = 0;
    return handed_over;
}

bool fMemBuffer::data_pending() const noexcept {
    return false;
}
bool fMemBuffer::open_file(const char*, long long, bool) noexcept {
    return true;
}
bool fMemBuffer::close_file(bool) noexcept {
    return true;
}
size_t fMemBuffer::add_write_buffer(const void*, size_t) noexcept {
    return 0;
}
size_t fMemBuffer::get_file_position() const noexcept {
    return static_cast<size_t>(position);
}
int fMemBuffer::error() noexcept {
    return 0;
}

bool fMemBuffer::set_file_position(size_t new_position) noexcept {
    position = new_position;
    const size_t reachable = std::min(new_position, static_cast<size_t>(capacity));
    mem_write_pointer = memory != nullptr ? memory + reachable : nullptr;
    return true;
}

bool fMemBuffer::grow() noexcept {
    if (!owns_memory || capacity > INT_MAX - k_step_bytes) return false;
    void* grown = std::realloc(memory, static_cast<size_t>(capacity) + k_step_bytes);
    if (grown == nullptr) return false;
    memory = static_cast<unsigned char*>(grown);
    capacity += k_step_bytes;
    return true;
}

/// Makes memory up to the position and fills the gap before it with zeros.
bool fMemBuffer::reach_position() noexcept {
    if (position > INT_MAX) return false;  // no memory reaches that far
    while (position > static_cast<unsigned>(capacity)) {
        if (!grow()) return false;
    }
    if (position > mem_used) std::memset(memory + mem_used, 0, static_cast<size_t>(position - mem_used));
    if (memory != nullptr) mem_write_pointer = memory + position;
    return true;
}

/// Copies as much as fits. Returns the bytes taken.
size_t fMemBuffer::store(const unsigned char* data, unsigned long long bytes) noexcept {
    const unsigned long long room = static_cast<unsigned>(capacity) - position;
    const size_t taken = static_cast<size_t>(std::min(bytes, room));
    if (taken == 0) return 0;
    std::memcpy(mem_write_pointer, data, taken);
    mem_write_pointer += taken;
    position += taken;
    mem_used = std::max(mem_used, position);
    return taken;
}

size_t fMemBuffer::write_file(const void* data, size_t size, size_t count) noexcept {
    const unsigned long long total = vell::total_bytes(size, count);
    if (data == nullptr || total == 0 || !reach_position()) return 0;
    const auto* from = static_cast<const unsigned char*>(data);
    const bool is_ours = typeid(*this) == typeid(fMemBuffer);
    size_t taken = 0;
    for (;;) {
        taken += store(from + taken, total - taken);
        if (position < static_cast<unsigned>(capacity) || !grow()) return taken;
        mem_write_pointer = memory + position;
        if (taken == total) return taken;
        if (!is_ours) return taken + write_file(from + taken, static_cast<size_t>(total - taken), 1);
    }
}
