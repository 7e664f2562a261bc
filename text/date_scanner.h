// Reading a date from a text.
#pragma once

class date;

namespace vell {

/// Reads `text` after `format` (see date::scan) into the parts of `target`; the day numbers are left alone.
/// @return  the position after what was read, or null on failure.
const char* scan_date(date& target, const char* text, const char* format, int* extra) noexcept;

}  // namespace vell
