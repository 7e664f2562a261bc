// One code point in and out of UTF-8 and UTF-16: the rules that everything else about Unicode goes back to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vell {

struct CodePoint {
    int32_t value;
    uint32_t length;  // bytes or units that it was read from
};

// --- UTF-8 ---

inline bool is_continuation(uint8_t byte) noexcept {
    return (byte & 0xC0) == 0x80;
}

/// Length of the valid sequence at `s`, 0 for none. Stops reading at the first byte that does not belong.
inline uint32_t utf8_length(const uint8_t* s) noexcept {
    const uint8_t lead = s[0];
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4 || !is_continuation(s[1])) return 0;
    if (lead < 0xE0) return 2;
    const uint32_t top = (lead & 0x0Fu) << 6 | (s[1] & 0x3Fu);  // the bits before the last six, or twelve
    if (lead < 0xF0) return top >= 0x20 && is_continuation(s[2]) ? 3 : 0;
    return top >= 0x10 && top <= 0x10F && is_continuation(s[2]) && is_continuation(s[3]) ? 4 : 0;
}

/// The character at `s`: a valid sequence, or else one byte by its value.
inline CodePoint decode_utf8(const uint8_t* s) noexcept {
    if (s[0] < 0x80) return {s[0], 1};
    const auto bits = [s](int byte) { return s[byte] & 0x3F; };
    switch (utf8_length(s)) {
        case 2:
            return {(s[0] & 0x1F) << 6 | bits(1), 2};
        case 3:
            return {(s[0] & 0x0F) << 12 | bits(1) << 6 | bits(2), 3};
        case 4:
            return {(s[0] & 0x07) << 18 | bits(1) << 12 | bits(2) << 6 | bits(3), 4};
        default:
            return {s[0], 1};
    }
}

/// Bytes that a code point takes; 0 when it has no form in UTF-8.
inline uint32_t utf8_bytes_for(int32_t cp) noexcept {
    if (cp < 0x80) return 1;
    if (cp < 0x800) return 2;
    if (cp < 0x10000) return 3;
    return cp < 0x200000 ? 4 : 0;
}

/// Writes a code point. @return  bytes written, 0 when it has no form or does not fit.
inline uint32_t encode_utf8(int32_t cp, uint8_t* out, size_t capacity) noexcept {
    constexpr uint8_t k_marks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    const uint32_t length = utf8_bytes_for(cp);
    if (length > capacity || length == 0) return 0;
    for (uint32_t i = length - 1; i > 0; --i, cp >>= 6)
        out[i] = static_cast<uint8_t>(0x80 | (cp & 0x3F));
    out[0] = static_cast<uint8_t>(k_marks[length] | cp);
    return length;
}

// --- UTF-16, as bytes in the machine's order, at any address ---

inline uint16_t load_unit(const uint8_t* units, size_t index) noexcept {
    uint16_t unit = 0;
    memcpy(&unit, units + 2 * index, sizeof unit);
    return unit;
}

inline void store_unit(uint8_t* units, size_t index, uint32_t unit) noexcept {
    const auto low = static_cast<uint16_t>(unit);
    memcpy(units + 2 * index, &low, sizeof low);
}

/// The code point at unit `index`. The unit behind a high one is read, so the text must be terminated.
inline CodePoint decode_utf16(const uint8_t* units, size_t index) noexcept {
    const uint32_t high = load_unit(units, index);
    if ((high & 0xFC00) == 0xD800) {
        const uint32_t low = load_unit(units, index + 1);
        // Kept: pairs without the usual offset of 0x10000.
        if ((low & 0xFC00) == 0xDC00) return {static_cast<int32_t>((high << 10) + low - 0x360DC00), 2};
    }
    return {static_cast<int32_t>(high), 1};
}

inline uint32_t utf16_units_for(int32_t cp) noexcept {
    return cp < 0x10000 ? 1 : 2;
}

/// Writes a code point at unit `index`. @return  units written, 0 when it does not fit before unit `capacity`.
inline uint32_t encode_utf16(int32_t cp, uint8_t* units, size_t index, size_t capacity) noexcept {
    const uint32_t count = utf16_units_for(cp);
    if (count > capacity - index) return 0;
    if (count == 1) {
        store_unit(units, index, static_cast<uint32_t>(cp));
    } else {
        store_unit(units, index, static_cast<uint32_t>(cp >> 10) + 0xD800);
        store_unit(units, index + 1, 0xDC00 | (static_cast<uint32_t>(cp) & 0x3FF));
    }
    return count;
}

}  // namespace vell
