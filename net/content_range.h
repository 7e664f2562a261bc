// Which part of the whole a response brings.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/http_transport.h"

namespace vell {

/// A Content-Range field of bytes (RFC 9110, 14.4).
struct ContentRange {
    bool has_part = false;  ///< false: the whole is shorter than what was asked for ("bytes */1000")
    uint64_t first = 0, last = 0;
    uint64_t size = k_unknown_length;  ///< of the whole
};
/// Nothing for a text that is none, or contradicts itself.
[[nodiscard]] std::optional<ContentRange> parse_content_range(std::string_view text) noexcept;

/// A number of decimal digits and nothing else. Nothing for what 64 bits do not hold.
[[nodiscard]] std::optional<uint64_t> parse_length(std::string_view text) noexcept;

}  // namespace vell
