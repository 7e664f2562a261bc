// YUV4MPEG2: what a clip's header says, as text and as numbers. No files here.
//
//     YUV4MPEG2 W1280 H720 F25:1 Ip A1:1 C420p10 Xanything\n
//     FRAME Ixyz\n <planes, one after the other, rows without padding> FRAME\n ...
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// One plane of a frame. Samples are bytes, or 16-bit little-endian words where a clip has more than 8 bits.
struct PlaneShape {
    uint32_t width;       ///< samples
    uint32_t height;      ///< rows
    uint64_t byte_start;  ///< of the plane in the frame
};

/// A ratio as the header writes it; 0:0 for unknown.
struct Ratio {
    uint32_t numerator = 0;
    uint32_t denominator = 0;
};

struct ClipFormat {
    uint32_t width = 0;   ///< pixels
    uint32_t height = 0;  ///< pixels
    Ratio rate;           ///< frames per second
    Ratio aspect;         ///< of a pixel
    uint32_t bits = 8;    ///< per sample
    uint32_t chroma_width_divisor = 2;
    uint32_t chroma_height_divisor = 2;
    uint32_t plane_count = 3;             ///< 1 without chroma
    std::string chroma_name = "420";      ///< behind the "C"
    std::vector<std::string> parameters;  ///< all of them, as they came: "W1280", "H720", ...

    [[nodiscard]] uint32_t sample_bytes() const { return bits > 8 ? 2 : 1; }
    [[nodiscard]] PlaneShape plane(uint32_t index) const;
    [[nodiscard]] uint64_t frame_bytes() const;
    /// The same clip at half the width and height, odd ones rounded up; every other parameter is kept.
    [[nodiscard]] ClipFormat halved() const;
};

/// Longest lines that are read, line end included.
inline constexpr size_t k_longest_header = 4096;
inline constexpr size_t k_longest_frame_line = 1024;

/// True for a line, or the start of one, that only a clip has.
[[nodiscard]] bool is_clip_header(std::string_view line);

/// Reads a clip's first line, without its line end.
/// @return  nothing, with the reason in `problem`, for what is no clip or not supported.
[[nodiscard]] std::optional<ClipFormat> parse_clip_header(std::string_view line, std::string& problem);

/// The first line of a clip, with its line end.
[[nodiscard]] std::string format_clip_header(const ClipFormat& format);

/// The parameters of a frame's line, without its line end: "" or " Ixyz". Nothing for any other line.
[[nodiscard]] std::optional<std::string> parse_frame_line(std::string_view line);

/// True for what may be the first bytes of a frame's line that is cut off: "FR".
[[nodiscard]] bool is_start_of_frame_line(std::string_view text);

/// A frame's line, with its line end.
[[nodiscard]] std::string format_frame_line(std::string_view parameters);

}  // namespace tool
