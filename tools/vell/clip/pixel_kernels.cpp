// Kernels over samples of 8 and 16 bits. Planes start at multiples of their sample size in a frame, and frames at
// pages, so samples can be read as what they are.

#include "clip/pixel_kernels.h"

#include <algorithm>
#include <bit>

#include "clip/share_out.h"

namespace tool {
namespace {

static_assert(std::endian::native == std::endian::little, "clips hold little-endian words");

template <class Sample>
struct Plane {
    Sample* samples;
    uint32_t width;
    uint32_t height;

    [[nodiscard]] Sample* row(uint64_t y) const { return samples + y * width; }
};

template <class Sample, class Byte>
Plane<Sample> plane_of(const ClipFormat& format, uint32_t index, Byte* frame) {
    const PlaneShape shape = format.plane(index);
    return {reinterpret_cast<Sample*>(frame + shape.byte_start), shape.width, shape.height};
}

template <class Sample>
void halve_row(const Sample* upper, const Sample* lower, uint32_t width, Sample* out) {
    const uint32_t pairs = width / 2;
    for (uint32_t x = 0; x < pairs; ++x) {
        const uint32_t sum = uint32_t{upper[2 * x]} + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
        out[x] = static_cast<Sample>((sum + 2) / 4);
    }
    if (width % 2 != 0) out[pairs] = static_cast<Sample>((2u * upper[width - 1] + 2u * lower[width - 1] + 2) / 4);
}

template <class Sample>
void halve_planes(const ClipFormat& format, const ClipFormat& half, const unsigned char* in, unsigned char* out,
                  int32_t share, int32_t shares) {
    for (uint32_t index = 0; index < format.plane_count; ++index) {
        const auto from = plane_of<const Sample>(format, index, in);
        const auto to = plane_of<Sample>(half, index, out);
        const RowRange rows = rows_of_share(to.height, share, shares);
        for (uint64_t y = rows.first; y < rows.end; ++y) {
            const uint64_t below = std::min<uint64_t>(2 * y + 1, from.height - 1);
            halve_row(from.row(2 * y), from.row(below), from.width, to.row(y));
        }
    }
}

/// Samples that are summed at once, so that the sums stay in the processor's nearest cache while frames go by.
constexpr uint64_t k_run = 2048;

template <class Sample>
void add_runs(std::span<const unsigned char* const> frames, RowRange range, bool start_anew, uint32_t* sums) {
    for (uint64_t first = range.first; first < range.end; first += k_run) {
        const uint64_t end = std::min(first + k_run, range.end);
        if (start_anew) std::fill(sums + first, sums + end, 0u);
        for (const unsigned char* frame : frames) {
            const auto* samples = reinterpret_cast<const Sample*>(frame);
            for (uint64_t i = first; i < end; ++i)
                sums[i] += samples[i];
        }
    }
}

/// The mean by a multiplication: for sums below 2^32 and counts from 2 up, floor(sum / count) is the high part of
/// sum * ceil(2^64 / count), since the rounding of the factor adds less than sum / 2^64 < 1 / count.
template <class Sample>
void divide_run(const uint32_t* sums, RowRange range, uint32_t count, Sample* out) {
    if (count == 1) {
        for (uint64_t i = range.first; i < range.end; ++i)
            out[i] = static_cast<Sample>(sums[i]);
        return;
    }
    const uint64_t factor = UINT64_MAX / count + 1;
    for (uint64_t i = range.first; i < range.end; ++i) {
        const uint64_t rounded = uint64_t{sums[i]} + count / 2;
        out[i] = static_cast<Sample>(static_cast<unsigned __int128>(rounded) * factor >> 64);
    }
}

RowRange samples_of_share(const ClipFormat& format, int32_t share, int32_t shares) {
    return rows_of_share(format.frame_bytes() / format.sample_bytes(), share, shares);
}

}  // namespace

void halve_frame(const ClipFormat& format, const ClipFormat& half, const unsigned char* in, unsigned char* out,
                 int32_t share, int32_t shares) {
    const auto halve = format.sample_bytes() == 1 ? halve_planes<uint8_t> : halve_planes<uint16_t>;
    halve(format, half, in, out, share, shares);
}

void add_frames(const ClipFormat& format, std::span<const unsigned char* const> frames, bool start_anew, uint32_t* sums,
                int32_t share, int32_t shares) {
    const auto add = format.sample_bytes() == 1 ? add_runs<uint8_t> : add_runs<uint16_t>;
    add(frames, samples_of_share(format, share, shares), start_anew, sums);
}

void divide_sums(const ClipFormat& format, const uint32_t* sums, uint32_t count, unsigned char* out, int32_t share,
                 int32_t shares) {
    const RowRange range = samples_of_share(format, share, shares);
    if (format.sample_bytes() == 1) {
        divide_run(sums, range, count, out);
    } else {
        divide_run(sums, range, count, reinterpret_cast<uint16_t*>(out));
    }
}

}  // namespace tool
