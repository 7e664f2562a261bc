// The date scanner: walks a format and a text side by side.
//
// A conversion is one entry in the switch of DateScanner::convert. Numbers all go through read_number; the formats
// within formats go through the scanner itself, one level deep at most twice ("%c" holds "%x").

#include "text/date_scanner.h"

#include <climits>
#include <cstddef>
#include <ctime>

#include "platform/calendar_time.h"
#include "text/date_names.h"
#include "vellcore/calendar_date.h"

namespace vell {
namespace {

bool is_space(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

char folded(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Length of `name` when `text` starts with it, whatever the case; else 0.
size_t match_name(const char* text, const char* name) noexcept {
    size_t i = 0;
    for (; name[i] != '\0'; ++i) {
        if (folded(text[i]) != folded(name[i])) return 0;
    }
    return i;
}

int current_century() noexcept {
    tm parts{};
    if (!vell::local_fields(time(nullptr), parts)) return 0;
    return (parts.tm_year + 1900) / 100 * 100;
}

class DateScanner {
public:
    DateScanner(date& target, const char* text, const char* format, int* extra) noexcept
        : target_(target), text_(text), format_(format), extra_(extra) {}

    const char* run() noexcept {
        while (*format_ != '\0' && *text_ != '\0') {
            const char expected = *format_++;
            if (is_space(expected)) {
                skip_space();
            } else if (expected != '%') {
                if (*text_++ != expected) return nullptr;
            } else if (!convert_next()) {
                return nullptr;
            }
        }
        return text_;
    }

private:
    void skip_space() noexcept {
        while (is_space(*text_))
            ++text_;
    }

    /// What follows the "%": an optional width and the letter. Either may be missing at the end of the format.
    bool convert_next() noexcept {
        width_ = 0;
        if (is_digit(*format_)) width_ = *format_++ - '0';
        return *format_ == '\0' || convert(*format_++);
    }

    bool convert(char letter) noexcept {
        // clang-format off
        switch (letter) {
            case 'A': case 'a': return read_name(k_day_names, k_day_abbreviations, 7) >= 0;
            case 'B': case 'b': case 'h': return read_month_name();
            case 'C': return nested("%A, %B, %e, %Y");
            case 'c': return nested("%x %X");
            case 'x': return nested("%d-%m-%Y");
            case 'X': case 'T': return nested("%H:%M:%S");
            case 'D': return nested("%m/%d/%y");
            case 'R': return nested("%H:%M");
            case 'r': return nested("%I:%M:%S %p");
            case 'p': return read_half_of_day();
            case '%': return *text_++ == '%';
            case 'Z': return is_space(*text_) || read_decade();
            case 'M': return is_space(*text_) || read_into(target_.m_minute, 59);
            case 'S': return is_space(*text_) || read_into(target_.m_second, 59);
            case 'H': case 'k': return read_into(target_.m_hour, 23);
            case 'I': case 'l': return read_into(target_.m_hour, 11);
            case 'G': return read_long_hour();
            case 'd': case 'e': return read_day();
            case 'm': return read_month();
            case 'Y': return read_year(4);
            case 'y': return read_year(2);
            case 'j': return read_bounded(3, 366) >= 0;
            case 'O': return read_hours(3);
            case 'o': return read_hours(2);
            default: return true;
        }
        // clang-format on
    }

    bool nested(const char* format) noexcept {
        text_ = DateScanner(target_, text_, format, nullptr).run();
        return text_ != nullptr;
    }

    /// @return  the index of the first name that the text starts with, or -1.
    int read_name(const char* const* names, const char* const* abbreviations, int count) noexcept {
        for (int i = 0; i < count; ++i) {
            size_t length = match_name(text_, names[i]);
            if (length == 0) length = match_name(text_, abbreviations[i]);
            if (length == 0) continue;
            text_ += length;
            return i;
        }
        return -1;
    }

    bool read_month_name() noexcept {
        const int index = read_name(k_month_names, k_month_abbreviations, 12);
        if (index >= 0) target_.m_month = index + 1;
        return index >= 0;
    }

    /// Reads digits up to the width; none make 0. @return their count.
    int read_number(int default_width, int& value) noexcept {
        const int width = width_ != 0 ? width_ : default_width;
        int digits = 0;
        for (value = 0; digits < width && is_digit(*text_); ++digits)
            value = value * 10 + (*text_++ - '0');
        return digits;
    }

    /// After a number that white space follows, the format goes on at its own next white space.
    bool end_number() noexcept {
        if (is_space(*text_)) {
            while (*format_ != '\0' && !is_space(*format_))
                ++format_;
        }
        return true;
    }

    /// A number that needs a digit. @return it, or -1 when there is none or it is above `limit`.
    int read_bounded(int default_width, int limit) noexcept {
        int value = 0;
        if (read_number(default_width, value) == 0 || value > limit) return -1;
        end_number();
        return value;
    }

    bool read_into(signed char& field, int limit) noexcept {
        const int value = read_bounded(2, limit);
        if (value >= 0) field = static_cast<signed char>(value);
        return value >= 0;
    }

    bool read_long_hour() noexcept {
        const int value = read_bounded(2, 24);
        if (value < 0) return false;
        if (value == 24) count_hours(24);
        target_.m_hour = static_cast<signed char>(value % 24);
        return true;
    }

    bool read_hours(int default_width) noexcept {
        constexpr int k_nine_digits = 999'999'999;
        const int value = read_bounded(default_width, k_nine_digits);
        if (value >= 0) count_hours(value);
        return value >= 0;
    }

    void count_hours(int hours) noexcept {
        if (extra_ != nullptr && __builtin_add_overflow(*extra_, hours, extra_)) *extra_ = INT_MAX;
    }

    // Kept: a day without a digit is 0, and a year without one the century's first.
    bool read_day() noexcept {
        int value = 0;
        skip_space();
        read_number(2, value);
        if (value > 31) return false;
        target_.m_day = value;
        return end_number();
    }

    bool read_month() noexcept {
        int value = 0;
        skip_space();
        read_number(2, value);
        if (value < 1 || value > 12) return false;
        target_.m_month = value;
        return end_number();
    }

    bool read_year(int default_width) noexcept {
        int value = 0;
        skip_space();
        const int digits = read_number(default_width, value);
        target_.m_year = digits <= 2 ? current_century() + value : value;
        return end_number();
    }

    // Kept: the digit stands for a year from 71 to 80.
    bool read_decade() noexcept {
        if (!is_digit(*text_)) return false;
        target_.m_year = *text_++ + 23;
        return end_number();
    }

    bool read_half_of_day() noexcept {
        const bool is_morning = match_name(text_, "AM") != 0;
        if ((!is_morning && match_name(text_, "PM") == 0) || target_.m_hour > 12) return false;
        text_ += 2;
        if (is_morning && target_.m_hour == 12) target_.m_hour = 0;
        if (!is_morning && target_.m_hour != 12) target_.m_hour = static_cast<signed char>(target_.m_hour + 12);
        return true;
    }

    date& target_;
    const char* text_;
    const char* format_;
    int* extra_;
    int width_ = 0;  // digit after the "%"; 0 for the conversion's own width
};

}  // namespace

const char* scan_date(date& target, const char* text, const char* format, int* extra) noexcept {
    return DateScanner(target, text, format, extra).run();
}

}  // namespace vell
