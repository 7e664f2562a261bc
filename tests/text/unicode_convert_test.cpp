// Conversions between UTF-8, UTF-16 and UTF-32, into buffers of every size.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "text/unicode_model.h"
#include "vellcore/unicode_text.h"

namespace {

using namespace vell::testing;

/// What a conversion leaves in a buffer of `capacity` elements that held `fill`: the code points' elements as far as
/// they fit, a terminator behind them, and a zero in the last place.
template <class Element>
std::vector<Element> expected_buffer(const std::vector<std::vector<Element>>& characters, size_t capacity,
                                     Element fill) {
    std::vector<Element> buffer;
    for (const auto& character : characters) {
        if (buffer.size() + character.size() > capacity) break;
        buffer.insert(buffer.end(), character.begin(), character.end());
    }
    if (buffer.size() < capacity) buffer.push_back(0);
    buffer.resize(capacity, fill);
    if (capacity != 0) buffer.back() = 0;
    return buffer;
}

/// Runs a conversion into a buffer of exactly `capacity` elements. Up to 8 of them the whole buffer has to be as
/// expected, beyond that what lies behind the terminator is the conversion's own business, but for the last element.
template <class Element, class Convert>
void check(const std::vector<std::vector<Element>>& characters, size_t capacity, Convert convert, const char* label) {
    constexpr Element k_fill = 0x23;
    std::vector<Element> out(capacity, k_fill);
    Element untouched = k_fill;
    Element* target = capacity != 0 ? out.data() : &untouched;
    EXPECT_EQ(convert(target, capacity), target) << label;
    EXPECT_EQ(untouched, k_fill) << label;
    const std::vector<Element> expected = expected_buffer(characters, capacity, k_fill);
    const auto end = capacity <= 8 ? expected.end() : std::find(expected.begin(), expected.end(), 0) + 1;
    ASSERT_TRUE(std::equal(expected.begin(), end, out.begin())) << label << ", capacity " << capacity;
    ASSERT_TRUE(capacity == 0 || out.back() == 0) << label << ", capacity " << capacity;
}

template <class Element>
std::vector<std::vector<Element>> encoded(const std::vector<int>& cps) {
    std::vector<std::vector<Element>> characters;
    for (const int cp : cps) {
        if constexpr (sizeof(Element) == 1) {
            const std::string bytes = model_utf8(cp);
            characters.emplace_back(bytes.begin(), bytes.end());
        } else if constexpr (sizeof(Element) == 2) {
            const auto units = model_utf16(cp);
            characters.emplace_back(units.begin(), units.end());
        } else {
            characters.push_back({static_cast<Element>(cp)});
        }
    }
    return characters;
}

template <class Element>
std::vector<Element> terminated(const std::vector<int>& cps) {
    std::vector<Element> units;
    for (const auto& character : encoded<Element>(cps))
        units.insert(units.end(), character.begin(), character.end());
    units.push_back(0);
    return units;
}

/// Bytes that hold units, at an odd address.
struct OddBytes {
    explicit OddBytes(const std::vector<unsigned short>& units) : storage(2 * units.size() + 1) {
        if (!units.empty()) memcpy(storage.data() + 1, units.data(), 2 * units.size());
    }
    unsigned char* data() { return storage.data() + 1; }
    std::vector<unsigned char> storage;
};

void check_out_of_utf8(const std::string& text, size_t capacity) {
    const std::vector<int> cps = model_read(text).cps;
    const char* s = text.c_str();
    const auto utf16 = encoded<unsigned short>(cps);
    check<unsigned short>(
        utf16, capacity, [s](auto* out, size_t n) { return vl_utf8_to_utf16(s, out, n); }, "UTF-16");
    check<unsigned short>(
        utf16, capacity,
        [s](unsigned short* out, size_t n) {
            std::vector<unsigned short> in_units(out, out + n);
            OddBytes bytes(in_units);
            EXPECT_EQ(vl_utf8_to_utf16(s, bytes.data(), 2 * n + (n != 0 ? 1 : 0)), bytes.data());
            if (n != 0) memcpy(out, bytes.data(), 2 * n);
            return out;
        },
        "UTF-16 in bytes");
    check<unsigned int>(
        encoded<unsigned int>(cps), capacity, [s](auto* out, size_t n) { return vl_utf8_to_utf32(s, out, n); },
        "UTF-32");
    const auto wide = encoded<wchar_t>(cps);
    check<wchar_t>(
        wide, capacity, [s](auto* out, size_t n) { return vl_utf8_to_wchar_n(s, out, n); }, "wide");
    check<wchar_t>(
        wide, capacity, [s](auto* out, size_t n) { return vl_utf8_to_wchar_s(s, out, 4 * n + 3); }, "wide");
}

void check_into_utf8(const std::vector<int>& cps, size_t capacity) {
    const auto utf8 = encoded<char>(cps);
    const auto units = terminated<unsigned int>(cps);
    check<char>(
        utf8, capacity, [&](char* out, size_t n) { return vl_utf32_to_utf8(units.data(), out, n); }, "UTF-32");
    const auto wide = terminated<wchar_t>(cps);
    check<char>(
        utf8, capacity, [&](char* out, size_t n) { return vl_wchar_to_utf8(wide.data(), out, n); }, "wide");
    if (std::any_of(cps.begin(), cps.end(), [](int cp) { return cp >= 0x100000; })) return;
    const auto short_units = terminated<unsigned short>(cps);
    OddBytes bytes(short_units);
    check<char>(
        utf8, capacity, [&](char* out, size_t n) { return vl_utf16_to_utf8(short_units.data(), out, n); }, "UTF-16");
    check<char>(
        utf8, capacity, [&](char* out, size_t n) { return vl_utf16_to_utf8(bytes.data(), out, n); }, "UTF-16 in bytes");
}

TEST(UnicodeConversion, StopsAtEverySmallCapacity) {
    for (const char* text : {"", "a", "abcdefgh", "\xC3\xA9\xC3\xA9\xC3\xA9", "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC",
                             "\xF0\x9F\x98\x80\xF0\x9F\x98\x80", "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xE2\x82"})
        for (size_t capacity = 0; capacity <= 8; ++capacity) {
            check_out_of_utf8(text, capacity);
            check_into_utf8(model_read(text).cps, capacity);
        }
}

TEST(UnicodeConversion, AgreesWithTheModelOnRandomTexts) {
    std::mt19937 random(63);
    for (int round = 0; round < 3500; ++round) {
        const Script script = k_scripts[round % 7];
        const std::string text = random_text(random, script, random() % 400);
        const size_t capacity = round % 2 == 0 ? 450 : random() % 450;
        SCOPED_TRACE(round);
        ASSERT_NO_FATAL_FAILURE(check_out_of_utf8(text, capacity));
        ASSERT_NO_FATAL_FAILURE(check_into_utf8(model_read(text).cps, round % 2 == 0 ? 2000 : capacity));
    }
}

TEST(UnicodeConversion, LongTextsComeBack) {
    std::mt19937 random(64);
    for (const Script script : {Script::Ascii, Script::Latin, Script::Cjk, Script::Emoji, Script::Mixed}) {
        const std::string text = random_text(random, script, 200'000);
        std::vector<unsigned int> utf32(text.size() + 1);
        std::vector<unsigned short> utf16(text.size() + 1);
        std::string back(text.size() + 1, '#');
        vl_utf32_to_utf8(vl_utf8_to_utf32(text.c_str(), utf32.data(), utf32.size()), back.data(), back.size());
        EXPECT_EQ(back.c_str(), text);
        if (script == Script::Mixed) continue;  // it has code points above what pairs hold
        vl_utf16_to_utf8(vl_utf8_to_utf16(text.c_str(), utf16.data(), utf16.size()), back.data(), back.size());
        EXPECT_EQ(back.c_str(), text);
        EXPECT_EQ(vl_utf16_strlen(utf16.data()), vl_utf8_strlen(text.c_str()));
    }
}

// Where vectors meet: every kind of damage at every place around their ends.
TEST(UnicodeConversion, ReadsDamageLikeTheModelWhereverItLies) {
    for (const char* filling : {"q", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"})
        for (const char* damage : {"\x80", "\xC0\xAF", "\xC3", "\xE2\x82", "\xE0\x80\x80", "\xF0\x9F\x98", "\xFF",
                                   "\xF4\x90\x80\x80", "\xED\xA0\x80", "\xF8\x88\x80\x80"})
            for (size_t place = 0; place < 40; ++place) {
                std::string text(place % 4, 'x');
                for (size_t i = 0; i < 100; ++i)
                    text += i == place ? damage : filling;
                SCOPED_TRACE(place);
                const ModelText model = model_read(text);
                ASSERT_EQ(vl_utf8_strlen(text.c_str()), model.cps.size());
                ASSERT_EQ(vl_utf8_is_valid(text.c_str()), model.is_valid ? 1 : 0);
                ASSERT_NO_FATAL_FAILURE(check_out_of_utf8(text, 500));
                ASSERT_NO_FATAL_FAILURE(check_into_utf8(model.cps, 500));
            }
}

TEST(UnicodeConversion, Utf16IsReadUnitByUnitWherePairsAreBroken) {
    std::mt19937 random(65);
    constexpr unsigned short k_units[] = {'a', 0x20AC, 0xD800, 0xD87D, 0xDBFF, 0xDC01, 0xDE00, 0xDFFF};
    for (int round = 0; round < 4000; ++round) {
        std::vector<unsigned short> units(random() % 120);
        for (unsigned short& unit : units)
            unit = random() % 3 == 0 ? static_cast<unsigned short>(0x60 + random() % 20) : k_units[random() % 8];
        units.push_back(0);
        std::string expected;
        size_t pos = 0, count = 0;
        while (const int cp = vl_utf16_get_code_point(units.data(), &pos)) {
            expected += model_utf8(cp);
            ++count;
        }
        std::string out(600, '#');
        vl_utf16_to_utf8(units.data(), out.data(), out.size());
        ASSERT_EQ(out.c_str(), expected) << round;
        ASSERT_EQ(vl_utf16_strlen(units.data()), count) << round;
        const OddBytes bytes(units);
        ASSERT_EQ(vl_utf16_strlen(bytes.storage.data() + 1), count) << round;
    }
}

TEST(UnicodeConversion, ThePairForZeroEndsTheText) {
    for (size_t place = 0; place < 40; ++place) {
        std::vector<unsigned short> units(place, 0x20AC);
        units.insert(units.end(), {0xD800, 0xDC00, 'a', 'b', 0});
        units.insert(units.end(), 30, 'c');
        std::string out(300, '#');
        vl_utf16_to_utf8(units.data(), out.data(), out.size());
        EXPECT_EQ(strlen(out.c_str()), 3 * place);
    }
}

TEST(UnicodeConversion, Utf32EndsAtWhatHasNoForm) {
    for (size_t place = 0; place < 40; ++place) {
        std::vector<unsigned int> units(60, 0xE9);
        units.back() = 0;
        units[place] = 0x200000;
        char out[200];
        EXPECT_EQ(strlen(vl_utf32_to_utf8(units.data(), out, sizeof out)), 2 * place);
        units[place] = 0x1FFFFF;
        EXPECT_EQ(strlen(vl_utf32_to_utf8(units.data(), out, sizeof out)), 2 * 58U + 4);
        units[place] = 0xFFFFFF41;  // negative: its low 8 bits
        EXPECT_EQ(vl_utf32_to_utf8(units.data(), out, sizeof out)[2 * place], 'A');
        EXPECT_EQ(strlen(out), 2 * 58U + 1);
    }
}

TEST(UnicodeConversion, ReadsNothingBehindThePageOfTheTerminator) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* pages =
        static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
    for (const int cp : {0x61, 0xE9, 0x20AC, 0x1F600})
        for (size_t length = 0; length <= 70; ++length) {
            const std::vector<int> cps(length, cp);
            std::string expected, out(400, '#');
            for (size_t i = 0; i < length; ++i)
                expected += model_utf8(cp);
            const auto utf16 = terminated<unsigned short>(cps);
            for (const size_t before_end : {size_t{0}, size_t{1}}) {
                auto* bytes = reinterpret_cast<unsigned char*>(pages) + page - before_end - 2 * utf16.size();
                memcpy(bytes, utf16.data(), 2 * utf16.size());
                EXPECT_STREQ(vl_utf16_to_utf8(bytes, out.data(), out.size()), expected.c_str());
                EXPECT_EQ(vl_utf16_strlen(bytes), length);
            }
            const auto utf32 = terminated<unsigned int>(cps);
            auto* units = reinterpret_cast<unsigned int*>(pages + page) - utf32.size();
            std::copy(utf32.begin(), utf32.end(), units);
            EXPECT_STREQ(vl_utf32_to_utf8(units, out.data(), out.size()), expected.c_str());
        }
    munmap(pages, 2 * page);
}

TEST(UnicodeConversion, ANullTextIsEmpty) {
    char utf8[4] = "###";
    unsigned short utf16[2] = {1, 1};
    unsigned int utf32[2] = {1, 1};
    EXPECT_STREQ(vl_utf32_to_utf8(nullptr, utf8, 4), "");
    EXPECT_EQ(vl_utf8_to_utf16(nullptr, utf16, 2)[0], 0);
    EXPECT_EQ(vl_utf8_to_utf32(nullptr, utf32, 2)[0], 0U);
    EXPECT_STREQ(vl_utf16_to_utf8(static_cast<const unsigned short*>(nullptr), utf8, 4), "");
}

TEST(PrintableText, IsWhatFitsWithoutCutEscapes) {
    const std::string text("a\n\xC3\xA9\\\0", 6), shown = "a\\n\xC3\xA9\\\\\\x00";
    const struct {
        size_t capacity;
        std::string stored;
    } cases[] = {{1, ""}, {2, "a"}, {3, "a"}, {4, "a\\n"}, {5, "a\\n"}, {6, "a\\n\xC3\xA9"}, {12, shown}, {50, shown}};
    for (const auto& each : cases) {
        std::string out(60, '?');
        EXPECT_EQ(vl_utf8_printable(out.data(), each.capacity, text.data(), text.size(), VL_BACKSLASHES_DOUBLED),
                  shown.size());
        EXPECT_EQ(out.substr(0, each.stored.size() + 1), each.stored + '\0');
        EXPECT_EQ(out.substr(each.capacity), std::string(60 - each.capacity, '?'));
    }
    EXPECT_EQ(vl_utf8_printable(nullptr, 0, text.data(), text.size(), VL_BACKSLASHES_KEPT), shown.size() - 1);
    EXPECT_EQ(vl_utf8_printable(nullptr, 0, nullptr, 0, VL_BACKSLASHES_KEPT), 0U);
}

}  // namespace
