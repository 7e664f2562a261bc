// Columns of a terminal, which are neither bytes nor characters: an ideograph takes two, an accent of its own none.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace tool {

/// The columns that a text without control characters takes. A byte that is no UTF-8 takes one.
[[nodiscard]] size_t columns_of(std::string_view text);

/// The text with blanks behind it, up to so many columns. A longer one stays as it is.
[[nodiscard]] std::string padded(std::string_view text, size_t columns);

/// The columns of the widest text.
[[nodiscard]] size_t widest_of(std::initializer_list<std::string_view> texts);

/// The start of the text that fits into so many columns, and the longest end of it that does.
[[nodiscard]] std::string_view start_within(std::string_view text, size_t columns);
[[nodiscard]] std::string_view end_within(std::string_view text, size_t columns);

}  // namespace tool
