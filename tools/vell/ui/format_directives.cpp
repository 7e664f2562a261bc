// Directives as printf has them: "%", an argument's number and "$", flags, width, precision, length, conversion. A
// width or precision that is an argument itself is not taken.

#include "ui/format_directives.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {
namespace {

using ArgumentTypes = std::vector<std::string>;  ///< "llu", by the argument's place

constexpr size_t k_most_arguments = 16;
constexpr const char* k_digits = "0123456789";

/// Reads a directive behind its "%" and moves behind it. False when it is none.
bool read_directive(const char*& text, size_t& next, ArgumentTypes& types) {
    size_t place = next;
    const size_t digits = std::strspn(text, k_digits);
    if (digits > 0 && text[digits] == '$') {
        place = std::strtoul(text, nullptr, 10) - 1;
        text += digits + 1;
    } else {
        ++next;
    }
    text += std::strspn(text, "-+ #0'");
    text += std::strspn(text, k_digits);
    if (*text == '.') text += 1 + std::strspn(text + 1, k_digits);
    const size_t length = std::strspn(text, "hlLqjzt");
    if (text[length] == '\0' || std::strchr("diouxXcsfFeEgGaAp", text[length]) == nullptr) return false;
    if (place >= k_most_arguments) return false;
    types.resize(std::max(types.size(), place + 1));
    types[place] = std::string(text, length + 1);
    text += length + 1;
    return true;
}

std::optional<ArgumentTypes> argument_types(const char* format) {
    ArgumentTypes types;
    size_t next = 0;
    while ((format = std::strchr(format, '%')) != nullptr) {
        ++format;
        if (*format == '%') {
            ++format;
        } else if (!read_directive(format, next, types)) {
            return std::nullopt;
        }
    }
    return types;
}

}  // namespace

bool take_same_arguments(const char* format, const char* translation) {
    const auto wanted = argument_types(format);
    return wanted && wanted == argument_types(translation);
}

}  // namespace tool
