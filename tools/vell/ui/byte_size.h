// Sizes as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// Reads "67108864", "65536K", "64M", "2G" or "1T": powers of 1024, upper or lower case. Nothing for anything else,
/// for 0 and for more than 64 bits hold.
[[nodiscard]] std::optional<uint64_t> parse_byte_size(std::string_view text);

/// "64.0 MiB", "1.5 GiB", "512 B".
[[nodiscard]] std::string format_byte_size(uint64_t bytes);

}  // namespace tool
