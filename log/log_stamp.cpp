// The time stamp, formatted by hand: printf's "%.2f" would cost half of a whole log line and follow LC_NUMERIC.

#include "log/log_stamp.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace vell {
namespace {

void write_two_digits(char* out, int value) noexcept {
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
}

}  // namespace

int hundredths_of(double seconds) noexcept {
    const double product = seconds * 100.0;
    const double rounded = std::nearbyint(product);
    // The product itself was rounded, so one that looks like a tie may not be. Its exact error settles that.
    const double error = std::fma(seconds, 100.0, -product);
    const double beyond = product - rounded;
    if (beyond == 0.5 && error > 0) return static_cast<int>(rounded) + 1;
    if (beyond == -0.5 && error < 0) return static_cast<int>(rounded) - 1;
    return static_cast<int>(rounded);
}

void write_stamp(char* out, double seconds_of_day, const char* level_name) noexcept {
    const int32_t whole = static_cast<int32_t>(seconds_of_day);
    const int32_t hours = whole / 3600;
    const int32_t minutes = (whole - hours * 3600) / 60;
    const int hundredths = hundredths_of(seconds_of_day - (minutes * 60 + hours * 3600));
    write_two_digits(out, hours);
    out[2] = ':';
    write_two_digits(out + 3, minutes);
    out[5] = ':';
    write_two_digits(out + 6, hundredths / 100);
    out[8] = '.';
    write_two_digits(out + 9, hundredths % 100);
    out[11] = ' ';
    std::memcpy(out + 12, level_name, 5);
    out[17] = ':';
    out[18] = ' ';
}

}  // namespace vell
