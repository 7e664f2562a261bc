// Names are bytes. This is how they are shown, and how JSON carries them.
#pragma once

#include <string>
#include <string_view>

namespace tool {

/// For a person's terminal: text stays; control characters, what changes the direction of text, backslashes and bytes
/// that are no UTF-8 become \n, \t, \\ or \x and two hexadecimal digits for each byte.
[[nodiscard]] std::string printable_name(std::string_view name);

/// A JSON string with its quotes, which a terminal can show too. Bytes that are no UTF-8 become U+FFFD; `is_exact`
/// tells whether there were none.
[[nodiscard]] std::string json_string(std::string_view name, bool* is_exact = nullptr);

/// "name":"...", and "name_hex":"..." with all bytes when the text alone would not give them back.
[[nodiscard]] std::string json_name(std::string_view key, std::string_view name);

}  // namespace tool
