// Calendar dates: day numbers, names, texts both ways, steps.

#include "vellcore/calendar_date.h"

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

date day_of(int year, int month, int day) {
    return date(year, month, day, 0, 0, 0);
}

std::string written(const date& d, int (date::*form)(char*, bool) const noexcept, bool with_time) {
    char text[64] = {};
    const int length = (d.*form)(text, with_time);
    EXPECT_EQ(static_cast<size_t>(length), std::string(text).size());
    return text;
}

TEST(Date, NumbersTheDaysOfTheYear) {
    const date any;
    const struct {
        int year, month, day, expected;
    } cases[] = {
        {2024, 2, 29, 60}, {2023, 2, 29, -1}, {2000, 12, 31, 366}, {1900, 3, 1, 60},    {1900, 2, 29, -1},
        {2021, 0, 1, -1},  {2021, 13, 1, -1}, {2021, 4, 31, -1},   {2021, 1, 0, -1},    {-1, 1, 1, -1},
        {0, 1, 1, 1},      {2021, 1, 1, 1},   {2024, 3, 1, 61},    {2021, 12, 31, 365},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(any.julian(c.year, c.month, c.day), c.expected) << c.year << '-' << c.month << '-' << c.day;
    }
    EXPECT_EQ(date::max_month_day(2024, 2), 29);
    EXPECT_EQ(date::max_month_day(-4, 2), 29);
    EXPECT_EQ(date::max_month_day(-1, 2), 28);
    EXPECT_EQ(date::max_month_day(2024, 0), 0);
    EXPECT_EQ(date::max_month_day(2024, 13), 0);
}

TEST(Date, CountsDaysFromYearOneAndKnowsTheWeekday) {
    const date newyear = day_of(2024, 1, 1);
    EXPECT_EQ(newyear.m_days, 738886);
    EXPECT_STREQ(newyear.day_name(false), "Monday");
    EXPECT_STREQ(newyear.day_name(true), "Mon");
    EXPECT_STREQ(newyear.month_name(false), "January");
    EXPECT_STREQ(day_of(2024, 12, 31).month_name(true), "Dec");
    EXPECT_EQ(day_of(1, 1, 1).m_days, 1);
    date odd = day_of(2024, 13, 1);
    EXPECT_EQ(odd.m_julian, -1);
    EXPECT_EQ(odd.month_name(false), nullptr);
    odd.m_days = -3;
    EXPECT_EQ(odd.day_name(false), nullptr);
}

struct ScanCase {
    const char* text;
    const char* format;
    const char* expected;  ///< "year-month-day hour:minute:second", or null for a failure
    const char* rest = "";
};

