// Lines that stay, and under them lines that are redrawn while the work goes on.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tool {

/// Redrawing happens on the standard error stream, and only where the cursor can be moved. Any thread may print.
class Screen {
public:
    enum class Style {
        redrawn,   ///< the picture is drawn over itself, a few times a second
        repeated,  ///< the picture's lines are printed to the standard output, once a second
        none,
    };
    using Picture = std::function<std::vector<std::string>()>;

    Screen(Style style, Picture picture) : style_(style), picture_(std::move(picture)) {}
    ~Screen() { stop(); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    void start();
    /// Erases the picture; it does not come back.
    void stop();
    /// A line that stays; the newline is added.
    void print(FILE* stream, const std::string& text);

    /// redrawn on a terminal that can, none elsewhere.
    [[nodiscard]] static Style style_for_terminal();
    [[nodiscard]] static size_t columns();
    [[nodiscard]] static size_t rows();

private:
    void work();
    void draw(const std::vector<std::string>& lines);
    void erase();

    const Style style_;
    const Picture picture_;
    std::mutex lock_;  ///< guards what follows, and the streams
    std::condition_variable ended_;
    bool has_ended_ = false;
    size_t drawn_lines_ = 0;
    std::thread thread_;
};

/// False, and told of, when something printed to the standard output got lost.
[[nodiscard]] bool has_printed_all();

/// True unless NO_COLOR is set.
[[nodiscard]] bool may_colour();

/// How far a piece of work is: "[####......]  40 %   512.0 MB/s  0:04 left", without the bar where columns are few.
[[nodiscard]] std::string bar_text(uint64_t bytes_done, uint64_t bytes_wanted, double seconds, size_t columns);
/// The same with the path that it is about, as far as the columns go.
[[nodiscard]] std::string progress_line(uint64_t bytes_done, uint64_t bytes_wanted, double seconds,
                                        const std::string& path, size_t columns);
/// Cut to the columns at its start, since a path's end tells more.
[[nodiscard]] std::string fitted(const std::string& text, size_t columns);

}  // namespace tool
