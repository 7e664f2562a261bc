// Names of header fields (RFC 9110, 5.1).

#include <strings.h>

#include <algorithm>

#include "platform/http_transport.h"

namespace vell {
namespace {

constexpr const char* k_blanks = " \t\r";

}  // namespace

bool is_same_field(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view HttpHead::field(std::string_view name) const noexcept {
    std::string_view rest = lines;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.size() <= name.size() || line[name.size()] != ':' || !is_same_field(line.substr(0, name.size()), name))
            continue;
        const std::string_view value = line.substr(name.size() + 1);
        const size_t first = value.find_first_not_of(k_blanks);
        return first == std::string_view::npos ? "" : value.substr(first, value.find_last_not_of(k_blanks) + 1 - first);
    }
    return {};
}

}  // namespace vell
