// The text of a line, from a format and its arguments.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "vellcore/export.h"

namespace vell {

/// Formats like vsnprintf and cuts what does not fit. Wide characters that the locale cannot convert become UTF-8;
/// where that fails too, the text is its format as it stands.
/// @return  the length of the text, bytes.
size_t format_text(char* out, size_t capacity, const char* format, va_list arguments) noexcept VELL_PRINTF(3, 0);

}  // namespace vell
