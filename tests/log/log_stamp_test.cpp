#include "log/log_stamp.h"

#include <cmath>
#include <ctime>
#include <random>

#include "support/log_capture.h"

namespace {

std::string stamp_by_printf(double seconds_of_day) {
    const int whole = static_cast<int>(seconds_of_day);
    const int hours = whole / 3600;
    const int minutes = (whole - hours * 3600) / 60;
    char text[64];
    std::snprintf(text, sizeof text, "%02d:%02d:%05.2f INFO : ", hours, minutes,
                  seconds_of_day - (minutes * 60 + hours * 3600));
    return text;
}

std::string stamp_by_hand(double seconds_of_day) {
    char text[vell::k_prefix_bytes];
    vell::write_stamp(text, seconds_of_day, "INFO ");
    return {text, sizeof text};
}

TEST(LogStamp, EqualsPrintfForTiesAndEverydayTimes) {
    for (const double seconds : {0.0, 59.994999, 59.995, 59.996, 0.125, 0.375, 1.005, 2.675, 86399.999, 3599.995})
        EXPECT_EQ(stamp_by_hand(seconds), stamp_by_printf(seconds)) << seconds;
    std::mt19937_64 random(1);
    std::uniform_real_distribution<> any_time(0, 86399);
    for (int i = 0; i < 200000; ++i) {
        const double seconds = any_time(random);
        ASSERT_EQ(stamp_by_hand(seconds), stamp_by_printf(seconds)) << seconds;
        const double tie = std::floor(seconds) + i % 200 / 200.0;
        const double beside_tie = std::nextafter(tie, i % 2 == 0 ? 0 : 1e6);
        ASSERT_EQ(stamp_by_hand(beside_tie), stamp_by_printf(beside_tie)) << beside_tie;
    }
}

TEST(LogStamp, RoundsUpToSixtySeconds) {
    EXPECT_EQ(stamp_by_hand(119.999), "00:01:60.00 INFO : ");
}

TEST(LogStamp, ShowsTheLocalTimeOfDay) {
    mp_init_clock();
    const LogCapture log;
    msginfo("a");
    int hours = 0, minutes = 0;
    double seconds = 0;
    ASSERT_EQ(std::sscanf(log.text().c_str(), "%d:%d:%lf INFO", &hours, &minutes, &seconds), 3);
    const time_t now = time(nullptr);
    tm parts{};
    localtime_r(&now, &parts);
    const double shown = hours * 3600 + minutes * 60 + seconds;
    const double expected = parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec;
    EXPECT_LT(std::fmod(expected - shown + 86400, 86400), 60);
}

}  // namespace
