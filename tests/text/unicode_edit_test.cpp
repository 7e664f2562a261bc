// Editing by code points, the filters for single bytes, and streams.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "support/temporary_folder.h"
#include "text/unicode_model.h"
#include "vellcore/unicode_text.h"

namespace {

using namespace vell::testing;

/// A buffer of exactly its capacity, so that a sanitizer sees a byte too many.
struct Buffer {
    Buffer(size_t capacity, const std::string& text) : bytes(capacity, '#') {
        std::copy_n(text.c_str(), text.size() + 1, bytes.begin());
    }
    char* data() { return bytes.data(); }
    std::string text() const { return bytes.data(); }
    std::vector<char> bytes;
};

std::string joined(const std::vector<std::string>& characters, size_t first, size_t end) {
    std::string text;
    for (size_t i = first; i < std::min(end, characters.size()); ++i)
        text += characters[i];
    return text;
}

std::vector<std::string> characters_of(const std::string& text) {
    std::vector<std::string> characters;
    size_t at = 0;
    for (const unsigned length : model_read(text).lengths) {
        characters.push_back(text.substr(at, length));
        at += length;
    }
    return characters;
}

/// The lengths, indices and counts around the ends of a text of a few characters.
constexpr int k_indices[] = {-1, 0, 1, 2, 3, 4, 5, 9};
constexpr const char* k_texts[] = {"",         "a",        "\xC3\xA9", "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
                                   "\xE2\x82", "a\xFF\x62"};

TEST(UnicodeEdit, InsertsACharacterWhereItFits) {
    for (const std::string text : k_texts)
        for (const int index : k_indices)
            for (const int cp : {0x78, 0xE9, 0x20AC, 0x1F600})
                for (size_t room = 0; room <= 8; ++room) {
                    const std::vector<std::string> all = characters_of(text);
                    const size_t at = std::min(static_cast<size_t>(std::max(index, 0)), all.size());
                    const std::string added = model_utf8(cp);
                    const bool fits = added.size() <= room;
                    Buffer buffer(text.size() + 1 + room, text);
                    EXPECT_EQ(vl_utf8_insert_char(buffer.data(), buffer.bytes.size(), index, cp),
                              fits ? added.size() : 0);
                    EXPECT_EQ(buffer.text(), fits ? joined(all, 0, at) + added + joined(all, at, all.size()) : text);
                }
}

TEST(UnicodeEdit, InsertsWhatFitsOfAText) {
    for (const std::string text : k_texts)
        for (const std::string added : k_texts)
            for (const int index : k_indices)
                for (size_t room = 0; room <= 8; ++room) {
                    const std::vector<std::string> all = characters_of(text);
                    const size_t at = std::min(static_cast<size_t>(std::max(index, 0)), all.size());
                    std::string fitting;
                    for (const std::string& character : characters_of(added)) {
                        if (fitting.size() + character.size() > room) break;
                        fitting += character;
                    }
                    Buffer buffer(text.size() + 1 + room, text);
                    EXPECT_EQ(vl_utf8_insert(buffer.data(), buffer.bytes.size(), index, added.c_str()), fitting.size());
                    EXPECT_EQ(buffer.text(), joined(all, 0, at) + fitting + joined(all, at, all.size()));
                }
}

TEST(UnicodeEdit, ErasesByCharacters) {
    for (const std::string text : k_texts)
        for (const int index : k_indices)
            for (const int count : k_indices) {
                const std::vector<std::string> all = characters_of(text);
                const size_t first = std::min(static_cast<size_t>(std::max(index, 0)), all.size());
                const size_t end = std::min(first + static_cast<size_t>(std::max(count, 0)), all.size());
                Buffer buffer(text.size() + 1, text);
                EXPECT_EQ(vl_utf8_erase(buffer.data(), index, count), joined(all, first, end).size());
                EXPECT_EQ(buffer.text(), joined(all, 0, first) + joined(all, end, all.size()));
            }
}

TEST(UnicodeEdit, RefusesWhatCannotBeInserted) {
    Buffer buffer(8, "ab");
    EXPECT_EQ(vl_utf8_insert_char(buffer.data(), 8, 0, 0x200000), 0U);
    EXPECT_EQ(vl_utf8_insert_char(buffer.data(), 0, 0, 'x'), 0U);
    EXPECT_EQ(vl_utf8_insert(buffer.data(), 0, 0, "x"), 0U);
    EXPECT_EQ(vl_utf8_insert(buffer.data(), 8, 0, nullptr), 0U);
    EXPECT_EQ(buffer.text(), "ab");
    EXPECT_EQ(vl_utf8_insert_char(buffer.data(), 8, 1, -1), 1U);
    EXPECT_EQ(buffer.text(), "a\xFF\x62") << "the low 8 bits of a negative number";
    EXPECT_EQ(vl_utf8_insert_char(buffer.data(), 8, 1, 0), 1U);
    EXPECT_EQ(buffer.text(), "a") << "a zero ends the string";
}

struct FilterRow {
    const char* label;
    const char* in;
    size_t capacity;
    const char* out;
};

void check_filter(char* (*filter)(char*, size_t, const char*) noexcept, const FilterRow& row) {
    std::string out(row.capacity + 1, '#');
    EXPECT_EQ(filter(out.data(), row.capacity, row.in), out.data()) << row.label;
    EXPECT_EQ(out.back(), '#') << row.label;
    if (row.capacity > 0) {
        EXPECT_STREQ(out.c_str(), row.out) << row.label;
    }
}

TEST(ByteFilters, Utf8ToLatin1) {
    const FilterRow rows[] = {
        {"two bytes of C3", "\xC3\xA9", 8, "\xE9"},
        {"two bytes of C2", "\xC2\xA9", 8, "\xA9"},
        {"euro sign, unchanged", "\xE2\x82\xAC", 8, "\xE2\x82\xAC"},
        {"C3 before ASCII", "\xC3(", 8, "\xC3("},
        {"C3 at the end", "a\xC3", 8, "a\xC3"},
        {"C3 before any upper byte, modulo 256", "\xC3\xFF", 8, "\x3F"},
        {"C3 before C0 makes a terminator", "a\xC3\xC0\x62", 8, "a"},
        {"capacity 3 holds one", "ab", 3, "a"},
        {"capacity 2 holds none", "ab", 2, ""},
        {"capacity 1", "ab", 1, ""},
        {"capacity 0", "ab", 0, ""},
        {"cut behind whole characters", "\xC3\xA9\xC3\xA8\xC3\xA7", 4, "\xE9\xE8"},
        {"null", nullptr, 8, ""},
        {"empty", "", 8, ""},
    };
    for (const FilterRow& row : rows)
        check_filter(vl_utf8_to_byte, row);
}

TEST(ByteFilters, Latin1ToUtf8) {
    const FilterRow rows[] = {
        {"upper half", "\xE9\xC0\xFF", 8, "\xC3\xA9\xC3\x80\xC3\xBF"},
        {"C1 controls and signs", "\x80\xA9\xBF", 8, "\xC2\x80\xC2\xA9\xC2\xBF"},
        {"exactly full", "a\xE9", 4, "a\xC3\xA9"},
        {"no half character", "a\xE9\x62", 3, "a"},
        {"capacity 1", "a", 1, ""},
        {"capacity 2", "ab", 2, "a"},
        {"capacity 0", "a", 0, ""},
        {"null", nullptr, 8, ""},
    };
    for (const FilterRow& row : rows)
        check_filter(vl_byte_to_utf8, row);
}

TEST(ByteFilters, Latin1SurvivesTheWayThroughUtf8) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all.push_back(static_cast<char>(byte));
    char utf8[600], back[600];
    vl_byte_to_utf8(utf8, sizeof utf8, all.c_str());
    EXPECT_EQ(vl_utf8_is_valid(utf8), 1);
    EXPECT_EQ(vl_utf8_to_byte(back, sizeof back, utf8), all);
    EXPECT_EQ(vl_utf8_to_byte(utf8, sizeof utf8, utf8), all) << "in place";
}

