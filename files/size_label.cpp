// Sizes as people read them.

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "vellcore/file_operations.h"

namespace {

constexpr const char* k_units[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
constexpr size_t k_last_unit = sizeof k_units / sizeof *k_units - 1;
constexpr size_t k_number_bytes = 64;  // the largest float makes 21 digits in the last unit

}  // namespace

bool file_size_label(float bytes, char* out, int32_t size) noexcept {
    if (out == nullptr || size < 1) return false;
    constexpr float k_step = 1024;
    size_t unit = 0;
    for (; bytes >= k_step && unit < k_last_unit; ++unit)
        bytes /= k_step;
    // Not by printf, whose point depends on the locale.
    char number[k_number_bytes];
    const int decimals = bytes == std::floor(bytes) ? 0 : 1;
    *std::to_chars(number, std::end(number) - 1, bytes, std::chars_format::fixed, decimals).ptr = '\0';
    const int length = std::snprintf(out, static_cast<size_t>(size), "%s %s", number, k_units[unit]);
    return length < size;
}

// Kept: only an empty text gives false; one that is no number counts as 0.
bool file_size_label(const char* text, char* out, int32_t size) noexcept {
    if (text == nullptr || *text == '\0') return false;
    text += strspn(text, " \t\n\v\f\r");
    if (*text == '+') ++text;
    float bytes = 0;
    if (std::from_chars(text, text + strlen(text), bytes).ec == std::errc::result_out_of_range) return false;
    return file_size_label(bytes, out, size);
}
