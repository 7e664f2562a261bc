// Sizes in messages, with three decimals and a decimal point whatever the locale.
#pragma once

#include <cstdint>
#include <cstdio>

namespace vell {

inline constexpr unsigned k_kib_bits = 10;
inline constexpr unsigned k_mib_bits = 20;

/// What printf's "%.3f" makes of `bytes` / 2^`unit_bits` in the "C" locale.
class SizeText {
public:
    SizeText(uint64_t bytes, unsigned unit_bits) noexcept {
        const uint64_t unit = uint64_t{1} << unit_bits;
        const uint64_t scaled = (bytes % unit) * 1000;
        uint64_t thousandths = scaled / unit;
        const uint64_t rest = scaled % unit;
        if (2 * rest > unit || (2 * rest == unit && thousandths % 2 != 0)) ++thousandths;  // Ties go to even.
        std::snprintf(text_, sizeof text_, "%llu.%03u",
                      static_cast<unsigned long long>(bytes / unit + thousandths / 1000),
                      static_cast<unsigned>(thousandths % 1000));
    }
    [[nodiscard]] const char* text() const noexcept { return text_; }

private:
    char text_[32];
};

}  // namespace vell
