// What the buffered reader and writer share: rounding to the alignment of transfers, sizes, the stored file name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vell {

[[nodiscard]] constexpr uint64_t round_down(uint64_t value, uint64_t unit) noexcept {
    return value - value % unit;
}

/// Saturates at the largest multiple of `unit`.
[[nodiscard]] constexpr uint64_t round_up(uint64_t value, uint64_t unit) noexcept {
    const uint64_t rest = value % unit;
    if (rest == 0) return value;
    return value > UINT64_MAX - (unit - rest) ? round_down(UINT64_MAX, unit) : value + (unit - rest);
}

/// `size` times `count`, saturated.
[[nodiscard]] constexpr uint64_t total_bytes(uint64_t size, uint64_t count) noexcept {
    return count != 0 && size > UINT64_MAX / count ? UINT64_MAX : size * count;
}

/// Keeps a path in a fixed field, which it fills without a terminator when it is too long.
template <size_t bytes>
void store_path(char (&field)[bytes], const char* path) noexcept {
    const size_t length = strnlen(path, bytes);
    std::memcpy(field, path, length);
    std::memset(field + length, 0, bytes - length);
}

}  // namespace vell
