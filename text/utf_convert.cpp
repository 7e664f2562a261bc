// Conversions between UTF-8, UTF-16 and UTF-32.
//
// Kept: the last element of an output is set to zero when everything else is written, so a text that fills the buffer
// loses its last byte or unit. When a code point does not fit, the output is terminated where it would have stood too:
// what follows there is the caller's old memory.

#include <cstring>
#include <cwchar>

#include "text/code_points.h"
#include "text/text_walk.h"
#include "text/unicode_vectors.h"
#include "vellcore/unicode_text.h"

namespace {

using vell::CodePoint;
using vell::k_known_stretch;
using vell::TextProgress;

const uint8_t* bytes_of(const char* s) noexcept {
    return reinterpret_cast<const uint8_t*>(s != nullptr ? s : "");
}

// --- Out of UTF-8 ---

/// Writes units: `fast` by vectors, `write` a code point at an index; it returns 0 without room.
template <class Fast, class Write>
void from_utf8(const uint8_t* text, size_t capacity, Fast fast, Write write) noexcept {
    size_t stored = 0;
    vell::walk_text([text](size_t at) { return strnlen(reinterpret_cast<const char*>(text) + at, k_known_stretch); },
                    [&](size_t from, size_t to) {
                        const TextProgress run = fast(from, to, stored, capacity - stored);
                        stored += run.made;
                        return run.taken;
                    },
                    [&](size_t at) -> size_t {
                        const CodePoint decoded = vell::decode_utf8(text + at);
                        const size_t count = write(decoded.value, stored);
                        stored += count;
                        return count != 0 && decoded.value != 0 ? decoded.length : 0;
                    });
    // Without room for a pair, the last unit is where it would have stood.
    write(0, capacity - 1);
}

void to_utf16(const uint8_t* text, uint8_t* out, size_t capacity) noexcept {
    if (capacity == 0) return;
    from_utf8(
        text, capacity,
        [=](size_t from, size_t to, size_t stored, size_t room) {
            return vell::utf8_to_utf16_vectors(text, from, to, out + 2 * stored, room);
        },
        [=](int32_t cp, size_t index) { return vell::encode_utf16(cp, out, index, capacity); });
}

/// `Unit` has 32 bits.
template <class Unit>
Unit* to_utf32(const char* s, Unit* out, size_t capacity) noexcept {
    static_assert(sizeof(Unit) == 4);
    if (capacity == 0) return out;
    const uint8_t* text = bytes_of(s);
    from_utf8(
        text, capacity,
        [=](size_t from, size_t to, size_t stored, size_t room) {
            return vell::utf8_to_utf32_vectors(text, from, to, reinterpret_cast<uint8_t*>(out + stored), room);
        },
        [=](int32_t cp, size_t index) -> size_t {
            if (index == capacity) return 0;
            out[index] = static_cast<Unit>(cp);
            return 1;
        });
    return out;
}

// --- Into UTF-8 ---

/// `known` tells units before the terminator, `fast` is for vectors, `read` decodes at an index.
template <class Known, class Fast, class Read>
char* to_utf8(Known known, Fast fast, Read read, char* out, size_t capacity) noexcept {
    if (capacity == 0) return out;
    auto* bytes = reinterpret_cast<uint8_t*>(out);
    size_t stored = 0;
    vell::walk_text(
        known,
        [&](size_t from, size_t to) {
            const TextProgress run = fast(from, to, bytes + stored, capacity - stored);
            stored += run.made;
            return run.taken;
        },
        [&](size_t at) -> size_t {
            const CodePoint decoded = read(at);
            const size_t length = vell::encode_utf8(decoded.value, bytes + stored, capacity - stored);
            if (length == 0 && stored < capacity) bytes[stored] = 0;
            stored += length;
            return length != 0 && decoded.value != 0 ? decoded.length : 0;
        });
    bytes[capacity - 1] = 0;
    return out;
}

char* from_utf16(const uint8_t* text, char* out, size_t capacity) noexcept {
    return to_utf8([text](size_t at) { return vell::utf16_units_before_end(text + 2 * at, k_known_stretch); },
                   [text](size_t from, size_t to, uint8_t* bytes, size_t room) {
                       return vell::utf16_to_utf8_vectors(text, from, to, bytes, room);
                   },
                   [text](size_t at) { return vell::decode_utf16(text, at); }, out, capacity);
}

char* from_utf32(const wchar_t* text, char* out, size_t capacity) noexcept {
    static_assert(sizeof(wchar_t) == 4);
    return to_utf8([text](size_t at) { return wcsnlen(text + at, k_known_stretch); },
                   [text](size_t from, size_t to, uint8_t* bytes, size_t room) {
                       return vell::utf32_to_utf8_vectors(reinterpret_cast<const uint8_t*>(text), from, to, bytes,
                                                          room);
                   },
                   [text](size_t at) {
                       int32_t cp = 0;  // of another type, when the caller's units are
                       memcpy(&cp, text + at, sizeof cp);
                       return CodePoint{cp, 1};
                   },
                   out, capacity);
}

}  // namespace

char* vl_utf16_to_utf8(const unsigned char* bytes, char* out, size_t capacity) noexcept {
    constexpr unsigned char k_empty[2] = {};
    return from_utf16(bytes != nullptr ? bytes : k_empty, out, capacity);
}

char* vl_utf16_to_utf8(const unsigned short* units, char* out, size_t capacity) noexcept {
    return vl_utf16_to_utf8(reinterpret_cast<const unsigned char*>(units), out, capacity);
}

unsigned short* vl_utf8_to_utf16(const char* s, unsigned short* out, size_t capacity) noexcept {
    to_utf16(bytes_of(s), reinterpret_cast<uint8_t*>(out), capacity);
    return out;
}

unsigned char* vl_utf8_to_utf16(const char* s, unsigned char* out, size_t capacity) noexcept {
    to_utf16(bytes_of(s), out, capacity / 2);
    return out;
}

char* vl_utf32_to_utf8(const unsigned int* units, char* out, size_t capacity) noexcept {
    // The C library's search for a terminator among 32-bit units is that for wide characters.
    return vl_wchar_to_utf8(reinterpret_cast<const wchar_t*>(units), out, capacity);
}

char* vl_wchar_to_utf8(const wchar_t* wide, char* out, size_t capacity) noexcept {
    return from_utf32(wide != nullptr ? wide : L"", out, capacity);
}

unsigned int* vl_utf8_to_utf32(const char* s, unsigned int* out, size_t capacity) noexcept {
    return to_utf32(s, out, capacity);
}

wchar_t* vl_utf8_to_wchar_n(const char* s, wchar_t* out, size_t capacity_characters) noexcept {
    return to_utf32(s, out, capacity_characters);
}

wchar_t* vl_utf8_to_wchar_s(const char* s, wchar_t* out, size_t capacity_bytes) noexcept {
    static_assert(sizeof(wchar_t) == 4);
    return to_utf32(s, out, capacity_bytes / sizeof(wchar_t));
}
