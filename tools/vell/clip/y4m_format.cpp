// The header's parameters are kept as they came, so that a clip that passes through the tool loses none; width and
// height alone are rewritten.

#include "clip/y4m_format.h"

#include <charconv>

#include "ui/translation.h"

namespace tool {
namespace {

constexpr std::string_view k_magic = "YUV4MPEG2";
constexpr std::string_view k_frame_magic = "FRAME";
constexpr uint32_t k_largest_side = 1'000'000;  // pixels; keeps every size in bytes far from 64 bits
constexpr uint32_t k_most_bits = 16;

struct ChromaKind {
    std::string_view name;
    uint32_t width_divisor;
    uint32_t height_divisor;
    uint32_t plane_count;
};
// "420jpeg", "420mpeg2" and "420paldv" differ in where chroma samples sit, not in how many there are.
constexpr ChromaKind k_chroma_kinds[] = {{"420", 2, 2, 3},      {"420jpeg", 2, 2, 3}, {"420mpeg2", 2, 2, 3},
                                         {"420paldv", 2, 2, 3}, {"422", 2, 1, 3},     {"444", 1, 1, 3},
                                         {"411", 4, 1, 3},      {"mono", 1, 1, 1}};

bool parse_number(std::string_view text, uint32_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool parse_side(std::string_view text, uint32_t& value) {
    return parse_number(text, value) && value >= 1 && value <= k_largest_side;
}

bool parse_ratio(std::string_view text, Ratio& ratio) {
    const size_t colon = text.find(':');
    return colon != std::string_view::npos && parse_number(text.substr(0, colon), ratio.numerator) &&
           parse_number(text.substr(colon + 1), ratio.denominator);
}

/// Splits "420p10" or "mono12" into the kind and its bits.
bool parse_chroma(std::string_view text, ClipFormat& format) {
    const size_t name_end = text.find_last_not_of("0123456789") + 1;
    std::string_view name = text;
    uint32_t bits = 8;
    const bool has_p = name_end > 1 && text[name_end - 1] == 'p' && text[0] == '4';
    if (name_end < text.size() && (has_p || text.substr(0, name_end) == "mono")) {
        if (!parse_number(text.substr(name_end), bits) || bits <= 8 || bits > k_most_bits) return false;
        name = text.substr(0, has_p ? name_end - 1 : name_end);
    }
    for (const ChromaKind& kind : k_chroma_kinds) {
        if (kind.name != name) continue;
        format.bits = bits;
        format.chroma_width_divisor = kind.width_divisor;
        format.chroma_height_divisor = kind.height_divisor;
        format.plane_count = kind.plane_count;
        format.chroma_name = text;
        return true;
    }
    return false;
}

/// Takes one parameter in; unknown letters pass.
bool take_parameter(std::string_view text, ClipFormat& format) {
    const std::string_view value = text.substr(1);
    switch (text[0]) {
        case 'W':
            return parse_side(value, format.width);
        case 'H':
            return parse_side(value, format.height);
        case 'F':
            return parse_ratio(value, format.rate);
        case 'A':
            return parse_ratio(value, format.aspect);
        case 'C':
            return parse_chroma(value, format);
        default:
            return true;
    }
}

uint32_t divided_up(uint32_t value, uint32_t divisor) {
    return (value + divisor - 1) / divisor;
}

}  // namespace

PlaneShape ClipFormat::plane(uint32_t index) const {
    const uint64_t luma_bytes = uint64_t{width} * height * sample_bytes();
    if (index == 0) return {width, height, 0};
    const uint32_t chroma_width = divided_up(width, chroma_width_divisor);
    const uint32_t chroma_height = divided_up(height, chroma_height_divisor);
    const uint64_t chroma_bytes = uint64_t{chroma_width} * chroma_height * sample_bytes();
    return {chroma_width, chroma_height, luma_bytes + (index - 1) * chroma_bytes};
}

uint64_t ClipFormat::frame_bytes() const {
    const PlaneShape last = plane(plane_count - 1);
    return last.byte_start + uint64_t{last.width} * last.height * sample_bytes();
}

ClipFormat ClipFormat::halved() const {
    ClipFormat half = *this;
    half.width = divided_up(width, 2);
    half.height = divided_up(height, 2);
    for (std::string& parameter : half.parameters) {
        if (parameter[0] == 'W') parameter = "W" + std::to_string(half.width);
        if (parameter[0] == 'H') parameter = "H" + std::to_string(half.height);
    }
    return half;
}

bool is_clip_header(std::string_view line) {
    return line.starts_with(k_magic) && (line.size() == k_magic.size() || line[k_magic.size()] == ' ');
}

std::optional<ClipFormat> parse_clip_header(std::string_view line, std::string& problem) {
    if (!is_clip_header(line)) {
        problem = tr("problem", "not a YUV4MPEG2 clip");
        return std::nullopt;
    }
    line.remove_prefix(k_magic.size());
    ClipFormat format;
    while (!line.empty()) {
        const size_t end = std::min(line.find(' '), line.size());
        const std::string_view parameter = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        if (parameter.empty()) continue;
        if (!take_parameter(parameter, format)) {
            problem = formatted(tr("problem", "parameter '%s' of the header is wrong or not supported"),
                                std::string(parameter).c_str());
            return std::nullopt;
        }
        format.parameters.emplace_back(parameter);
    }
    if (format.width == 0 || format.height == 0) {
        problem = tr("problem", "the header names no frame size");
        return std::nullopt;
    }
    return format;
}

std::string format_clip_header(const ClipFormat& format) {
    std::string line(k_magic);
    for (const std::string& parameter : format.parameters)
        line += " " + parameter;
    return line + "\n";
}

bool is_start_of_frame_line(std::string_view text) {
    return k_frame_magic.starts_with(text);
}

std::optional<std::string> parse_frame_line(std::string_view line) {
    if (line.substr(0, k_frame_magic.size()) != k_frame_magic) return std::nullopt;
    line.remove_prefix(k_frame_magic.size());
    if (!line.empty() && line[0] != ' ') return std::nullopt;
    return std::string(line);
}

std::string format_frame_line(std::string_view parameters) {
    return std::string(k_frame_magic) + std::string(parameters) + "\n";
}

}  // namespace tool
