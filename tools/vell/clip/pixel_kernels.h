// What is done to samples. Each function does one share of its work, so that all shares can run at once.
#pragma once

#include <cstdint>
#include <span>

#include "clip/y4m_format.h"

namespace tool {

/// Halves a frame with a box filter: each sample becomes the mean of a square of two by two, rounded to nearest,
/// halves up. At an odd edge the last column and row stand twice.
/// @param half    the format of the result: format.halved().
void halve_frame(const ClipFormat& format, const ClipFormat& half, const unsigned char* in, unsigned char* out,
                 int32_t share, int32_t shares);

/// Adds frames to sums, one sum per sample of a frame.
/// @param start_anew  the sums start from 0 instead of what they are.
/// Sums hold 65,536 frames of 16 bits.
void add_frames(const ClipFormat& format, std::span<const unsigned char* const> frames, bool start_anew, uint32_t* sums,
                int32_t share, int32_t shares);

/// Turns sums of `count` frames into their mean, rounded to nearest, halves up.
void divide_sums(const ClipFormat& format, const uint32_t* sums, uint32_t count, unsigned char* out, int32_t share,
                 int32_t shares);

}  // namespace tool
