// Widths are asked from GLib, since the C library's depend on a locale that is not set.

#include "ui/text_columns.h"

#include <glib.h>

#include <algorithm>

namespace tool {
namespace {

struct Piece {
    size_t bytes;
    size_t columns;
};

Piece first_of(std::string_view text) {
    const gunichar code = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    constexpr gunichar k_largest = 0x10FFFF;  // what is above tells of an error
    if (code > k_largest) return {1, 1};
    const auto bytes = static_cast<size_t>(g_unichar_to_utf8(code, nullptr));
    if (g_unichar_iszerowidth(code)) return {bytes, 0};
    return {bytes, g_unichar_iswide(code) ? size_t{2} : size_t{1}};
}

}  // namespace

size_t columns_of(std::string_view text) {
    size_t columns = 0;
    while (!text.empty()) {
        const Piece piece = first_of(text);
        columns += piece.columns;
        text.remove_prefix(piece.bytes);
    }
    return columns;
}

std::string padded(std::string_view text, size_t columns) {
    const size_t taken = columns_of(text);
    std::string result(text);
    result.append(columns > taken ? columns - taken : 0, ' ');
    return result;
}

size_t widest_of(std::initializer_list<std::string_view> texts) {
    size_t widest = 0;
    for (const std::string_view text : texts)
        widest = std::max(widest, columns_of(text));
    return widest;
}

std::string_view start_within(std::string_view text, size_t columns) {
    size_t bytes = 0, taken = 0;
    while (bytes < text.size()) {
        const Piece piece = first_of(text.substr(bytes));
        if (taken + piece.columns > columns) break;
        taken += piece.columns;
        bytes += piece.bytes;
    }
    return text.substr(0, bytes);
}

std::string_view end_within(std::string_view text, size_t columns) {
    for (size_t taken = columns_of(text); taken > columns;) {
        const Piece piece = first_of(text);
        taken -= piece.columns;
        text.remove_prefix(piece.bytes);
        // An accent belongs to the character before it.
        while (!text.empty() && first_of(text).columns == 0)
            text.remove_prefix(first_of(text).bytes);
    }
    return text;
}

}  // namespace tool
