// The picture is made before the lock is taken: whoever prints may hold locks that the picture needs.

#include "ui/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "ui/text_columns.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr auto k_redraw_interval = std::chrono::milliseconds(200);
constexpr size_t k_roomy_columns = 70;  // a bar fits too
constexpr auto k_repeat_interval = std::chrono::seconds(1);

std::string duration_text(double seconds) {
    constexpr unsigned long long k_minute = 60, k_hour = 3600;
    const auto whole = static_cast<unsigned long long>(std::llround(seconds));
    char text[48];
    if (whole >= k_hour) {
        std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", whole / k_hour, whole / k_minute % k_minute,
                      whole % k_minute);
    } else {
        std::snprintf(text, sizeof text, "%llu:%02llu", whole / k_minute, whole % k_minute);
    }
    return text;
}

}  // namespace

Screen::Style Screen::style_for_terminal() {
    const char* terminal = std::getenv("TERM");
    const bool can_redraw = isatty(STDERR_FILENO) == 1 && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
    return can_redraw ? Style::redrawn : Style::none;
}

size_t Screen::columns() {
    constexpr size_t k_usual = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : k_usual;
}

size_t Screen::rows() {
    constexpr size_t k_usual = 24;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : k_usual;
}

void Screen::start() {
    if (style_ != Style::none) thread_ = std::thread([this] { work(); });
}

void Screen::stop() {
    {
        const std::lock_guard lock(lock_);
        has_ended_ = true;
        ended_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
    const std::lock_guard lock(lock_);
    erase();
    std::fflush(stderr);
}

void Screen::work() {
    for (;;) {
        const std::vector<std::string> lines = picture_();
        std::unique_lock lock(lock_);
        if (has_ended_) return;
        draw(lines);
        if (style_ == Style::redrawn) {
            ended_.wait_for(lock, k_redraw_interval, [this] { return has_ended_; });
        } else {
            ended_.wait_for(lock, k_repeat_interval, [this] { return has_ended_; });
        }
    }
}

void Screen::draw(const std::vector<std::string>& lines) {
    erase();
    FILE* stream = style_ == Style::redrawn ? stderr : stdout;
    // What has scrolled off a low terminal cannot be erased again.
    const size_t count = style_ == Style::redrawn ? std::min(lines.size(), rows() - 1) : lines.size();
    for (size_t i = 0; i < count; ++i)
        std::fprintf(stream, "%s\n", lines[i].c_str());
    if (style_ == Style::redrawn) drawn_lines_ = count;
    std::fflush(stream);
}

void Screen::erase() {
    // Cursor up and clear the line, for each line drawn.
    for (; drawn_lines_ > 0; --drawn_lines_)
        std::fprintf(stderr, "\033[A\033[2K\r");
}

void Screen::print(FILE* stream, const std::string& text) {
    const std::lock_guard lock(lock_);
    if (drawn_lines_ > 0) {
        erase();
        std::fflush(stderr);
    }
    std::fprintf(stream, "%s\n", text.c_str());
    std::fflush(stream);
}

bool has_printed_all() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
    std::fprintf(stderr, "vell: %s\n", tr("problem", "standard output: cannot be written"));
    return false;
}

bool may_colour() {
    const char* value = std::getenv("NO_COLOR");
    return value == nullptr || *value == '\0';
}

std::string bar_text(uint64_t bytes_done, uint64_t bytes_wanted, double seconds, size_t columns) {
    constexpr double k_megabyte = 1e6;
    const size_t cells = columns < k_roomy_columns ? 0 : 20;
    const uint64_t done = std::min(bytes_done, bytes_wanted);
    const double share = bytes_wanted > 0 ? static_cast<double>(done) / static_cast<double>(bytes_wanted) : 1;
    const double rate = static_cast<double>(done) / std::max(seconds, 1e-3);
    std::string bar(static_cast<size_t>(share * static_cast<double>(cells)), '#');
    bar.resize(cells, '.');
    if (!bar.empty()) bar = "[" + bar + "] ";
    const std::string left = rate > 0 ? duration_text(static_cast<double>(bytes_wanted - done) / rate) : "-:--";
    return bar +
           formatted(tr("progress", "%3.0f %%  %7.1f MB/s  %s left"), share * 100, rate / k_megabyte, left.c_str());
}

std::string fitted(const std::string& text, size_t columns) {
    constexpr size_t k_dots = 3;
    // The last column stays free: some terminals go on to the next line behind it.
    const size_t room = columns > 0 ? columns - 1 : 0;
    if (columns_of(text) <= room) return text;
    if (room <= k_dots) return std::string(end_within(text, room));
    return "..." + std::string(end_within(text, room - k_dots));
}

std::string progress_line(uint64_t bytes_done, uint64_t bytes_wanted, double seconds, const std::string& path,
                          size_t columns) {
    constexpr size_t k_fewest_columns = 5;  // that tell something of a path
    const std::string bar = bar_text(bytes_done, bytes_wanted, seconds, columns) + "  ";
    if (columns_of(bar) + k_fewest_columns > columns)
        return std::string(start_within(bar, columns > 0 ? columns - 1 : 0));
    return bar + fitted(path, columns - columns_of(bar));
}

}  // namespace tool