TEST(ByteFilters, XmlTextHasNoControls) {
    const FilterRow rows[] = {
        {"controls become spaces", "a\tb\x01\x1F c\r\n", 20, "a b   c\r\n"},
        {"upper bytes and DEL stay", "\xC3\xA9\x7F", 8, "\xC3\xA9\x7F"},
        {"capacity 3 holds one", "ab", 3, "a"},
        {"capacity 2 holds none", "ab", 2, ""},
        {"capacity 0", "ab", 0, ""},
        {"null", nullptr, 8, ""},
    };
    for (const FilterRow& row : rows)
        check_filter(validate_ascii_xml_text, row);
}

TEST(Utf8Streams, OpenFilesByUtf8Paths) {
    const TemporaryFolder folder;
    const std::string path = folder / "d\xC3\xA9j\xC3\xA0 \xE6\x98\xA0\xE7\x94\xBB.txt";
    FILE* stream = vl_utf8_fopen(path.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    fputs("first", stream);
    stream = vl_utf8_freopen(path.c_str(), "a", stream);
    ASSERT_NE(stream, nullptr);
    fputs(" second", stream);
    fclose(stream);
    EXPECT_EQ(read_whole_file(path), "first second");
}

TEST(Utf8Streams, SayWhyNothingWasOpened) {
    const TemporaryFolder folder;
    const std::string none = folder / "none";
    EXPECT_EQ(vl_utf8_fopen(none.c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(vl_utf8_fopen(nullptr, "r"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(vl_utf8_freopen(none.c_str(), nullptr, stderr), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
