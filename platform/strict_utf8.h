// UTF-8 as others have to have it (RFC 3629): no overlong forms, no surrogates, nothing above U+10FFFF. The library's
// own texts follow a wider rule (text/code_points.h).
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace vell {

/// Bytes of the character at the beginning of a text that is not empty; 0 when there is none. `code` gets its number.
[[nodiscard]] inline uint32_t strict_utf8_length(std::string_view text, uint32_t& code) noexcept {
    const auto byte = [text](uint32_t at) { return static_cast<uint8_t>(text[at]); };
    code = byte(0);
    if (code < 0x80) return 1;
    if (code < 0xC2 || code > 0xF4) return 0;
    const uint32_t length = code < 0xE0 ? 2 : code < 0xF0 ? 3 : 4;
    if (text.size() < length) return 0;
    code &= 0x7FU >> length;
    for (uint32_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr uint32_t k_min[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < k_min[length] || is_surrogate || code > 0x10FFFF ? 0 : length;
}

/// The whole text is UTF-8.
[[nodiscard]] inline bool is_utf8(std::string_view text) noexcept {
    while (!text.empty()) {
        uint64_t eight = 0;
        constexpr uint64_t k_beyond_ascii = 0x8080808080808080;
        if (text.size() >= sizeof eight &&
            (std::memcpy(&eight, text.data(), sizeof eight), eight & k_beyond_ascii) == 0) {
            text.remove_prefix(sizeof eight);
            continue;
        }
        uint32_t code = 0;
        const uint32_t length = strict_utf8_length(text, code);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

}  // namespace vell
