// Editing UTF-8 in place, by code points.

#include <cstring>

#include "text/code_points.h"
#include "vellcore/unicode_text.h"

namespace {

/// Makes room for `count` bytes at `offset` of a string of `length` bytes, and terminates what it becomes.
void open_gap(char* s, size_t length, size_t offset, size_t count) noexcept {
    memmove(s + offset + count, s + offset, length - offset);
    s[length + count] = '\0';
}

/// Bytes of the whole code points of `text` that fit into `room` bytes.
size_t fitting_bytes(const char* text, size_t room) noexcept {
    const size_t length = strlen(text);
    if (length <= room) return length;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text);
    size_t fitting = 0;
    for (;;) {
        const size_t next = fitting + vell::decode_utf8(bytes + fitting).length;
        if (next > room) return fitting;
        fitting = next;
    }
}

}  // namespace

size_t vl_utf8_insert_char(char* buffer, size_t capacity, int index, int cp) noexcept {
    const size_t count = vell::utf8_bytes_for(cp);
    if (buffer == nullptr || capacity == 0 || count == 0) return 0;
    const size_t length = strlen(buffer);
    if (length + count >= capacity) return 0;
    const size_t offset = vl_utf8_get_num_bytes(buffer, 0, index);
    open_gap(buffer, length, offset, count);
    vell::encode_utf8(cp, reinterpret_cast<uint8_t*>(buffer) + offset, count);
    return count;
}

size_t vl_utf8_erase(char* s, int index, int count) noexcept {
    if (s == nullptr || count < 1) return 0;
    const size_t length = strlen(s);
    const size_t offset = vl_utf8_get_num_bytes(s, 0, index);
    const size_t removed = vl_utf8_get_num_bytes(s, offset, count);
    memmove(s + offset, s + offset + removed, length - offset - removed);
    s[length - removed] = '\0';
    return removed;
}

size_t vl_utf8_insert(char* buffer, size_t capacity, int index, const char* text) noexcept {
    if (buffer == nullptr || text == nullptr || capacity == 0) return 0;
    const size_t length = strlen(buffer);
    if (length >= capacity - 1) return 0;
    const size_t count = fitting_bytes(text, capacity - 1 - length);
    if (count == 0) return 0;
    const size_t offset = vl_utf8_get_num_bytes(buffer, 0, index);
    open_gap(buffer, length, offset, count);
    memcpy(buffer + offset, text, count);
    return count;
}
