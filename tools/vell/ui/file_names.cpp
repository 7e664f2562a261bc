// UTF-8 as RFC 3629 has it: no over-long forms, no surrogates, nothing above U+10FFFF.

#include "ui/file_names.h"

#include <cstdint>
#include <cstdio>

#include "vellcore/unicode_text.h"

namespace tool {
namespace {

struct Character {
    uint32_t code;
    size_t bytes;  ///< 0: no UTF-8
};

bool is_continuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

Character character_at(std::string_view text, size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80) return {first, 1};
    const size_t bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) return {0, 0};
    uint32_t code = first & (0xFFU >> (bytes + 1));
    for (size_t i = 1; i < bytes; ++i) {
        if (!is_continuation(text, at + i)) return {0, 0};
        code = code << 6 | (static_cast<unsigned char>(text[at + i]) & 0x3FU);
    }
    constexpr uint32_t k_least[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < k_least[bytes] || is_surrogate || code > 0x10FFFF) return {0, 0};
    return {code, bytes};
}

/// As printable_name() leaves it. Backslashes are the caller's.
bool is_shown(std::string_view character) {
    return vl_utf8_printable(nullptr, 0, character.data(), character.size(), VL_BACKSLASHES_KEPT) == character.size();
}

std::string hexadecimal_escape(unsigned char byte) {
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

}  // namespace

std::string printable_name(std::string_view name) {
    std::string text(vl_utf8_printable(nullptr, 0, name.data(), name.size(), VL_BACKSLASHES_DOUBLED), '\0');
    vl_utf8_printable(text.data(), text.size() + 1, name.data(), name.size(), VL_BACKSLASHES_DOUBLED);
    return text;
}

std::string json_string(std::string_view name, bool* is_exact) {
    std::string text = "\"";
    bool exact = true;
    for (size_t at = 0; at < name.size();) {
        const Character character = character_at(name, at);
        if (character.bytes == 0) {
            text += "\xEF\xBF\xBD";
            exact = false;
            ++at;
            continue;
        }
        if (!is_shown(name.substr(at, character.bytes))) {
            char escape[16];  // the library escapes none above U+FFFF
            std::snprintf(escape, sizeof escape, "\\u%04x", character.code);
            text += escape;
        } else {
            if (character.code == '"' || character.code == '\\') text += '\\';
            text += name.substr(at, character.bytes);
        }
        at += character.bytes;
    }
    if (is_exact != nullptr) *is_exact = exact;
    return text + "\"";
}

std::string json_name(std::string_view key, std::string_view name) {
    bool is_exact = true;
    std::string text = "\"" + std::string(key) + "\":" + json_string(name, &is_exact);
    if (is_exact) return text;
    text += ",\"" + std::string(key) + "_hex\":\"";
    for (const char byte : name)
        text += hexadecimal_escape(static_cast<unsigned char>(byte)).substr(2);
    return text + "\"";
}

}  // namespace tool
