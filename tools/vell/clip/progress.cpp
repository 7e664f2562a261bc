// The progress line is plain text: it is redrawn over itself, and erased with blanks, so it needs no colours and no
// terminal control beyond a carriage return.

#include "clip/progress.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "ui/byte_size.h"
#include "ui/labelled_lines.h"
#include "ui/screen.h"
#include "ui/text_columns.h"
#include "ui/translation.h"
#include "vellcore/processing_pool.h"

namespace tool {
namespace {

constexpr auto k_redraw_interval = std::chrono::milliseconds(100);

/// The most memory that the process had resident. getrusage also counts what the program's caller had before it
/// became this program, so the process's own record is asked first, where there is one.
uint64_t peak_resident_bytes() {
    unsigned long long kib = 0;
    if (FILE* status = std::fopen("/proc/self/status", "re")) {
        char line[256];
        while (std::fgets(line, sizeof line, status) != nullptr && std::sscanf(line, "VmHWM: %llu", &kib) != 1) {
        }
        std::fclose(status);
    }
    if (kib != 0) return kib * 1024;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

}  // namespace

Progress::Progress(size_t frame_count)
    : frame_count_(frame_count),
      is_visible_(isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()),
      next_drawing_(start_ + k_redraw_interval) {}

Progress::~Progress() {
    erase();
}

double Progress::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::frames_done(size_t count) {
    done_ += count;
    const auto now = std::chrono::steady_clock::now();
    if (!is_visible_ || now < next_drawing_) return;
    next_drawing_ = now + k_redraw_interval;
    draw();
}

void Progress::draw() {
    const double rate = static_cast<double>(done_) / std::max(seconds(), 1e-9);
    const auto percent = static_cast<unsigned>(done_ * 100 / std::max<size_t>(frame_count_, 1));
    const double left = rate > 0 ? static_cast<double>(frame_count_ - done_) / rate : 0;
    std::string line = formatted(tr("progress", "%llu/%llu frames  %u %%  %.1f frames/s  %.0f s left"), number(done_),
                                 number(frame_count_), percent, rate, left);
    // A line that is wrapped cannot be drawn over.
    const size_t room = Screen::columns() - 1;
    if (columns_of(line) > room) line = formatted(tr("progress", "%u %%  %.0f s left"), percent, left);
    line = start_within(line, room);
    std::fprintf(stderr, "\r%s", padded(line, drawn_columns_).c_str());
    drawn_columns_ = columns_of(line);
    std::fflush(stderr);
}

void Progress::erase() {
    if (drawn_columns_ > 0) std::fprintf(stderr, "\r%s\r", padded("", drawn_columns_).c_str());
    drawn_columns_ = 0;
}

void print_statistics(Progress& progress, const StoreCounts& counts, uint64_t heap_bytes) {
    progress.erase();
    const double seconds = progress.seconds();
    const double rate = static_cast<double>(progress.done()) / std::max(seconds, 1e-9);
    LabelledLines lines;
    lines.add(tr("report", "frames"), formatted(tr("report", "%llu in %.2f s"), number(progress.done()), seconds));
    lines.add(tr("report", "rate"), formatted(tr("report", "%.1f frames/s"), rate));
    lines.add(tr("report", "threads"), std::to_string(smp_numprocs()));
    lines.add(tr("report", "heap"), format_byte_size(heap_bytes));
    lines.add(tr("report", "reads"), std::to_string(counts.reads));
    lines.add(tr("report", "cache hits"), std::to_string(counts.hits));
    lines.add(tr("report", "re-reads"), std::to_string(counts.rereads));
    lines.add(tr("report", "discards"), std::to_string(counts.discards));
    lines.add(tr("report", "waits for room"), std::to_string(counts.waits));
    lines.add(tr("report", "peak memory"), format_byte_size(peak_resident_bytes()));
    lines.print(stderr);
}

}  // namespace tool
