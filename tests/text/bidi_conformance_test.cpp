// The levels that VlBidi finds, beside the Unicode Character Database's own tests of the Bidirectional Algorithm. The
// files come with the package unicode-data.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "text/bidi_impl.h"
#include "vellcore/unicode_text.h"

namespace {

/// Levels of characters; -1 where the algorithm removes them (X9), so that they have none.
using Levels = std::vector<int>;

class Checker {
public:
    Checker() { VlBidi::SetPairedBrackets(true); }
    ~Checker() { VlBidi::SetPairedBrackets(false); }
    Checker(const Checker&) = delete;
    Checker& operator=(const Checker&) = delete;

    bool agrees(const std::vector<unsigned>& text, VlBidiDir dir, const Levels& expected) {
        std::vector<unsigned> terminated = text;
        terminated.push_back(0);
        std::string utf8(text.size() * 4 + 1, '\0');
        vl_utf32_to_utf8(terminated.data(), utf8.data(), utf8.size());
        bidi_.SetBaseDir(dir);
        bidi_.SetLogicalText(utf8.c_str());
        static_cast<void>(bidi_.NeedsReorder());
        if (bidi_.length != static_cast<int>(text.size()) || expected.size() != text.size()) return false;
        for (size_t i = 0; i < expected.size(); ++i)
            if (expected[i] >= 0 && bidi_.levels[i] != expected[i]) return false;
        return true;
    }

private:
    VlBidiImpl bidi_;
};

Levels read_levels(const std::string& text) {
    std::istringstream words(text);
    Levels levels;
    for (std::string word; words >> word;)
        levels.push_back(word == "x" ? -1 : std::stoi(word));
    return levels;
}

std::string data_file(const char* name) {
    std::string path = VELL_UNICODE_DATA "/";
    path += name;
    return path;
}

TEST(BidiConformance, EveryLineOfTheCharacterTest) {
    std::ifstream file(data_file("BidiCharacterTest.txt"));
    Checker checker;
    int lines = 0, wrong = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string points, direction, paragraph_level, levels;
        std::getline(fields, points, ';');
        std::getline(fields, direction, ';');
        std::getline(fields, paragraph_level, ';');
        std::getline(fields, levels, ';');
        std::istringstream hex(points);
        std::vector<unsigned> text;
        for (unsigned point = 0; hex >> std::hex >> point;)
            text.push_back(point);
        // An automatic direction is a host's to find; the file tells what it is.
        const VlBidiDir dir = paragraph_level == "1" ? VL_BIDI_RTL : VL_BIDI_LTR;
        ++lines;
        if (checker.agrees(text, dir, read_levels(levels))) continue;
        if (++wrong <= 10) ADD_FAILURE() << line;
    }
    EXPECT_GT(lines, 90'000) << "the file is there";
    EXPECT_EQ(wrong, 0) << "of " << lines;
}

TEST(BidiConformance, EveryLineOfTheClassTest) {
    const std::map<std::string, unsigned> sample = {
        {"L", 'a'},      {"R", 0x05D0},   {"AL", 0x0627},  {"EN", '1'},     {"ES", '+'},     {"ET", '#'},
        {"AN", 0x0660},  {"CS", ','},     {"B", 0x2029},   {"S", '\t'},     {"WS", ' '},     {"ON", '!'},
        {"LRE", 0x202A}, {"RLE", 0x202B}, {"PDF", 0x202C}, {"LRO", 0x202D}, {"RLO", 0x202E}, {"LRI", 0x2066},
        {"RLI", 0x2067}, {"FSI", 0x2068}, {"PDI", 0x2069}, {"NSM", 0x0300}, {"BN", 0x00AD}};
    std::ifstream file(data_file("BidiTest.txt"));
    Checker checker;
    Levels levels;
    int cases = 0, wrong = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("@Levels:", 0) == 0) levels = read_levels(line.substr(8));
        const size_t semicolon = line.find(';');
        if (line.empty() || line[0] == '#' || line[0] == '@' || semicolon == std::string::npos) continue;
        std::istringstream classes(line.substr(0, semicolon));
        std::vector<unsigned> text;
        for (std::string name; classes >> name;)
            text.push_back(sample.at(name));
        const int directions = std::stoi(line.substr(semicolon + 1), nullptr, 16);
        for (const auto& [bit, dir] : {std::pair(2, VL_BIDI_LTR), {4, VL_BIDI_RTL}}) {
            if ((directions & bit) == 0) continue;
            ++cases;
            if (checker.agrees(text, dir, levels)) continue;
            if (++wrong <= 10) ADD_FAILURE() << line << " with direction " << dir;
        }
    }
    EXPECT_GT(cases, 400'000) << "the file is there";
    EXPECT_EQ(wrong, 0) << "of " << cases;
}

}  // namespace
