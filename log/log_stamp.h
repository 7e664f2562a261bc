// How the front of a log line is put together.
#pragma once

#include <cstddef>

namespace vell {

/// Bytes before the text of every line: "HH:MM:SS.cc LEVEL: " of an entry, seventeen blanks and ": " of a
/// continuation.
inline constexpr size_t k_prefix_bytes = 19;

/// Writes the 19 bytes "%02d:%02d:%05.2f %s: " for a time of day in seconds (0 to 86400) and a five-letter level
/// name. The decimal sign is a point whatever the locale; the rounding is printf's, so that a moment before the full
/// minute can read 60.00.
void write_stamp(char* out, double seconds_of_day, const char* level_name) noexcept;

/// `seconds` (0 to 60) in hundredths, rounded as printf rounds "%.2f": to nearest by the exact binary value, ties to
/// the even hundredth.
int hundredths_of(double seconds) noexcept;

}  // namespace vell
