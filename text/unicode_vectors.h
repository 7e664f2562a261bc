// The fast parts of walking over Unicode text and of converting it: whole vectors of well-formed text at a time.
//
// They read text[0] to text[to], of which only the last may be the terminator. They start and stop between characters,
// and stop at the latest where something is malformed, or where a whole vector's output might not fit. They may write
// more than they count, but within the room.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

struct TextProgress {
    size_t taken;  // elements of the text
    size_t made;   // elements written, or characters counted
};

[[nodiscard]] TextProgress count_utf8_vectors(const uint8_t* text, size_t from, size_t to) noexcept;

/// Units are written as bytes, at any address; `room` counts units.
[[nodiscard]] TextProgress utf8_to_utf16_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out,
                                                 size_t room) noexcept;
[[nodiscard]] TextProgress utf8_to_utf32_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out,
                                                 size_t room) noexcept;

/// The text is given as bytes, at any address; `from` and `to` count units.
[[nodiscard]] TextProgress utf16_to_utf8_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out,
                                                 size_t room) noexcept;
[[nodiscard]] TextProgress utf32_to_utf8_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out,
                                                 size_t room) noexcept;

/// 16-bit units before the terminator, at most `limit`. Reads up to 31 bytes behind it, never from another page.
[[nodiscard]] size_t utf16_units_before_end(const uint8_t* text, size_t limit) noexcept;

}  // namespace vell
