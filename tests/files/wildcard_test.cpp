// Wildcards against a table, and against a plain recursive model on random names and patterns.

#include <random>
#include <string>

#include "vellcore/directory_listing.h"

namespace {

TEST(WildcardMatch, FollowsItsTable) {
    const struct {
        const char *name, *pattern;
        bool sensitive, insensitive;
    } cases[] = {
        {"", "", true, true},
        {"a", "", false, false},
        {"", "*", true, true},
        {"", "?", false, false},
        {"a", "a**", true, true},
        {"", "***", true, true},
        {"Shot.DPX", "*.dpx", false, true},
        {"shot.0001.dpx", "shot.????.dpx", true, true},
        {"shot.001.dpx", "shot.????.dpx", false, false},
        {"abcabd", "*abd", true, true},
        {"aaa", "*a*a*a*", true, true},
        {"aa", "*a*a*a*", false, false},
        {"a1", "a[0-9]", true, true},
        {"aB", "a[9-0b]", false, true},
        {"m", "[z-a]", true, true},
        {"M", "[a-z]", false, true},
        {"m", "[A-Z]", false, true},
        {"a", "a[]", false, false},
        {"a]", "a[]]", false, false},
        {"c", "[abc", true, true},
        {"ac", "[abc", false, false},
        {"a", "[a-]", true, true},
        {"_", "[a-]", true, true},
        {"b", "[a-]", false, false},
        {"cx", "[a-]b]x", false, false},
        {"`x", "[a-]b]x", true, true},
        {"-", "[a-", true, true},
        {"a", "[a-", true, true},
        {"^", "[^a]", true, true},
        {"b", "[^a]", false, false},
        {"\\", "[\\]", true, true},
        {"a*b", "a\\*b", true, true},
        {"axb", "a\\*b", false, false},
        {"[", "\\[", true, true},
        {"a", "a\\", false, false},
        {"a\\", "a\\", false, false},
        {"a", "*\\", false, false},
        {"\xC3\xA9", "?", false, false},
        {"\xC3\xA9", "??", true, true},
        {"\xC3\xA9", "[\x80-\xFF]*", true, true},
        {"a7", "*[0-9]", true, true},
        {".hidden", "*", true, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(wildcard_match(c.name, c.pattern, true), c.sensitive) << c.name << " | " << c.pattern;
        EXPECT_EQ(wildcard_match(c.name, c.pattern, false), c.insensitive) << c.name << " | " << c.pattern;
    }
    EXPECT_FALSE(wildcard_match(nullptr, "*", true) || wildcard_match("", nullptr, true));
}

char fold(char byte, bool sensitive) {
    return !sensitive && byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : byte;
}

/// The rules word for word, with a trial of every place for every star.
bool model(const std::string& name, const std::string& pattern, bool sensitive, size_t n = 0, size_t p = 0) {
    if (p == pattern.size()) return n == name.size();
    if (pattern[p] == '*') {
        for (size_t at = n; at <= name.size(); ++at)
            if (model(name, pattern, sensitive, at, p + 1)) return true;
        return false;
    }
    if (n == name.size()) return false;
    const auto byte = static_cast<unsigned char>(fold(name[n], sensitive));
    if (pattern[p] == '?') return model(name, pattern, sensitive, n + 1, p + 1);
    if (pattern[p] == '\\') {
        if (p + 1 == pattern.size()) return false;
        return fold(pattern[p + 1], sensitive) == fold(name[n], sensitive) &&
               model(name, pattern, sensitive, n + 1, p + 2);
    }
    if (pattern[p] != '[')
        return fold(pattern[p], sensitive) == fold(name[n], sensitive) && model(name, pattern, sensitive, n + 1, p + 1);
    for (size_t m = p + 1; m < pattern.size() && pattern[m] != ']';) {
        const bool is_range = m + 2 < pattern.size() && pattern[m + 1] == '-';
        const auto one = static_cast<unsigned char>(fold(pattern[m], sensitive));
        const auto other = is_range ? static_cast<unsigned char>(fold(pattern[m + 2], sensitive)) : one;
        m += is_range ? 3 : 1;
        if (byte < std::min(one, other) || byte > std::max(one, other)) continue;
        const size_t end = pattern.find(']', m);
        return model(name, pattern, sensitive, n + 1, end == std::string::npos ? pattern.size() : end + 1);
    }
    return false;
}

std::string random_text(std::mt19937& random, const char* alphabet, size_t longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& byte : text)
        byte = alphabet[random() % std::char_traits<char>::length(alphabet)];
    return text;
}

TEST(WildcardMatch, EqualsTheModelOnRandomPatterns) {
    std::mt19937 random(20240607);
    int matches = 0;
    for (int i = 0; i < 300'000; ++i) {
        const std::string name = random_text(random, "abAB-]\\[^\xC3", 7);
        const std::string pattern = random_text(random, "abAB**??[]-\\^\xC3", 8);
        for (const bool sensitive : {true, false}) {
            const bool expected = model(name, pattern, sensitive);
            ASSERT_EQ(wildcard_match(name.c_str(), pattern.c_str(), sensitive), expected) << name << " | " << pattern;
            matches += expected;
        }
    }
    EXPECT_GT(matches, 10'000);
}

// With a trial of every place for every star this would take longer than the machine lives.
TEST(WildcardMatch, StaysBoundedWithManyStars) {
    std::string pattern;
    for (int i = 0; i < 500; ++i)
        pattern += "*a";
    EXPECT_FALSE(wildcard_match(std::string(4000, 'a').c_str(), (pattern + "b").c_str(), true));
    EXPECT_TRUE(wildcard_match(std::string(4000, 'a').c_str(), pattern.c_str(), true));
}

}  // namespace
