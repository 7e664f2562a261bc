// Names are grouped by what stands around their number, each group then by the number's width.

#include "commands/sequence_folding.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace tool {
namespace {

constexpr size_t k_most_digits = 18;  // of a number that a sum of two still fits into 64 bits
constexpr size_t k_fewest_files = 3;  // that make a sequence with gaps

bool is_digit(char byte) {
    return byte >= '0' && byte <= '9';
}

struct NumberedName {
    std::string_view prefix;
    std::string_view digits;
    std::string_view suffix;
};

/// The last run of digits in name[0, end).
std::optional<NumberedName> cut_at_number(std::string_view name, size_t end) {
    while (end > 0 && !is_digit(name[end - 1]))
        --end;
    size_t begin = end;
    while (begin > 0 && is_digit(name[begin - 1]))
        --begin;
    if (begin == end || end - begin > k_most_digits) return std::nullopt;
    return NumberedName{name.substr(0, begin), name.substr(begin, end - begin), name.substr(end)};
}

std::optional<NumberedName> cut_at_number(std::string_view name) {
    const size_t dot = std::min(name.rfind('.'), name.size());
    if (const auto before_extension = cut_at_number(name, dot)) return before_extension;
    const std::string_view extension = name.substr(std::min(dot + 1, name.size()));
    const bool is_number = !extension.empty() && std::all_of(extension.begin(), extension.end(), is_digit);
    return is_number ? cut_at_number(name, name.size()) : std::nullopt;
}

struct Frame {
    uint64_t number;
    size_t index;
};

/// Names that differ in their number only, whatever its width.
struct Group {
    std::vector<std::pair<std::string_view, size_t>> digits;  // with the name's index

    [[nodiscard]] std::set<size_t> padded_widths() const {
        std::set<size_t> widths;
        for (const auto& [text, index] : digits)
            if (text.size() > 1 && text[0] == '0') widths.insert(text.size());
        return widths;
    }
};

uint64_t number_of(std::string_view digits) {
    uint64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

/// The width that a number of `digits` digits is written with: the widest padding that it fills, or none, which is 1.
size_t padding_for(size_t digits, const std::set<size_t>& padded_widths) {
    const auto wider = padded_widths.upper_bound(digits);
    return wider == padded_widths.begin() ? 1 : *std::prev(wider);
}

std::vector<FrameRange> ranges_of(const std::vector<Frame>& frames) {
    std::vector<FrameRange> ranges;
    for (const Frame& frame : frames) {
        if (!ranges.empty() && ranges.back().last + 1 == frame.number)
            ranges.back().last = frame.number;
        else
            ranges.push_back({frame.number, frame.number});
    }
    return ranges;
}

std::string padded(uint64_t number, size_t padding) {
    const std::string digits = std::to_string(number);
    return std::string(padding > digits.size() ? padding - digits.size() : 0, '0') + digits;
}

FileSequence make_sequence(std::string_view prefix, std::string_view suffix, size_t padding,
                           std::vector<Frame>& frames) {
    std::sort(frames.begin(), frames.end(), [](const Frame& a, const Frame& b) { return a.number < b.number; });
    FileSequence sequence{std::string(prefix), std::string(suffix), padding, ranges_of(frames), {}};
    for (const Frame& frame : frames)
        sequence.members.push_back(frame.index);
    return sequence;
}

void fold_group(std::string_view prefix, std::string_view suffix, const Group& group,
                std::vector<FileSequence>& found) {
    const std::set<size_t> widths = group.padded_widths();
    std::map<size_t, std::vector<Frame>> by_padding;
    for (const auto& [digits, index] : group.digits)
        by_padding[padding_for(digits.size(), widths)].push_back({number_of(digits), index});
    for (auto& [padding, frames] : by_padding) {
        FileSequence sequence = make_sequence(prefix, suffix, padding, frames);
        const size_t count = sequence.members.size();
        if (count >= k_fewest_files || (count > 1 && sequence.missing() == 0)) found.push_back(std::move(sequence));
    }
}

}  // namespace

uint64_t FileSequence::missing() const {
    return ranges.back().last - ranges.front().first + 1 - members.size();
}

std::string FileSequence::ranges_text() const {
    std::string text;
    for (const FrameRange& range : ranges) {
        text += (text.empty() ? '[' : ',') + padded(range.first, padding);
        if (range.last != range.first) text += '-' + padded(range.last, padding);
    }
    return text + ']';
}

std::string FileSequence::name() const {
    return prefix + ranges_text() + suffix;
}

std::vector<FileSequence> fold_sequences(const std::vector<std::string_view>& names) {
    std::map<std::pair<std::string_view, std::string_view>, Group> groups;
    for (size_t i = 0; i < names.size(); ++i)
        if (const auto name = cut_at_number(names[i]))
            groups[{name->prefix, name->suffix}].digits.emplace_back(name->digits, i);
    std::vector<FileSequence> found;
    for (const auto& [around, group] : groups)
        fold_group(around.first, around.second, group, found);
    const auto first_index = [](const FileSequence& sequence) {
        return *std::min_element(sequence.members.begin(), sequence.members.end());
    };
    std::sort(found.begin(), found.end(),
              [&](const FileSequence& a, const FileSequence& b) { return first_index(a) < first_index(b); });
    return found;
}

}  // namespace tool
