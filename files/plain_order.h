// Folding of case and the comparison of names as plain text, for A to Z only, whatever the process's locale is.
#pragma once

namespace vell {

[[nodiscard]] constexpr unsigned char folded(unsigned char byte) noexcept {
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

[[nodiscard]] constexpr bool is_digit(char byte) noexcept {
    return byte >= '0' && byte <= '9';
}

/// What strcasecmp does in the "C" locale.
[[nodiscard]] inline int plain_order(const char* a, const char* b) noexcept {
    for (;; ++a, ++b) {
        const int difference = folded(static_cast<unsigned char>(*a)) - folded(static_cast<unsigned char>(*b));
        if (difference != 0 || *a == '\0') return difference;
    }
}

/// Reads a run of digits as a number. `text` moves behind the run; digits that would carry the number beyond 32 bits,
/// and all after them, are not counted.
[[nodiscard]] constexpr unsigned take_number(const char*& text) noexcept {
    constexpr unsigned long long k_largest = 0xFFFFFFFF;
    unsigned long long number = 0;
    bool counts = true;
    for (; is_digit(*text); ++text) {
        const unsigned long long longer = number * 10 + static_cast<unsigned>(*text - '0');
        counts = counts && longer <= k_largest;
        if (counts) number = longer;
    }
    return static_cast<unsigned>(number);
}

}  // namespace vell
