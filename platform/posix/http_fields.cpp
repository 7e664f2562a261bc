// Names of header fields (RFC 9110, 5.1).

#include <strings.h>

#include "platform/http_transport.h"

namespace vell {

bool is_same_field(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view HttpHead::field(std::string_view name) const noexcept {
    for (const HttpField& each : fields) {
        if (is_same_field(each.name, name)) return each.value;
    }
    return {};
}

}  // namespace vell
