// Names in lists and journals.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// As md5sum writes names with newlines: backslash, newline and carriage return as \\, \n and \r.
[[nodiscard]] std::string escape_name(std::string_view name);
/// Reverses escape_name(); returns nothing for text that it cannot have produced.
[[nodiscard]] std::optional<std::string> unescape_name(std::string_view text);

/// True for a relative path that stays inside its folder: no empty part, no "." and "..", no zero byte.
[[nodiscard]] bool is_inside_path(std::string_view path);

}  // namespace tool
