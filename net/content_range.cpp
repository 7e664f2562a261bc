#include "net/content_range.h"

#include <charconv>

namespace vell {

std::optional<uint64_t> parse_length(std::string_view text) noexcept {
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end || text.empty()) return std::nullopt;
    return value;
}

std::optional<ContentRange> parse_content_range(std::string_view text) noexcept {
    constexpr std::string_view k_unit = "bytes ";
    if (!is_same_field(text.substr(0, k_unit.size()), k_unit)) return std::nullopt;
    text.remove_prefix(k_unit.size());
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    const std::string_view part = text.substr(0, slash), whole = text.substr(slash + 1);

    ContentRange range;
    if (whole != "*") {
        const auto size = parse_length(whole);
        if (!size) return std::nullopt;
        range.size = *size;
    }
    if (part == "*") return range;
    const size_t dash = part.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = parse_length(part.substr(0, dash)), last = parse_length(part.substr(dash + 1));
    if (!first || !last || *first > *last || *last >= range.size) return std::nullopt;
    range.has_part = true;
    range.first = *first;
    range.last = *last;
    return range;
}

}  // namespace vell
