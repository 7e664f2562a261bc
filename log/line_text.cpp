#include "log/line_text.h"

#include <algorithm>
#include <cstdio>

#include "platform/utf8_conversions.h"

namespace vell {

size_t format_text(char* out, size_t capacity, const char* format, va_list arguments) noexcept {
    va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(out, capacity, format, arguments);
    if (length < 0) {
        const Utf8Conversions conversions;
        length = std::vsnprintf(out, capacity, format, again);
    }
    va_end(again);
    if (length < 0) length = std::snprintf(out, capacity, "%s", format);
    return std::min(static_cast<size_t>(std::max(length, 0)), capacity - 1);
}

}  // namespace vell
