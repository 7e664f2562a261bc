// Which names become a sequence, and how it is written.

#include "commands/sequence_folding.h"

#include <algorithm>
#include <random>

namespace {

/// The sequences' names, then the names that are in none.
std::vector<std::string> folded(const std::vector<std::string>& names) {
    const std::vector<std::string_view> views(names.begin(), names.end());
    std::vector<std::string> result;
    std::vector<bool> is_member(names.size());
    for (const tool::FileSequence& sequence : tool::fold_sequences(views)) {
        result.push_back(sequence.name() + " " + std::to_string(sequence.members.size()) + " files, " +
                         std::to_string(sequence.missing()) + " missing");
        for (const size_t member : sequence.members)
            is_member[member] = true;
    }
    for (size_t i = 0; i < names.size(); ++i)
        if (!is_member[i]) result.push_back(names[i]);
    return result;
}

using Names = std::vector<std::string>;

TEST(FoldSequences, FollowsItsTable) {
    const struct {
        const char* label;
        Names names, result;
    } cases[] = {
        {"a gap", {"s.1.x", "s.2.x", "s.4.x"}, {"s.[1-2,4].x 3 files, 1 missing"}},
        {"in any order", {"s.4.x", "s.1.x", "s.2.x"}, {"s.[1-2,4].x 3 files, 1 missing"}},
        {"two that follow each other", {"s.1.x", "s.2.x"}, {"s.[1-2].x 2 files, 0 missing"}},
        {"two with a gap stay", {"s.1.x", "s.3.x"}, {"s.1.x", "s.3.x"}},
        {"one stays", {"s.1.x"}, {"s.1.x"}},
        {"padding", {"s.0008.x", "s.0009.x", "s.0010.x"}, {"s.[0008-0010].x 3 files, 0 missing"}},
        {"no padding", {"s.8.x", "s.9.x", "s.10.x"}, {"s.[8-10].x 3 files, 0 missing"}},
        {"longer than the padding",
         {"s.98.x", "s.099.x", "s.999.x", "s.1000.x"},
         {"s.[099,999-1000].x 3 files, 899 missing", "s.98.x"}},
        {"two widths",
         {"s.1.x", "s.2.x", "s.01.x", "s.02.x"},
         {"s.[1-2].x 2 files, 0 missing", "s.[01-02].x 2 files, 0 missing"}},
        {"zero", {"s.0.x", "s.1.x"}, {"s.[0-1].x 2 files, 0 missing"}},
        {"the last number before the extension", {"v2_s1.m2v", "v2_s2.m2v"}, {"v2_s[1-2].m2v 2 files, 0 missing"}},
        {"the extension is the number", {"shot.1001", "shot.1002"}, {"shot.[1001-1002] 2 files, 0 missing"}},
        {"the extension is not", {"a.mp3", "a.mp4"}, {"a.mp3", "a.mp4"}},
        {"different extensions", {"s.1.x", "s.2.y"}, {"s.1.x", "s.2.y"}},
        {"numbers only", {"1", "2", "3"}, {"[1-3] 3 files, 0 missing"}},
        {"brackets and bytes of any kind", {"\xFF[1]\n", "\xFF[2]\n"}, {"\xFF[[1-2]]\n 2 files, 0 missing"}},
        {"too many digits",
         {"1234567890123456789", "1234567890123456790"},
         {"1234567890123456789", "1234567890123456790"}},
        {"the largest numbers",
         {"999999999999999998.x", "999999999999999999.x"},
         {"[999999999999999998-999999999999999999].x 2 files, 0 missing"}},
        {"nothing", {}, {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(folded(c.names), c.result) << c.label;
}

// Every sequence written out again, number by number, gives the names it was made of.
TEST(FoldSequences, LosesNoName) {
    std::mt19937 random(11);
    for (int round = 0; round < 300; ++round) {
        Names names;
        for (int i = 0; i < 60; ++i) {
            const std::string number = std::to_string(random() % 120);
            const size_t zeros = random() % 3;
            names.push_back((random() % 2 == 0 ? "a" : "b2_") + std::string(zeros, '0') + number +
                            (random() % 3 == 0 ? ".x" : ".y"));
        }
        std::sort(names.begin(), names.end());
        names.erase(std::unique(names.begin(), names.end()), names.end());
        const std::vector<std::string_view> views(names.begin(), names.end());
        for (const tool::FileSequence& sequence : tool::fold_sequences(views)) {
            Names written;
            for (const tool::FrameRange& range : sequence.ranges)
                for (uint64_t number = range.first; number <= range.last; ++number) {
                    const std::string digits = std::to_string(number);
                    const size_t zeros = sequence.padding > digits.size() ? sequence.padding - digits.size() : 0;
                    written.push_back(sequence.prefix + std::string(zeros, '0') + digits + sequence.suffix);
                }
            ASSERT_EQ(written.size(), sequence.members.size());
            for (size_t i = 0; i < written.size(); ++i)
                EXPECT_EQ(written[i], names[sequence.members[i]]);
        }
    }
}

}  // namespace
