// Sizes in messages, with three decimals and a decimal point whatever the locale.
#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace vell {

inline constexpr unsigned k_kib_bits = 10;
inline constexpr unsigned k_mib_bits = 20;

/// What printf's "%.3f" makes of double(`bytes`) / 2^`unit_bits` in the "C" locale.
class SizeText {
public:
    SizeText(uint64_t bytes, unsigned unit_bits) noexcept {
        const uint64_t unit = uint64_t{1} << unit_bits;
        // Through double like printf's argument, which rounds sizes above 2^53. A power of two divides exactly.
        const double size = static_cast<double>(bytes) / static_cast<double>(unit);
        const auto whole = static_cast<uint64_t>(size);
        const auto part = static_cast<uint64_t>((size - static_cast<double>(whole)) * static_cast<double>(unit));
        uint64_t thousandths = part * 1000 / unit;
        const uint64_t rest = part * 1000 % unit;
        if (2 * rest > unit || (2 * rest == unit && thousandths % 2 != 0)) ++thousandths;  // Ties go to even.
        std::snprintf(text_, sizeof text_, "%" PRIu64 ".%03u", whole + thousandths / 1000,
                      static_cast<unsigned>(thousandths % 1000));
    }
    [[nodiscard]] const char* text() const noexcept { return text_; }

private:
    char text_[32];
};

}  // namespace vell
