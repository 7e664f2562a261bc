// Walking over UTF-16. Units are copied out of bytes, so that one body serves both forms and any address.

#include "text/code_points.h"
#include "vellcore/unicode_text.h"

namespace {

const uint8_t* bytes_of(const unsigned short* units) noexcept {
    return reinterpret_cast<const uint8_t*>(units);
}

/// The code point at unit `index`, which moves behind it unless it is 0.
int step(const uint8_t* units, size_t& index) noexcept {
    const vell::CodePoint decoded = vell::decode_utf16(units, index);
    if (decoded.value != 0) index += decoded.length;
    return decoded.value;
}

}  // namespace

size_t vl_utf16_strlen(const unsigned char* bytes) noexcept {
    size_t count = 0;
    if (bytes == nullptr) return count;
    for (size_t index = 0; vell::load_unit(bytes, index) != 0; ++count)
        index += vell::decode_utf16(bytes, index).length;
    return count;
}

size_t vl_utf16_strlen(const unsigned short* units) noexcept {
    return vl_utf16_strlen(bytes_of(units));
}

int vl_utf16_get_code_point(const unsigned short* units, size_t* pos) noexcept {
    return units != nullptr ? step(bytes_of(units), *pos) : 0;
}

int vl_utf16_get_code_point(const unsigned char* bytes, size_t* pos) noexcept {
    size_t index = *pos / 2;
    const int cp = bytes != nullptr ? step(bytes, index) : 0;
    *pos = index * 2;
    return cp;
}

int vl_utf16_get_num_for_code_point(int cp) noexcept {
    return static_cast<int>(vell::utf16_units_for(cp));
}

int vl_utf16_get_num_bytes_for_code_point(int cp) noexcept {
    return 2 * vl_utf16_get_num_for_code_point(cp);
}

int vl_utf16_encode(int cp, unsigned short* units, size_t capacity) noexcept {
    return static_cast<int>(vell::encode_utf16(cp, reinterpret_cast<uint8_t*>(units), 0, capacity));
}

int vl_utf16_encode(int cp, unsigned char* bytes, size_t capacity) noexcept {
    return 2 * static_cast<int>(vell::encode_utf16(cp, bytes, 0, capacity / 2));
}
