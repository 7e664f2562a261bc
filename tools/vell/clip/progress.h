// What the user sees while a command runs, and afterwards.
#pragma once

#include <chrono>
#include <cstdint>

#include "clip/frame_store.h"

namespace tool {

/// One line on the standard error stream, when that is a terminal: frames, percent, rate and time left.
class Progress {
public:
    explicit Progress(size_t frame_count);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void frames_done(size_t count);
    void erase();
    [[nodiscard]] double seconds() const;
    [[nodiscard]] size_t done() const { return done_; }

private:
    void draw();

    size_t frame_count_;
    size_t done_ = 0;
    bool is_visible_;
    size_t drawn_columns_ = 0;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point next_drawing_;
};

/// Writes what --stats asks for to the standard error stream, in the place of the progress line.
void print_statistics(Progress& progress, const StoreCounts& counts, uint64_t heap_bytes);

}  // namespace tool