TEST(Date, ReadsTexts) {
    date now;
    const int century = now.m_year / 100 * 100;
    const std::string y21 = std::to_string(century + 21) + "-02-03 04:05:06";
    const std::string y23 = std::to_string(century + 23) + "-02-03 04:05:06";
    const std::string spring = std::to_string(century + 21) + "-03-05 04:05:06";
    const std::string y00 = std::to_string(century) + "-02-03 04:05:06";
    const ScanCase cases[] = {
        {"05-03-2021 14:07:09", nullptr, "2021-03-05 14:07:09"},
        {"05-03-2021 14:07:09 tail", "%c", "2021-03-05 14:07:09", " tail"},
        {"12:30 PM", "%I:%M %p", nullptr},
        {"11:30 PM", "%I:%M %p", "2000-02-03 23:30:06"},
        {"12:30 am", "%H:%M %p", "2000-02-03 00:30:06"},
        {"13:30 AM", "%H:%M %p", nullptr},
        {"21", "%y", y21.c_str()},
        {"0099", "%Y", "0099-02-03 04:05:06"},
        {"x", "%Yx", y00.c_str()},
        {"12345", "%5Y", "12345-02-03 04:05:06"},
        {"123", "%1Y%2Y", y23.c_str()},
        {"2021-07", "%Y-%m-%d", "2021-07-03 04:05:06"},
        {"5 3 2021", "%d-%m-%Y", "2000-02-05 04:05:06", " 3 2021"},
        {"Wednesday, March, 5, 2021", "%C", "2021-03-05 04:05:06"},
        {"wed JUN", "%a %b", "2000-06-03 04:05:06"},
        {"Foo", "%A", nullptr},
        {"May", "%B", "2000-05-03 04:05:06"},
        {"03/05/21", "%D", spring.c_str()},
        {"11:22:33 pm", "%r", "2000-02-03 23:22:33"},
        {"23:59", "%R", "2000-02-03 23:59:06"},
        {"24:00", "%R", nullptr},
        {"32", "%d", nullptr},
        {"0", "%e", "2000-02-00 04:05:06"},
        {"x", "%dx", "2000-02-00 04:05:06"},
        {"13", "%m", nullptr},
        {"0", "%m", nullptr},
        {"60", "%M", nullptr},
        {" 7", "%M %S", "2000-02-03 04:05:07"},
        {"366", "%j", "2000-02-03 04:05:06"},
        {"367", "%j", nullptr},
        {"9", "%Z", "0080-02-03 04:05:06"},
        {"x", "%Z", nullptr},
        {" ", "%Z", "2000-02-03 04:05:06", " "},
        {"100%", "%j%%", "2000-02-03 04:05:06"},
        {"7", "%q%H", "2000-02-03 07:05:06"},
        {"7", "%0H", "2000-02-03 07:05:06"},
        {"\t \n7", " %H%", "2000-02-03 07:05:06"},
        {"tail", "%", "2000-02-03 04:05:06", "tail"},
        {"a", "b", nullptr},
        {"", "%H", "2000-02-03 04:05:06"},
    };
    for (const ScanCase& c : cases) {
        date d(2000, 2, 3, 4, 5, 6);
        const char* end = d.scan(c.text, c.format, nullptr);
        const std::string label = std::string(c.text) + " with " + (c.format != nullptr ? c.format : "null");
        if (c.expected == nullptr) {
            EXPECT_EQ(end, nullptr) << label;
            continue;
        }
        ASSERT_NE(end, nullptr) << label;
        EXPECT_STREQ(end, c.rest) << label;
        char text[64];
        std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", d.m_year, d.m_month, d.m_day, d.m_hour,
                      d.m_minute, d.m_second);
        EXPECT_EQ(std::string(text), c.expected) << label;
        EXPECT_EQ(d.m_julian, d.julian(d.m_year, d.m_month, d.m_day)) << label;
    }
}

TEST(Date, KeepsWhatAFailedReadingReached) {
    date d(2000, 2, 3, 4, 5, 6);
    EXPECT_EQ(d.scan("17-99", "%d-%m", nullptr), nullptr);
    EXPECT_EQ(d.m_day, 17);
    EXPECT_EQ(d.m_julian, 34);
    EXPECT_EQ(d.scan(nullptr, "%d", nullptr), nullptr);
    EXPECT_EQ(date("nonsense").m_year, 0);
}

TEST(Date, AddsHoursToTheCounter) {
    date d(2000, 2, 3, 4, 5, 6);
    int extra = 0;
    EXPECT_NE(d.scan("24 120 36", "%G %O %o", &extra), nullptr);
    EXPECT_EQ(extra, 24 + 120 + 36);
    EXPECT_EQ(d.m_hour, 0);
    EXPECT_NE(d.scan("24 120", "%G %O", nullptr), nullptr);
    extra = INT_MAX - 1;
    EXPECT_NE(d.scan("999", "%O", &extra), nullptr);
    EXPECT_EQ(extra, INT_MAX);
    EXPECT_EQ(d.scan("25", "%G", &extra), nullptr);
}

