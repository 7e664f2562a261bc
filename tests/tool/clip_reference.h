// Clips made of random samples, and what the tool's commands must make of them, worked out one sample at a time.
#pragma once

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "clip/y4m_format.h"

/// Samples of one frame, plane after plane, whatever their size in the file.
using Samples = std::vector<uint32_t>;

struct ReferenceClip {
    tool::ClipFormat format;
    std::vector<Samples> frames;
    std::vector<std::string> frame_parameters;
};

inline uint64_t sample_count(const tool::ClipFormat& format) {
    return format.frame_bytes() / format.sample_bytes();
}

inline ReferenceClip random_clip(const std::string& header, size_t frame_count, unsigned seed) {
    std::string problem;
    ReferenceClip clip{tool::parse_clip_header(header, problem).value(), {}, {}};
    std::mt19937 random(seed);
    for (size_t i = 0; i < frame_count; ++i) {
        Samples frame(sample_count(clip.format));
        for (uint32_t& sample : frame)
            sample = static_cast<uint32_t>(random()) & ((1u << clip.format.bits) - 1);
        clip.frames.push_back(frame);
        clip.frame_parameters.push_back(i % 3 == 1 ? " Ippp X" + std::to_string(i) : "");
    }
    return clip;
}

inline std::string frame_text(const tool::ClipFormat& format, const Samples& frame) {
    std::string text;
    for (const uint32_t sample : frame) {
        text += static_cast<char>(sample & 0xFF);
        if (format.sample_bytes() == 2) text += static_cast<char>(sample >> 8);
    }
    return text;
}

/// The clip as a file.
inline std::string clip_text(const ReferenceClip& clip) {
    std::string text = tool::format_clip_header(clip.format);
    for (size_t i = 0; i < clip.frames.size(); ++i) {
        text += tool::format_frame_line(clip.frame_parameters[i]) + frame_text(clip.format, clip.frames[i]);
    }
    return text;
}

inline Samples halved_frame(const tool::ClipFormat& format, const Samples& in) {
    Samples out;
    size_t start = 0;
    for (uint32_t index = 0; index < format.plane_count; ++index) {
        const tool::PlaneShape plane = format.plane(index);
        const auto at = [&](size_t x, size_t y) {
            return in[start + std::min<size_t>(y, plane.height - 1) * plane.width +
                      std::min<size_t>(x, plane.width - 1)];
        };
        for (size_t y = 0; y < plane.height; y += 2) {
            for (size_t x = 0; x < plane.width; x += 2) {
                out.push_back((at(x, y) + at(x + 1, y) + at(x, y + 1) + at(x + 1, y + 1) + 2) / 4);
            }
        }
        start += size_t{plane.width} * plane.height;
    }
    return out;
}

inline Samples mean_of(const std::vector<Samples>& frames, size_t first, size_t end) {
    Samples out(frames[first].size());
    for (size_t i = 0; i < out.size(); ++i) {
        uint64_t sum = 0;
        for (size_t f = first; f < end; ++f)
            sum += frames[f][i];
        out[i] = static_cast<uint32_t>((sum + (end - first) / 2) / (end - first));
    }
    return out;
}

inline ReferenceClip halved_clip(const ReferenceClip& clip) {
    ReferenceClip out{clip.format.halved(), {}, clip.frame_parameters};
    for (const Samples& frame : clip.frames)
        out.frames.push_back(halved_frame(clip.format, frame));
    return out;
}

inline ReferenceClip averaged_clip(const ReferenceClip& clip, size_t window) {
    ReferenceClip out{clip.format, {}, clip.frame_parameters};
    for (size_t i = 0; i < clip.frames.size(); ++i) {
        const size_t first = i - std::min(i, (window - 1) / 2);
        out.frames.push_back(mean_of(clip.frames, first, std::min(i + window / 2 + 1, clip.frames.size())));
    }
    return out;
}

inline ReferenceClip reversed_clip(ReferenceClip clip) {
    std::reverse(clip.frames.begin(), clip.frames.end());
    std::reverse(clip.frame_parameters.begin(), clip.frame_parameters.end());
    return clip;
}
