// Decoding, walking and measuring.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "text/unicode_model.h"
#include "vellcore/unicode_text.h"

namespace {

using namespace vell::testing;

const unsigned char* bytes_of(const char* s) {
    return reinterpret_cast<const unsigned char*>(s);
}

/// Counts the differences from the model at one sequence; a test of millions cannot stop at each.
bool agrees(const unsigned char* bytes) {
    const ModelCharacter expected = model_decode(bytes);
    int cp = -1;
    const int length = utf8_decode(bytes, &cp);
    return cp == expected.cp && length == static_cast<int>(expected.length) &&
           utf8_code_len(bytes) == (expected.is_valid ? length : 0);
}

TEST(UnicodeRules, EverySequenceOfThreeBytesIsReadByTheTable) {
    size_t wrong = 0;
    for (unsigned value = 0; value < 1u << 24; ++value) {
        const unsigned char bytes[] = {static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 8),
                                       static_cast<unsigned char>(value), 0};
        wrong += agrees(bytes) ? 0U : 1U;
    }
    EXPECT_EQ(wrong, 0U);
}

// Of the third and fourth byte only the upper two bits decide; the lower six are tried at their ends.
TEST(UnicodeRules, EverySequenceOfFourBytesIsReadByTheTable) {
    constexpr unsigned char k_ends[] = {0x00, 0x01, 0x3F, 0x40, 0x7F, 0x80, 0x81, 0xBF, 0xC0, 0xE2, 0xFF};
    size_t wrong = 0;
    for (unsigned value = 0; value < 1u << 16; ++value) {
        for (const unsigned char third : k_ends)
            for (const unsigned char fourth : k_ends) {
                const unsigned char bytes[] = {static_cast<unsigned char>(value >> 8),
                                               static_cast<unsigned char>(value), third, fourth, 0};
                wrong += agrees(bytes) ? 0U : 1U;
            }
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(UnicodeRules, EveryCodePointComesBackFromUtf8) {
    size_t wrong = 0;
    for (int cp = 0; cp < 0x200000; ++cp) {
        char buffer[5] = {};
        int decoded = -1;
        const int length = vl_utf8_encode(cp, buffer, 4);
        const int taken = utf8_decode(bytes_of(buffer), &decoded);
        const bool is_decoded = decoded == cp && taken == length;
        const bool is_right = model_utf8(cp) == std::string(buffer, static_cast<size_t>(length)) &&
                              length == vl_utf8_get_num_bytes_for_code_point(cp) && is_decoded == (cp < 0x110000);
        wrong += is_right ? 0U : 1U;
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(UnicodeRules, EncodingRefusesWhatHasNoFormOrNoRoom) {
    char buffer[4];
    for (const int cp : {0x61, 0xE9, 0x20AC, 0x1F600}) {
        const int length = vl_utf8_get_num_bytes_for_code_point(cp);
        for (int capacity = 0; capacity < length; ++capacity) {
            memset(buffer, '#', sizeof buffer);
            EXPECT_EQ(vl_utf8_encode(cp, buffer, static_cast<size_t>(capacity)), 0);
            EXPECT_EQ(std::string(buffer, 4), "####") << "room for " << capacity;
        }
    }
    EXPECT_EQ(vl_utf8_encode(0x200000, buffer, 4), 0);
    EXPECT_EQ(vl_utf8_get_num_bytes_for_code_point(0x200000), 0);
    EXPECT_EQ(vl_utf8_encode(-1, buffer, 4), 1);
    EXPECT_EQ(buffer[0], '\xFF') << "the low 8 bits of a negative number";
}

TEST(UnicodeWalk, KnowsTheOddSequences) {
    const struct {
        const char* label;
        const char* text;
        std::vector<int> cps;
        int is_valid;
    } rows[] = {
        {"empty", "", {}, 1},
        {"overlong zero", "\xC0\x80", {0xC0, 0x80}, 0},
        {"surrogate in three bytes", "\xED\xA0\x80", {0xD800}, 1},
        {"above the last code point", "\xF4\x90\x80\x80", {0xF4, 0x90, 0x80, 0x80}, 0},
        {"the last code point", "\xF4\x8F\xBF\xBF", {0x10FFFF}, 1},
        {"a byte that is never valid", "a\xFF\x62", {'a', 0xFF, 'b'}, 0},
        {"cut two-byte form", "\xC3", {0xC3}, 0},
        {"cut three-byte form", "\xE2\x82", {0xE2, 0x82}, 0},
        {"cut four-byte form", "\xF0\x9F\x98", {0xF0, 0x9F, 0x98}, 0},
        {"overlong three-byte form", "\xE0\x9F\xBF", {0xE0, 0x9F, 0xBF}, 0},
        {"overlong four-byte form", "\xF0\x8F\xBF\xBF", {0xF0, 0x8F, 0xBF, 0xBF}, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(vl_utf8_strlen(row.text), row.cps.size()) << row.label;
        EXPECT_EQ(vl_utf8_is_valid(row.text), row.is_valid) << row.label;
        size_t pos = 0;
        for (const int cp : row.cps)
            EXPECT_EQ(vl_utf8_get_code_point(row.text, &pos), cp) << row.label;
        EXPECT_EQ(pos, strlen(row.text));
        EXPECT_EQ(vl_utf8_get_code_point(row.text, &pos), 0);
        EXPECT_EQ(pos, strlen(row.text)) << "stays at the terminator";
    }
}

TEST(UnicodeWalk, MeasuresRandomTextsLikeTheModel) {
    std::mt19937 random(61);
    for (int round = 0; round < 4000; ++round) {
        const Script script = k_scripts[round % 7];
        const std::string text = random_text(random, script, random() % 300);
        const ModelText model = model_read(text);
        ASSERT_EQ(vl_utf8_strlen(text.c_str()), model.cps.size()) << round;
        ASSERT_EQ(vl_utf8_is_valid(text.c_str()), model.is_valid ? 1 : 0) << round;
        size_t offset = 0;
        for (size_t i = 0; i < model.cps.size() && i < 40; offset += model.lengths[i++]) {
            ASSERT_EQ(vl_utf8_get_num_bytes(text.c_str(), 0, static_cast<int>(i)), offset) << round;
            ASSERT_EQ(vl_utf8_get_num_bytes(text.c_str(), offset, 1), model.lengths[i]) << round;
        }
        std::string cut = text;
        ASSERT_EQ(vl_utf8_validate(cut.data()), cut.data());
        ASSERT_EQ(cut.c_str(), text.substr(0, model.valid_bytes)) << round;
    }
}

TEST(UnicodeWalk, ValidationLeavesAConstantAlone) {
    char text[] = "ab\xC3(";
    EXPECT_STREQ(vl_utf8_validate(text), "ab");
    auto* constant = const_cast<char*>("caf\xC3\xA9");  // writing there would be a fault
    EXPECT_EQ(vl_utf8_validate(constant), constant);
}

TEST(UnicodeWalk, CountsBytesOfCodePoints) {
    const char* text = "a\xC3\xA9\xE2\x82\xAC";
    EXPECT_EQ(vl_utf8_get_num_bytes(text, 1, 1), 2U);
    EXPECT_EQ(vl_utf8_get_num_bytes(text, 0, 99), 6U) << "stops at the terminator";
    EXPECT_EQ(vl_utf8_get_num_bytes(text, 0, 0), 0U);
    EXPECT_EQ(vl_utf8_get_num_bytes(text, 0, -1), 0U);
}

TEST(UnicodeWalk, GoesBackTheWayItCame) {
    std::mt19937 random(62);
    for (int round = 0; round < 500; ++round) {
        const std::string text = random_text(random, k_scripts[round % 5], 60);
        const ModelText model = model_read(text);
        size_t pos = text.size();
        for (size_t i = model.cps.size(); i-- > 0;)
            ASSERT_EQ(vl_utf8_get_code_point_rev(text.c_str(), &pos), model.cps[i]) << round;
        EXPECT_EQ(pos, 0U);
        EXPECT_EQ(vl_utf8_get_code_point_rev(text.c_str(), &pos), 0);
        EXPECT_EQ(pos, 0U);
    }
}

TEST(UnicodeWalk, GoingBackTrustsTheLeadByte) {
    const struct {
        const char* label;
        const char* text;
        size_t from, to;
        int cp;
    } rows[] = {
        {"stray byte at the start", "\x80", 1, 0, 0x80},
        {"stray byte behind another", "\x80\x81", 2, 1, 0x81},
        {"third stray byte", "\x80\x81\x82", 3, 2, 0x82},
        {"fourth stray byte", "a\x80\x81\x82", 4, 3, 0x82},
        {"overlong form: to its lead byte", "\xC0\x80", 2, 0, 0xC0},
        {"ASCII between lead and end", "\xE2\x41\x80", 3, 0, 0xE2},
        {"four bytes, damaged", "\xF0\x41\x42\x80", 4, 0, 0xF0},
        {"two-byte lead wins over three", "\xE2\xC3\xA9", 3, 1, 0xE9},
        {"a lead byte before a sequence", "\xC3\xA9", 1, 0, 0xC3},
    };
    for (const auto& row : rows) {
        size_t pos = row.from;
        EXPECT_EQ(vl_utf8_get_code_point_rev(row.text, &pos), row.cp) << row.label;
        EXPECT_EQ(pos, row.to) << row.label;
    }
}

TEST(UnicodeWalk, ReadsNothingBehindTheTerminator) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* pages =
        static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
    unsigned int utf32[200];
    unsigned short utf16[200];
    for (const char* end : {"", "\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98", "\xF0\x9F\x98\x80"}) {
        for (size_t length = 0; length <= 130; ++length) {
            const std::string text = std::string(length, length % 2 == 0 ? 'q' : '\x81') + end;
            char* s = pages + page - text.size() - 1;
            memcpy(s, text.c_str(), text.size() + 1);
            const ModelText model = model_read(text);
            EXPECT_EQ(vl_utf8_strlen(s), model.cps.size());
            EXPECT_EQ(vl_utf8_is_valid(s), model.is_valid ? 1 : 0);
            EXPECT_EQ(vl_utf8_get_num_bytes(s, 0, 1000), text.size());
            EXPECT_EQ(vl_utf8_to_utf32(s, utf32, 200)[model.cps.size()], 0U);
            EXPECT_EQ(vl_utf8_to_utf16(s, utf16, 200)[199], 0U);
            EXPECT_EQ(vl_utf8_validate(s), s);
        }
    }
    munmap(pages, 2 * page);
}

TEST(UnicodeWalk, ANullStringIsEmpty) {
    size_t pos = 3;
    EXPECT_EQ(vl_utf8_strlen(nullptr), 0U);
    EXPECT_EQ(vl_utf8_get_code_point(nullptr, &pos), 0);
    EXPECT_EQ(vl_utf8_get_code_point_rev(nullptr, &pos), 0);
    EXPECT_EQ(vl_utf8_get_num_bytes(nullptr, 0, 5), 0U);
    EXPECT_EQ(vl_utf8_is_valid(nullptr), 1);
    EXPECT_EQ(vl_utf8_validate(nullptr), nullptr);
}

TEST(Utf16Walk, KnowsPairsAndLoneUnits) {
    const struct {
        const char* label;
        std::vector<unsigned short> units;
        std::vector<int> cps;
    } rows[] = {
        {"own pairing", {0xD87D, 0xDE00}, {0x1F600}},
        {"lone high unit", {0xD87D, 'a'}, {0xD87D, 'a'}},
        {"lone high unit at the end", {'a', 0xD87D}, {'a', 0xD87D}},
        {"lone low unit", {0xDE00, 'a'}, {0xDE00, 'a'}},
        {"two high units", {0xD87D, 0xD87D, 0xDE00}, {0xD87D, 0x1F600}},
        {"above what pairs hold", {0xDC00, 0xDC00}, {0xDC00, 0xDC00}},
    };
    for (const auto& row : rows) {
        std::vector<unsigned short> text = row.units;
        text.push_back(0);
        std::vector<unsigned char> odd(2 * text.size() + 1);
        memcpy(odd.data() + 1, text.data(), 2 * text.size());
        EXPECT_EQ(vl_utf16_strlen(text.data()), row.cps.size()) << row.label;
        EXPECT_EQ(vl_utf16_strlen(odd.data() + 1), row.cps.size()) << row.label;
        size_t unit = 0, byte = 0;
        for (const int cp : row.cps) {
            EXPECT_EQ(vl_utf16_get_code_point(text.data(), &unit), cp) << row.label;
            EXPECT_EQ(vl_utf16_get_code_point(odd.data() + 1, &byte), cp) << row.label;
            EXPECT_EQ(byte, 2 * unit);
        }
        EXPECT_EQ(vl_utf16_get_code_point(text.data(), &unit), 0);
        EXPECT_EQ(unit, row.units.size()) << "stays at the terminator";
    }
}

TEST(Utf16Walk, ThePairForZeroEndsAWalkButCounts) {
    const unsigned short text[] = {0xD800, 0xDC00, 'a', 0};
    size_t pos = 0;
    EXPECT_EQ(vl_utf16_get_code_point(text, &pos), 0);
    EXPECT_EQ(pos, 0U);
    EXPECT_EQ(vl_utf16_strlen(text), 2U);
    size_t byte = 1;
    EXPECT_EQ(vl_utf16_get_code_point(reinterpret_cast<const unsigned char*>(text), &byte), 0);
    EXPECT_EQ(byte, 0U) << "written back as a unit's";
}

TEST(Utf16Walk, CodePointsComeBackUpToWhatPairsHold) {
    size_t wrong = 0;
    for (int cp = 1; cp < 0x110000; ++cp) {
        unsigned short units[3] = {};
        size_t pos = 0;
        const int count = vl_utf16_encode(cp, units, 2);
        const std::vector<uint16_t> expected = model_utf16(cp);
        const bool is_encoded = std::vector<uint16_t>(units, units + count) == expected &&
                                count == vl_utf16_get_num_for_code_point(cp) &&
                                2 * count == vl_utf16_get_num_bytes_for_code_point(cp);
        const bool is_back = vl_utf16_get_code_point(units, &pos) == cp;
        wrong += is_encoded && is_back == (cp < 0x100000) ? 0U : 1U;
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(Utf16Walk, EncodingNeedsRoomForAllUnits) {
    unsigned char bytes[5] = {'#', '#', '#', '#', '#'};
    EXPECT_EQ(vl_utf16_encode(0x1F600, bytes, 3), 0);
    EXPECT_EQ(vl_utf16_encode('a', bytes, 1), 0);
    EXPECT_EQ(bytes[0], '#');
    EXPECT_EQ(vl_utf16_encode(0x1F600, bytes + 1, 4), 4) << "at an odd address";
    unsigned short units[2];
    EXPECT_EQ(vl_utf16_encode(-2, units, 1), 1);
    EXPECT_EQ(units[0], 0xFFFE) << "the low 16 bits of a negative number";
}

}  // namespace