TEST(Date, WritesItsFixedForms) {
    const date d(2021, 3, 5, 14, 7, 9);
    EXPECT_EQ(written(d, &date::format, true), "5-03-2021 14:07");
    EXPECT_EQ(written(d, &date::format, false), "5-03-2021");
    EXPECT_EQ(written(d, &date::format_xml, true), "2021-03-05T14:07:09");
    EXPECT_EQ(written(d, &date::format_xml, false), "2021-03-05");
    EXPECT_EQ(written(d, &date::format_num, true), "20210305_140709");
    EXPECT_EQ(written(d, &date::format_num, false), "20210305");
    EXPECT_EQ(d.format(nullptr, true), 0);
    date read;
    EXPECT_NE(read.scan_xml("2021-03-05T14:07:09", true), nullptr);
    EXPECT_TRUE(read == d);
    EXPECT_NE(read.scan_xml("2021-03-06", false), nullptr);
    EXPECT_TRUE(read != d);
    EXPECT_EQ(read - d, 1);
}

TEST(Date, StepsByDays) {
    const struct {
        int year, month, day;
        long n;
        const char* expected;
        int result;
    } cases[] = {
        {2021, 1, 1, -1, "2020-12-31", 0},    {1, 1, 1, -1, "0001-01-01", -1},
        {2021, 3, 10, -20, "2021-02-18", 0},  {2021, 3, 10, 5, "2021-03-15", 0},
        {2024, 2, 28, 1, "2024-02-29", 0},    {2024, 2, 28, 2, "2024-03-01", 0},
        {2023, 2, 28, 1, "2023-03-01", 0},    {2021, 12, 31, 1, "2022-01-01", 0},
        {1999, 12, 31, 366, "2000-12-31", 0}, {2000, 1, 1, -36525, "1899-12-31", 0},
        {2021, 6, 15, 0, "2021-06-15", 0},    {1, 12, 31, LONG_MIN, "0001-01-01", -1},
        {1903, 12, 31, 1, "1904-01-00", 0},   {1968, 12, 31, 1, "1969-01-01", 0},
    };
    for (const auto& c : cases) {
        date d = day_of(c.year, c.month, c.day);
        EXPECT_EQ(d.add_days(c.n), c.result) << c.expected;
        EXPECT_EQ(written(d, &date::format_xml, false), c.expected) << c.n;
    }
    date far = day_of(2021, 1, 1);
    EXPECT_EQ(far.add_days(LONG_MAX), 0);
    EXPECT_EQ(written(far, &date::format_xml, false), "2147483646-12-31");
}

// Every day of two centuries, one by one and in a jump, against the C library's calendar.
TEST(Date, AgreesWithTheSystemsCalendar) {
    setenv("TZ", "UTC", 1);
    tzset();
    date walking = day_of(1969, 1, 2);
    for (int n = 1; n < 365 * 200; ++n) {
        const time_t t = static_cast<time_t>(n - 365) * 86400;
        tm parts{};
        gmtime_r(&t, &parts);
        ASSERT_EQ(walking.m_year, parts.tm_year + 1900) << n;
        ASSERT_EQ(walking.m_julian, parts.tm_yday + 1) << n;
        ASSERT_EQ(walking.m_day, parts.tm_mday) << n;
        ASSERT_EQ(walking.m_month, parts.tm_mon + 1) << n;
        ASSERT_EQ(static_cast<long>(walking), t) << n;
        ASSERT_EQ(walking.add_days(1), 0);
    }
}

TEST(Date, CountsNoLeapDayOfTheTwoYearsInADifference) {
    EXPECT_EQ(day_of(2024, 3, 1) - day_of(2024, 2, 28), 1);
    EXPECT_EQ(day_of(2025, 1, 1) - day_of(2024, 1, 1), 366);
    EXPECT_EQ(day_of(2024, 13, 1) - day_of(2024, 1, 1), 0);
}

TEST(Date, TakesStandardTimeBack) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const date winter(2021, 1, 5, 12, 0, 0), summer(2021, 7, 5, 12, 0, 0);
    EXPECT_TRUE(date(static_cast<long>(winter)) == winter);
    EXPECT_EQ(date(static_cast<long>(summer)).m_hour, 13);
    // The second is a time that the system can break down, into a year whose full number does not fit its field.
    for (const long t : {LONG_MAX, 67768036191000000L}) {
        const date none(t);
        EXPECT_EQ(none.m_days, 0);
        EXPECT_EQ(none.m_year, 0);
    }
}

}  // namespace
