// Sizes: a number and a power of 1024.

#include "ui/byte_size.h"

#include <charconv>
#include <cstdio>

namespace tool {

std::optional<uint64_t> parse_byte_size(std::string_view text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || value == 0) return std::nullopt;
    const std::string_view unit(end, static_cast<size_t>(text.data() + text.size() - end));
    if (unit.empty()) return value;
    constexpr std::string_view k_units = "KMGT";
    const char upper = unit[0] >= 'a' && unit[0] <= 'z' ? static_cast<char>(unit[0] - 'a' + 'A') : unit[0];
    const size_t power = k_units.find(upper);
    if (unit.size() != 1 || power == std::string_view::npos) return std::nullopt;
    const size_t shift = 10 * (power + 1);
    if (value > UINT64_MAX >> shift) return std::nullopt;
    return value << shift;
}

std::string format_byte_size(uint64_t bytes) {
    constexpr const char* k_names[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    for (; value >= 1024 && unit < 4; ++unit)
        value /= 1024;
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, k_names[unit]);
    return text;
}

}  // namespace tool
