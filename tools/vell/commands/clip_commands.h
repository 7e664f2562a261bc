// The commands on clips. Each opens its clip, does its work and closes everything; each throws Failure.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

struct ClipOptions {
    std::string input;
    std::string output;       ///< where there is one
    uint64_t heap_bytes = 0;  ///< 0: a quarter of the memory, but no more than the clip can use
    uint32_t window = 0;      ///< frames that are averaged
    bool wants_statistics = false;
};

/// Most frames that can be averaged: their sums fit 32 bits.
inline constexpr uint32_t k_largest_window = 65536;

/// Prints what a clip is.
void print_clip_info(const ClipOptions& options);
/// Prints the MD5 sum of every frame, in the lines of "ffmpeg -bitexact -f framemd5".
void print_frame_sums(const ClipOptions& options);
/// Writes the clip at half its size.
void write_proxy(const ClipOptions& options);
/// Writes the mean over a window of frames around each frame, fewer at the clip's ends.
void write_average(const ClipOptions& options);
/// Writes the frames last to first.
void write_reverse(const ClipOptions& options);

}  // namespace tool
