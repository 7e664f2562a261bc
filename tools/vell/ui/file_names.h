// Names are bytes. This is how they are shown, and how text formats carry them.
#pragma once

#include <optional>
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

/// As md5sum writes names with newlines: backslash, newline and carriage return as \\, \n and \r.
[[nodiscard]] std::string escape_name(std::string_view name);
/// Undoes it. Nothing for a backslash that is followed by something else.
[[nodiscard]] std::optional<std::string> unescape_name(std::string_view text);

/// True for a relative path that stays inside its folder: no empty part, no "." and "..", no zero byte.
[[nodiscard]] bool is_inside_path(std::string_view path);

}  // namespace tool
