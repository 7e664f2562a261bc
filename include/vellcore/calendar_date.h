#pragma once
// date: a calendar date with a time of day.
//
// The calendar is the Gregorian one, extended to all years from 1; times are local. Names are English and nothing
// follows the locale. An object has no lock of its own; different objects may be used by different threads at once.

#include <cstddef>

#include "export.h"

/// A date and a time of day, 32 bytes.
///
/// The six parts and the two day numbers are kept together: m_days and m_julian follow from year, month and day.
class VELL_API date {
public:
    /// The current local time.
    date() noexcept;
    /// The local time of `t`, seconds since 1970 (see init).
    date(long t) noexcept;
    /// The parts as they are, unchecked. A day that does not exist gets the day of the year -1.
    date(int year, int month, int day, char hour, char minute, char second) noexcept;
    /// Reads `text` with the format "%c" ("05-03-2021 14:07:09"); a null or empty text gives the current time. Parts
    /// that the text does not reach are 0.
    date(const char* text) noexcept;
    date(const date&) noexcept = default;
    date& operator=(const date&) noexcept;

    /// Sets all parts from seconds since 1970, in local time. A time that the system cannot break down makes all 0.
    void init(long t) noexcept;
    /// Sets the current local time.
    void reset() noexcept;

    /// Days of a month, 28 to 31; 0 for a month outside 1 to 12.
    [[nodiscard]] static int max_month_day(int year, int month) noexcept;
    /// Day of the year, 1 to 366; -1 for a day that does not exist or a year below 0.
    [[nodiscard]] int julian(int year, int month, int day) const noexcept;
    /// "January" or "Jan"; null when the month is outside 1 to 12.
    [[nodiscard]] const char* month_name(bool abbreviated) const noexcept;
    /// "Sunday" or "Sun"; null for a day number before Sunday, day 0.
    [[nodiscard]] const char* day_name(bool abbreviated) const noexcept;

    /// Reads a text.
    ///
    /// @param text    what to read.
    /// @param format  null means "%c". White space stands for any run of white space, "%" starts a conversion, any
    ///                other character for itself. One digit between "%" and the letter of a number bounds its digits.
    /// @param extra   a counter of hours that "%G", "%O" and "%o" add to; may be null.
    /// @return  the position after what was read, or null on failure. A text that ends before the format does is a
    ///          success. After a failure the parts read so far keep their new values and the day numbers are stale.
    ///
    ///     A a     weekday name, not stored          H k  hour 0 to 23
    ///     B b h   month name                        I l  hour 0 to 11
    ///     d e     day 0 to 31                       G    hour 0 to 24; 24 is hour 0 and 24 more in the counter
    ///     m       month 1 to 12                     M S  minute, second 0 to 59; skipped at white space
    ///     Y y     year of up to 4, 2 digits         p    AM or PM, after the hour
    ///     j       day of the year, not stored       O o  hours of up to 3, 2 digits, added to the counter
    ///     C "%A, %B, %e, %Y"   c "%x %X"   x "%d-%m-%Y"   D "%m/%d/%y"
    ///     X T "%H:%M:%S"   R "%H:%M"   r "%I:%M:%S %p"
    ///     Z       one digit: the year becomes 71 for "0" up to 80 for "9"; skipped at white space
    ///     %       the character itself; other letters are skipped and read nothing
    ///
    /// A year of one or two digits belongs to the current century.
    /// Kept: "%I" refuses 12. After a number that white space follows in the text, the format goes on at its own next
    /// white space, and where it has none the reading ends there as a success: "5 3 2021" with "%d-%m-%Y" reads the
    /// day alone.
    const char* scan(const char* text, const char* format, int* extra) noexcept;
    /// Reads "2021-03-05T14:07:09", or "2021-03-05" without the time. Results as of scan.
    const char* scan_xml(const char* text, bool with_time) noexcept;

    /// Write "5-03-2021 14:07", "2021-03-05T14:07:09" and "20210305_140709", or without the time "5-03-2021",
    /// "2021-03-05" and "20210305". `out` needs 20 bytes for years of four digits and is not checked; null is refused.
    /// @return  the characters written, without the terminator; 0 for a null buffer.
    int format(char* out, bool with_time) const noexcept;
    int format_xml(char* out, bool with_time) const noexcept;
    int format_num(char* out, bool with_time) const noexcept;

    /// Moves the date by `n` days; the time of day stays.
    /// @return  0; -1 when the result would lie before year 1: the date is then 1 January of year 1.
    /// A date behind the last year that fits its field becomes that year's last day.
    /// Kept: 1 January of some leap years (1904 to 1964 and from 2204 on) reached from another year comes out as day 0.
    int add_days(long n) noexcept;

    /// Seconds since 1970, the parts taken as standard time (never daylight-saving); -1 when the system cannot tell.
    operator long() const noexcept;

    /// Equal when the day number and the time of day are.
    bool operator==(const date& other) const noexcept;
    bool operator!=(const date& other) const noexcept;
    /// Days from `other` to this date.
    /// Kept: a leap day in the years of the two dates themselves is not counted.
    long operator-(const date& other) const noexcept;

    long long m_days;    ///< absolute day number, 1 for 1 January of year 1
    int m_julian;        ///< day of the year from 1; -1 after an invalid date
    int m_year;          ///< in full: 2024
    int m_month;         ///< 1 to 12
    int m_day;           ///< 1 to 31
    signed char m_hour;  ///< 0 to 23
    signed char m_minute;
    signed char m_second;

    static const unsigned char m_month_days[12];  ///< days of each month in a common year
    static const int m_month_tot[13];             ///< days before each month in a common year

private:
    void store(int year, int month, int day, int hour, int minute, int second) noexcept;
    void number_days() noexcept;
    void find_month_and_day() noexcept;
};
static_assert(sizeof(date) == 32 && offsetof(date, m_julian) == 8 && offsetof(date, m_year) == 12 &&
                  offsetof(date, m_day) == 20 && offsetof(date, m_second) == 26,
              "hosts know the layout");
