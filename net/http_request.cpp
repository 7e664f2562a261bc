#include "net/http_request.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <string_view>

#include "vellcore/http_client.h"

namespace vell {
namespace {

bool is_printable_ascii(char c) noexcept {
    return c >= ' ' && c <= '~';
}

bool starts_with_scheme(const char* url, const char* scheme) noexcept {
    return strncasecmp(url, scheme, std::strlen(scheme)) == 0;
}

}  // namespace

const char* url_problem(const char* url) noexcept {
    const std::string_view text = url;
    if (!std::all_of(text.begin(), text.end(), [](char c) { return is_printable_ascii(c) && c != ' '; }))
        return "The URL has a character that is not allowed in a URL";
    if (!starts_with_scheme(url, "http://") && !starts_with_scheme(url, "https://"))
        return "Unsupported URL: neither http nor https";
    return nullptr;
}

const char* add_header(HttpRequest& request, const char* header) {
    const std::string_view text = header;
    // A line break would begin another field, or another request.
    if (!std::all_of(text.begin(), text.end(), [](char c) { return is_printable_ascii(c) || c == '\t'; }))
        return "The header has a character that is not allowed in a header";
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || text.find(':', colon + 1) != std::string_view::npos) return nullptr;
    if (colon == 0) return "The header has no name";
    const HttpField field{std::string(text.substr(0, colon)), std::string(text.substr(colon + 1))};
    std::erase_if(request.fields, [&field](const HttpField& own) { return is_same_field(own.name, field.name); });
    request.fields.push_back(field);
    return nullptr;
}

const char* method_of(int32_t type) noexcept {
    switch (type) {
        case VL_HTTP_GET:
            return "GET";
        case VL_HTTP_POST:
            return "POST";
        case VL_HTTP_PATCH:
            return "PATCH";
        case VL_HTTP_DELETE:
            return "DELETE";
        default:
            return "PUT";
    }
}

int64_t idle_limit_ms(double seconds) noexcept {
    constexpr int64_t k_default_ms = 60'000;
    constexpr double k_most_ms = INT_MAX;
    if (!(seconds > 0)) return k_default_ms;
    return static_cast<int64_t>(std::ceil(std::min(seconds * 1000.0, k_most_ms)));
}

void copy_error_text(char (&to)[k_error_text_bytes], const std::string& text) noexcept {
    const size_t bytes = std::min(text.size(), k_error_text_bytes - 1);
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(bytes), to,
                   [](char c) { return is_printable_ascii(c) ? c : '?'; });
    to[bytes] = '\0';
}

}  // namespace vell
