// Names, lists and journals: what is written is read back, and what is damaged does not count.

#include <algorithm>
#include <random>

#include "cli/digest_option.h"
#include "offload/digest.h"
#include "offload/escaped_names.h"
#include "offload/folder_walk.h"
#include "offload/journal.h"
#include "offload/sum_list.h"
#include "ui/failure.h"
#include "ui/file_names.h"
#include "ui/screen.h"

namespace {

using namespace tool;

const std::string k_odd_names[] = {"plain.mov",
                                   "with blank",
                                   "new\nline",
                                   "back\\slash",
                                   "carriage\rreturn",
                                   "tab\there",
                                   "-dash",
                                   "\xFF\xFE",
                                   "a/b/c",
                                   "\\n",
                                   "end\\",
                                   std::string(255, 'x'),
                                   " (x) = y ",
                                   "*star",
                                   "\xC3\xA9t\xC3\xA9",
                                   "bell\a\x1B[31m red"};

std::string digest_text(DigestKind kind, char digit = 'a') {
    return std::string(names_of(kind).digits, digit);
}

JournalEntry entry_for(const std::string& path, uint64_t bytes) {
    JournalEntry entry{path, bytes, 1'700'000'000'123'456'789, -5, {}, true};
    digest_of(entry.digests, DigestKind::md5) = digest_text(DigestKind::md5);
    digest_of(entry.digests, DigestKind::xxh3) = digest_text(DigestKind::xxh3, '0');
    return entry;
}

TEST(Digest, IsTheOneOfThePublishedPrograms) {
    const struct {
        DigestKind kind;
        const char* of_abc;
        const char* of_nothing;
    } cases[] = {
        {DigestKind::md5, "900150983cd24fb0d6963f7d28e17f72", "d41d8cd98f00b204e9800998ecf8427e"},
        {DigestKind::sha1, "a9993e364706816aba3e25717850c26c9cd0d89d", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {DigestKind::xxh64, "44bc2cf5ad770999", "ef46db3751d8e999"},
        {DigestKind::xxh3, "78af5f94892f3950", "2d06800538d394c2"},
        {DigestKind::xxh128, "06b05ab6733a618578af5f94892f3950", "99aa06d3014798d86001c324468d497f"}};
    for (const auto& c : cases) {
        Digester whole(c.kind), pieces(c.kind), nothing(c.kind);
        whole.add("abc", 3);
        pieces.add("a", 1);
        pieces.add("bc", 2);
        EXPECT_EQ(whole.finish(), c.of_abc);
        EXPECT_EQ(pieces.finish(), c.of_abc);
        EXPECT_EQ(nothing.finish(), c.of_nothing);
    }
}

TEST(Digest, KindsAreChosenByName) {
    EXPECT_EQ(parse_digest_set({}, digest_set({DigestKind::sha1})).kinds(), std::vector{DigestKind::sha1});
    EXPECT_EQ(parse_digest_set({"xxh3,md5", "xxh64"}, {}).kinds(),
              (std::vector{DigestKind::md5, DigestKind::xxh64, DigestKind::xxh3}));
    for (const char* wrong : {"", "md5,", "MD5", "sha256", ",md5", "md5 "})
        EXPECT_THROW((void)parse_digest_set({wrong}, {}), Failure) << wrong;
}

TEST(FileNames, AreHarmlessOnATerminal) {
    const struct {
        std::string name, shown;
    } cases[] = {{"clip \xC3\xA9.mov", "clip \xC3\xA9.mov"},
                 {"a\nb\tc\rd\\e", "a\\nb\\tc\\rd\\\\e"},
                 {"\x1B[2J", "\\x1b[2J"},
                 {"\x7F", "\\x7f"},
                 {"\xFF\xC3", "\\xff\\xc3"},
                 {"\xC2\x9B", "\\xc2\\x9b"},  // a control sequence in one character
                 {"\xE2\x80\xAE"
                  "gpj",
                  "\\xe2\\x80\\xaegpj"},               // turns the text around
                 {"\xC0\xAF", "\\xc0\\xaf"},           // over-long
                 {"\xED\xA0\x80", "\\xed\\xa0\\x80"},  // a surrogate
                 {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}};
    for (const auto& c : cases)
        EXPECT_EQ(printable_name(c.name), c.shown);
}

TEST(FileNames, AreExactInJson) {
    EXPECT_EQ(json_name("path", "a\"b\\c\n"), "\"path\":\"a\\\"b\\\\c\\u000a\"");
    EXPECT_EQ(json_name("path", "\xC2\x9B\x7F\xE2\x80\xAE\xF0\x9F\x8E\xAC"),
              "\"path\":\"\\u009b\\u007f\\u202e\xF0\x9F\x8E\xAC\"");
    EXPECT_EQ(json_name("path", "x\xFF"), "\"path\":\"x\xEF\xBF\xBD\",\"path_hex\":\"78ff\"");
}

TEST(FileNames, InsidePathsStayInside) {
    for (const char* good : {"a", "a/b", "...", "a/..b", " "})
        EXPECT_TRUE(is_inside_path(good)) << good;
    for (const std::string bad : {"", "/a", "a/", "a//b", ".", "..", "a/../b", "../a"})
        EXPECT_FALSE(is_inside_path(bad)) << bad;
    EXPECT_FALSE(is_inside_path(std::string("a\0b", 3)));
}

TEST(NaturalOrder, CountsDigitsAndIsTotal) {
    std::vector<std::string> names = {"a10",   "a2",   "a", "a02", "b1", "a2b", "A3",
                                      "a2a10", "a2a9", "",  "10",  "9",  "a00", "a0"};
    std::sort(names.begin(), names.end(), comes_before);
    EXPECT_EQ(names, (std::vector<std::string>{"", "9", "10", "A3", "a", "a0", "a00", "a02", "a2", "a2a9", "a2a10",
                                               "a2b", "a10", "b1"}));
    std::mt19937 random(7);
    std::vector<std::string> many(60);
    for (std::string& name : many) {
        for (auto i = random() % 6; i > 0; --i)
            name += "a01.9"[random() % 5];
    }
    for (const std::string& a : many) {
        EXPECT_FALSE(comes_before(a, a));
        for (const std::string& b : many) {
            EXPECT_EQ(comes_before(a, b) || comes_before(b, a), a != b) << a << " " << b;
            for (const std::string& c : many)
                EXPECT_FALSE(comes_before(a, b) && comes_before(b, c) && !comes_before(a, c)) << a << b << c;
        }
    }
}

TEST(Journal, GivesBackWhatWasRecorded) {
    std::string text = journal_header();
    uint64_t bytes = 0;
    for (const std::string& name : k_odd_names)
        text += journal_line(entry_for(name, ++bytes));
    size_t bad_lines = 0;
    const JournalEntries entries = parse_journal(text, bad_lines);
    EXPECT_EQ(bad_lines, 0U);
    ASSERT_EQ(entries.size(), std::size(k_odd_names));
    bytes = 0;
    for (const std::string& name : k_odd_names) {
        const JournalEntry& entry = entries.at(name);
        EXPECT_EQ(entry.bytes, ++bytes);
        EXPECT_EQ(entry.source_ns, 1'700'000'000'123'456'789);
        EXPECT_EQ(entry.own_ns, -5);
        EXPECT_EQ(entry.digests, entry_for(name, 0).digests);
        EXPECT_TRUE(entry.is_verified);
    }
}

TEST(Journal, TheLastLineAboutAPathHolds) {
    JournalEntry second = entry_for("a", 2);
    second.is_verified = false;
    size_t bad_lines = 0;
    const auto entries = parse_journal(journal_line(entry_for("a", 1)) + journal_line(second), bad_lines);
    EXPECT_EQ(entries.at("a").bytes, 2U);
    EXPECT_FALSE(entries.at("a").is_verified);
}

TEST(Journal, ATornLastLineDoesNotCount) {
    const std::string start = journal_header() + journal_line(entry_for("first", 1));
    const std::string last = journal_line(entry_for("sec\tond\n", 2));
    for (size_t bytes = 0; bytes < last.size(); ++bytes) {
        size_t bad_lines = 0;
        // The next run goes on in a line of its own.
        const std::string text = start + last.substr(0, bytes) + "\n" + journal_line(entry_for("third", 3));
        for (const std::string& torn : {start + last.substr(0, bytes), text}) {
            const auto entries = parse_journal(torn, bad_lines);
            EXPECT_TRUE(entries.contains("first")) << bytes;
            // Only its newline is missing from the whole line.
            const bool is_whole = bytes == last.size() - 1 && torn.size() == text.size();
            EXPECT_EQ(entries.contains("sec\tond\n"), is_whole) << bytes;
            EXPECT_EQ(bad_lines, bytes == 0 || is_whole ? 0U : 1U) << bytes;
        }
        EXPECT_TRUE(parse_journal(text, bad_lines).contains("third")) << bytes;
    }
}

TEST(Journal, ADamagedLineDoesNotCount) {
    const std::string line = journal_line(entry_for("a", 1));
    for (size_t i = 0; i + 1 < line.size(); ++i) {
        std::string damaged = line;
        damaged[i] = static_cast<char>(damaged[i] ^ 1);
        size_t bad_lines = 0;
        EXPECT_TRUE(parse_journal(damaged, bad_lines).empty()) << i;
        EXPECT_GT(bad_lines, 0U) << i;
    }
}

TEST(Journal, LeadsNowhereElse) {
    for (const char* path : {"../a", "/etc/passwd", "a/../../b", ""}) {
        size_t bad_lines = 0;
        EXPECT_TRUE(parse_journal(journal_line(entry_for(path, 1)), bad_lines).empty()) << path;
        EXPECT_EQ(bad_lines, 1U);
    }
}

TEST(SumList, GivesBackWhatWasWritten) {
    for (const DigestKind kind : k_digest_kinds) {
        for (const std::string& name : k_odd_names) {
            for (const std::string& line :
                 {format_sum_line(kind, digest_text(kind), name), format_tagged_line(kind, digest_text(kind), name)}) {
                if (line.empty()) continue;  // a newline in XXH3SUMS
                EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << name;
                const auto parsed = parse_sum_line(line.substr(0, line.size() - 1));
                ASSERT_TRUE(parsed) << line;
                EXPECT_EQ(parsed->path, name);
                EXPECT_EQ(parsed->digest, digest_text(kind));
                EXPECT_EQ(parsed->kind.value_or(kind), kind);
            }
        }
    }
}

TEST(SumList, ReadsWhatOtherProgramsWrite) {
    const std::string digest(32, '0');
    EXPECT_EQ(parse_sum_line(digest + " *binary")->path, "binary");
    EXPECT_EQ(parse_sum_line(std::string(32, 'A') + "  x")->digest, std::string(32, 'a'));
    EXPECT_EQ(parse_sum_line("XXH64 (a (b)) = 0123456789abcdef")->path, "a (b)");
    for (const std::string& wrong :
         {std::string("comment"), digest, digest + " ", digest + "  ", digest + "\tx", std::string(31, '0') + "  x",
          std::string("MD5 (x) = 12"), "\\" + digest + "  a\\b", std::string()})
        EXPECT_FALSE(parse_sum_line(wrong)) << wrong;
}

TEST(SumList, MergesAndSorts) {
    const std::string a(32, 'a'), b(32, 'b');
    const std::string old = "# kept\n" + a + "  z\n" + a + "  m\n";
    EXPECT_EQ(merge_sum_lists(DigestKind::md5, old, {{b, "m", {}}, {b, "c", {}}}),
              "# kept\n" + b + "  c\n" + b + "  m\n" + a + "  z\n");
    EXPECT_EQ(merge_sum_lists(DigestKind::md5, a + "  no newline", {}), a + "  no newline\n");
}

TEST(SumList, ForgetsDigestsThatHoldNoMore) {
    const std::string a(32, 'a');
    EXPECT_EQ(merge_sum_lists(DigestKind::md5, a + "  m\n" + a + "  z\n", {{"", "m", {}}, {"", "new", {}}}),
              a + "  z\n");
}

TEST(Bar, FitsTheTerminal) {
    for (const size_t columns : {40U, 69U, 70U, 200U}) {
        const std::string bar = bar_text(uint64_t{3} << 40, uint64_t{4} << 40, 100'000, columns);
        EXPECT_LT(bar.size(), columns);
        EXPECT_NE(bar.find(" 75 %"), std::string::npos) << bar;
        EXPECT_EQ(bar.find('#') != std::string::npos, columns >= 70) << bar;
    }
}

TEST(SumList, ItsKindIsToldByItsNameOrItsDigests) {
    const struct {
        const char* name;
        size_t digits;
        DigestKind kind;
    } cases[] = {{"MD5SUMS", 32, DigestKind::md5},        {"XXH128SUMS", 32, DigestKind::xxh128},
                 {"card.xxh128", 32, DigestKind::xxh128}, {"list.txt", 32, DigestKind::md5},
                 {"list.txt", 40, DigestKind::sha1},      {"list.txt", 16, DigestKind::xxh64},
                 {"XXH3SUMS", 16, DigestKind::xxh3}};
    for (const auto& c : cases)
        EXPECT_EQ(list_kind(c.name, std::string(c.digits, '0')), c.kind) << c.name;
    EXPECT_FALSE(list_kind("MD5SUMS", "123"));
}

}  // namespace
