// Status lines and header fields (RFC 9110, 5; RFC 9112, 4 and 5).

#include <strings.h>

#include <algorithm>

#include "platform/http_transport.h"

namespace vell {
namespace {

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

}  // namespace

bool is_same_field(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view without_blanks(std::string_view text) noexcept {
    constexpr const char* k_blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(k_blanks);
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(k_blanks) + 1 - first);
}

bool HttpFieldWalk::next() noexcept {
    while (!rest_.empty()) {
        const std::string_view line = rest_.substr(0, rest_.find('\n'));
        rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        name_ = line.substr(0, colon);
        value_ = without_blanks(line.substr(colon + 1));
        return true;
    }
    return false;
}

std::string_view HttpHead::field(std::string_view name) const noexcept {
    for (HttpFieldWalk fields(*this); fields.next();)
        if (is_same_field(fields.name(), name)) return fields.value();
    return {};
}

std::optional<int32_t> parse_status_line(std::string_view line) noexcept {
    constexpr std::string_view k_form = "HTTP/d.d ddd";  // d: a digit
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.size() < k_form.size() || (line.size() > k_form.size() && line[k_form.size()] != ' ')) return std::nullopt;
    for (size_t i = 0; i < k_form.size(); ++i)
        if (k_form[i] == 'd' ? !is_digit(line[i]) : line[i] != k_form[i]) return std::nullopt;
    const std::string_view code = line.substr(k_form.size() - 3, 3);
    if (code[0] == '0') return std::nullopt;
    return (code[0] - '0') * 100 + (code[1] - '0') * 10 + (code[2] - '0');
}

}  // namespace vell
