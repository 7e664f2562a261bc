// Latin-1 to UTF-8 and back, and cleaning for XML.

#include <cstdint>

#include "vellcore/unicode_text.h"

namespace {

/// Room for a text behind which two bytes stay free. Kept: one would do for the terminator.
size_t room_before_two(size_t capacity, const char* in) noexcept {
    return in != nullptr && capacity > 2 ? capacity - 2 : 0;
}

bool is_control(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x21 && c != '\r' && c != '\n';
}

}  // namespace

char* vl_utf8_to_byte(char* out, size_t capacity, const char* in) noexcept {
    if (capacity == 0) return out;
    const size_t room = room_before_two(capacity, in);
    size_t stored = 0;
    for (; stored < room && *in != '\0'; ++stored) {
        const auto byte = static_cast<uint8_t>(in[0]);
        const auto next = static_cast<uint8_t>(in[1]);
        const bool is_two = (byte == 0xC2 || byte == 0xC3) && next >= 0x80;
        out[stored] = static_cast<char>(!is_two ? byte : byte == 0xC3 ? next + 0x40 : next);
        in += is_two ? 2 : 1;
    }
    out[stored] = '\0';
    return out;
}

char* vl_byte_to_utf8(char* out, size_t capacity, const char* in) noexcept {
    if (capacity == 0) return out;
    size_t stored = 0;
    for (; in != nullptr && *in != '\0'; ++in) {
        const auto byte = static_cast<uint8_t>(*in);
        const size_t length = byte < 0x80 ? 1 : 2;
        if (stored + length >= capacity) break;
        if (length == 2) out[stored++] = static_cast<char>(byte >= 0xC0 ? 0xC3 : 0xC2);
        out[stored++] = static_cast<char>(byte >= 0xC0 ? byte - 0x40 : byte);
    }
    out[stored] = '\0';
    return out;
}

char* validate_ascii_xml_text(char* out, size_t capacity, const char* in) noexcept {
    if (capacity == 0) return out;
    const size_t room = room_before_two(capacity, in);
    size_t stored = 0;
    for (; stored < room && in[stored] != '\0'; ++stored)
        out[stored] = is_control(in[stored]) ? ' ' : in[stored];
    out[stored] = '\0';
    return out;
}
