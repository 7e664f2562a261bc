// Walking over UTF-8, measuring it, and telling whether it is valid.

#include <cstring>

#include "text/code_points.h"
#include "text/text_walk.h"
#include "text/unicode_vectors.h"
#include "vellcore/unicode_text.h"

namespace {

const uint8_t* bytes_of(const char* s) noexcept {
    return reinterpret_cast<const uint8_t*>(s != nullptr ? s : "");
}

/// Walks until `careful`, which is given a character, returns 0; vectors count what they pass in `counted`.
template <class Careful>
void walk_utf8(const uint8_t* text, size_t& counted, Careful careful) noexcept {
    vell::walk_text(
        [text](size_t at) { return strnlen(reinterpret_cast<const char*>(text) + at, vell::k_known_stretch); },
        [&](size_t from, size_t to) {
            const vell::TextProgress run = vell::count_utf8_vectors(text, from, to);
            counted += run.made;
            return run.taken;
        },
        [&](size_t at) { return careful(text + at); });
}

/// Where the valid sequences end: at the terminator, or before it.
const uint8_t* end_of_valid(const uint8_t* text) noexcept {
    const uint8_t* end = text;
    size_t ignored = 0;
    walk_utf8(text, ignored, [&end](const uint8_t* at) -> size_t {
        end = at;
        return *at != 0 ? vell::utf8_length(at) : 0;
    });
    return end;
}

}  // namespace

int utf8_decode(const unsigned char* s, int* cp) noexcept {
    const vell::CodePoint decoded = vell::decode_utf8(s);
    *cp = decoded.value;
    return static_cast<int>(decoded.length);
}

int utf8_code_len(const unsigned char* s) noexcept {
    return static_cast<int>(vell::utf8_length(s));
}

size_t vl_utf8_strlen(const char* s) noexcept {
    size_t count = 0;
    walk_utf8(bytes_of(s), count, [&count](const uint8_t* at) -> size_t {
        if (*at == 0) return 0;
        ++count;
        return vell::decode_utf8(at).length;
    });
    return count;
}

int vl_utf8_get_code_point(const char* s, size_t* pos) noexcept {
    if (s == nullptr) return 0;
    const vell::CodePoint decoded = vell::decode_utf8(bytes_of(s) + *pos);
    if (decoded.value != 0) *pos += decoded.length;
    return decoded.value;
}

int vl_utf8_get_code_point_rev(const char* s, size_t* pos) noexcept {
    const size_t p = *pos;
    if (s == nullptr || p == 0) return 0;
    const uint8_t* end = bytes_of(s) + p;
    size_t back = 1;
    if (end[-1] >= 0x80) {
        // Kept: the nearest lead byte of the right length is trusted, whatever lies between.
        if (p >= 2 && (end[-2] & 0xE0) == 0xC0)
            back = 2;
        else if (p >= 3 && (end[-3] & 0xF0) == 0xE0)
            back = 3;
        else if (p >= 4 && (end[-4] & 0xF8) == 0xF0)
            back = 4;
    }
    *pos = p - back;
    // A byte of its own is not decoded: what lies behind `pos` could make a sequence of it.
    return back == 1 ? end[-1] : vell::decode_utf8(end - back).value;
}

size_t vl_utf8_get_num_bytes(const char* s, size_t offset, int count) noexcept {
    if (s == nullptr) return 0;
    const uint8_t* const start = bytes_of(s) + offset;
    const uint8_t* at = start;
    for (; count > 0 && *at != 0; --count)
        at += vell::decode_utf8(at).length;
    return static_cast<size_t>(at - start);
}

int vl_utf8_get_num_bytes_for_code_point(int cp) noexcept {
    return static_cast<int>(vell::utf8_bytes_for(cp));
}

int vl_utf8_encode(int cp, char* buffer, size_t capacity) noexcept {
    return static_cast<int>(vell::encode_utf8(cp, reinterpret_cast<uint8_t*>(buffer), capacity));
}

int vl_utf8_is_valid(const char* s) noexcept {
    return *end_of_valid(bytes_of(s)) == 0 ? 1 : 0;
}

char* vl_utf8_validate(char* s) noexcept {
    const uint8_t* const bytes = bytes_of(s);
    const uint8_t* const end = end_of_valid(bytes);
    if (*end != 0) s[end - bytes] = '\0';  // a valid string may be a constant
    return s;
}
