// Calendar dates: parts, day numbers, fixed textual forms and arithmetic. Reading texts is in date_scanner.cpp.
//
// Day numbers count from 1 January of year 1, which is day 1, a Monday, so that a day number modulo 7 is the weekday
// with 0 for Sunday.

#include "vellcore/calendar_date.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>

#include "platform/calendar_time.h"
#include "text/date_names.h"
#include "text/date_scanner.h"

namespace {

constexpr double k_days_per_year = 365.2425;
constexpr int32_t k_last_year = std::numeric_limits<int32_t>::max() - 1;

bool is_leap(int64_t year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int days_in_year(int64_t year) noexcept {
    return is_leap(year) ? 366 : 365;
}

bool is_month(int month) noexcept {
    return month >= 1 && month <= 12;
}

/// Days of all years before `year`.
int64_t days_before(int64_t year) noexcept {
    if (year < 2) return 0;
    const int64_t past = year - 1;
    return past * 365 + past / 4 - past / 100 + past / 400;
}

/// Days before the date in a calendar whose years all have a common year's months.
int64_t days_without_own_leap_day(const date& day) noexcept {
    const int before_month = is_month(day.m_month) ? date::m_month_tot[day.m_month - 1] : 0;
    return days_before(day.m_year) + before_month + day.m_day;
}

int64_t saturated_sum(int64_t a, int64_t b) noexcept {
    int64_t sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return b < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

}  // namespace

const unsigned char date::m_month_days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const int date::m_month_tot[13] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

date::date() noexcept {
    reset();
}

date::date(long t) noexcept {
    init(t);
}

date::date(int year, int month, int day, char hour, char minute, char second) noexcept {
    store(year, month, day, hour, minute, second);
}

date::date(const char* text) noexcept {
    if (text == nullptr || *text == '\0') {
        reset();
        return;
    }
    m_days = 0;
    m_julian = m_year = m_month = m_day = 0;
    m_hour = m_minute = m_second = 0;
    scan(text, "%c", nullptr);
}

date& date::operator=(const date&) noexcept = default;

void date::store(int year, int month, int day, int hour, int minute, int second) noexcept {
    m_year = year;
    m_month = month;
    m_day = day;
    m_hour = static_cast<signed char>(hour);
    m_minute = static_cast<signed char>(minute);
    m_second = static_cast<signed char>(second);
    number_days();
}

void date::number_days() noexcept {
    m_julian = julian(m_year, m_month, m_day);
    m_days = m_julian + days_before(m_year);
}

void date::init(long t) noexcept {
    constexpr int32_t k_largest_tm_year = std::numeric_limits<int32_t>::max() - 1900;
    tm parts{};
    if (!vell::local_fields(t, parts) || parts.tm_year > k_largest_tm_year) {
        store(0, 0, 0, 0, 0, 0);
        m_julian = 0;
        m_days = 0;
        return;
    }
    store(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

void date::reset() noexcept {
    init(time(nullptr));
}

int date::max_month_day(int year, int month) noexcept {
    if (!is_month(month)) return 0;
    return m_month_days[month - 1] + (month == 2 && is_leap(year) ? 1 : 0);
}

int date::julian(int year, int month, int day) const noexcept {
    if (day < 1 || year < 0 || day > max_month_day(year, month)) return -1;
    return day + m_month_tot[month - 1] + (month >= 3 && is_leap(year) ? 1 : 0);
}

const char* date::month_name(bool abbreviated) const noexcept {
    if (!is_month(m_month)) return nullptr;
    return (abbreviated ? vell::k_month_abbreviations : vell::k_month_names)[m_month - 1];
}

const char* date::day_name(bool abbreviated) const noexcept {
    const int64_t weekday = m_days % 7;
    if (weekday < 0) return nullptr;
    return (abbreviated ? vell::k_day_abbreviations : vell::k_day_names)[weekday];
}

const char* date::scan(const char* text, const char* format, int* extra) noexcept {
    if (text == nullptr) return nullptr;
    const char* end = vell::scan_date(*this, text, format != nullptr ? format : "%c", extra);
    if (end != nullptr) number_days();
    return end;
}

const char* date::scan_xml(const char* text, bool with_time) noexcept {
    return scan(text, with_time ? "%Y-%m-%dT%H:%M:%S" : "%Y-%m-%d", nullptr);
}

int date::format(char* out, bool with_time) const noexcept {
    if (out == nullptr) return 0;
    if (!with_time) return std::sprintf(out, "%d-%02d-%d", m_day, m_month, m_year);
    return std::sprintf(out, "%d-%02d-%d %d:%02d", m_day, m_month, m_year, m_hour, m_minute);
}

int date::format_xml(char* out, bool with_time) const noexcept {
    if (out == nullptr) return 0;
    if (!with_time) return std::sprintf(out, "%04d-%02d-%02d", m_year, m_month, m_day);
    return std::sprintf(out, "%04d-%02d-%02dT%02d:%02d:%02d", m_year, m_month, m_day, m_hour, m_minute, m_second);
}

int date::format_num(char* out, bool with_time) const noexcept {
    if (out == nullptr) return 0;
    if (!with_time) return std::sprintf(out, "%04d%02d%02d", m_year, m_month, m_day);
    return std::sprintf(out, "%04d%02d%02d_%02d%02d%02d", m_year, m_month, m_day, m_hour, m_minute, m_second);
}

/// Month and day from the day of the year.
void date::find_month_and_day() noexcept {
    const int leap = m_julian >= 60 && is_leap(m_year) ? 1 : 0;
    for (int month = 1; month <= 12; ++month) {
        if (m_julian > m_month_tot[month] + leap) continue;
        m_month = month;
        m_day = m_julian - m_month_tot[month - 1] - (month >= 3 ? leap : 0);
        return;
    }
    m_day = m_month = m_year = 1;
}

int date::add_days(long n) noexcept {
    const int64_t day_of_year = saturated_sum(m_julian, n);
    if (day_of_year >= 1 && day_of_year < days_in_year(m_year) - 1) {
        m_julian = static_cast<int32_t>(day_of_year);
        m_days += n;
        const bool stays_in_month =
            is_month(m_month) && m_julian < m_month_tot[m_month] - 1 && m_day >= 2 && m_day + n >= 1;
        if (stays_in_month) {
            m_day += static_cast<int32_t>(n);
        } else {
            find_month_and_day();
        }
        return 0;
    }
    m_days = std::min(saturated_sum(m_days, n), days_before(k_last_year + 1));
    int64_t year = static_cast<int64_t>(static_cast<double>(m_days) / k_days_per_year) + 1;
    int64_t in_year = m_days - days_before(year);
    if (in_year < 1) in_year = m_days - days_before(--year);
    if (in_year < 1) {
        m_days = 1;
        m_julian = m_day = m_month = m_year = 1;
        return -1;
    }
    // Kept: what is taken off is the length of the year that begins, not of the one that ended.
    if (in_year > days_in_year(year)) in_year -= days_in_year(++year);
    m_year = static_cast<int32_t>(year);
    m_julian = static_cast<int32_t>(in_year);
    find_month_and_day();
    return 0;
}

date::operator long() const noexcept {
    tm parts{};
    if (!vell::local_fields(time(nullptr), parts)) return -1;
    constexpr int32_t k_first_year = std::numeric_limits<int32_t>::min() + 1900;
    parts.tm_mday = m_day;
    parts.tm_mon = std::max(m_month, std::numeric_limits<int32_t>::min() + 1) - 1;
    parts.tm_year = std::max(m_year, k_first_year) - 1900;
    parts.tm_hour = +m_hour;
    parts.tm_min = +m_minute;
    parts.tm_sec = +m_second;
    parts.tm_wday = parts.tm_yday = parts.tm_isdst = 0;
    return vell::moment_of_local(parts);
}

bool date::operator==(const date& other) const noexcept {
    return m_days == other.m_days && m_hour == other.m_hour && m_minute == other.m_minute && m_second == other.m_second;
}

bool date::operator!=(const date& other) const noexcept {
    return !(*this == other);
}

long date::operator-(const date& other) const noexcept {
    return static_cast<long>(days_without_own_leap_day(*this) - days_without_own_leap_day(other));
}
