// Numbered files that belong together: shot.1001.dpx, shot.1002.dpx ... as shot.[1001-1002].dpx.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// Numbers that follow each other, the last included.
struct FrameRange {
    uint64_t first;
    uint64_t last;
};

/// Files whose names differ in one number.
struct FileSequence {
    std::string prefix;              ///< before the number
    std::string suffix;              ///< behind it
    size_t padding;                  ///< digits that a number has at least
    std::vector<FrameRange> ranges;  ///< in rising order, with gaps between them
    std::vector<size_t> members;     ///< indexes of the names, by rising number

    /// Numbers between the first and the last that have no file.
    [[nodiscard]] uint64_t missing() const;
    /// "[1001-1402,1404-1418]"
    [[nodiscard]] std::string ranges_text() const;
    /// prefix + ranges + suffix
    [[nodiscard]] std::string name() const;
};

/// Finds the sequences in the names of one folder, in the order of their first names.
///
/// The number is the last one before the extension; of a name without another, the extension itself ("shot.1001").
/// Numbers with leading zeros give the width, and longer ones without them go on behind it ("0999", "1000", "10000");
/// other numbers have none. Three files make a sequence, or two without a gap.
[[nodiscard]] std::vector<FileSequence> fold_sequences(const std::vector<std::string_view>& names);

}  // namespace tool
