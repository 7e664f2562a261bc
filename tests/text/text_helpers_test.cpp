#include "vellcore/text_helpers.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace {

/// A string of the library's, taken over.
std::string taken(char* text) {
    std::string copy = text != nullptr ? text : "(null)";
    std::free(text);
    return copy;
}

std::vector<std::string> taken(LinkNode* list) {
    std::vector<std::string> texts;
    for (const LinkNode* node = list; node != nullptr; node = node->next)
        texts.emplace_back(static_cast<const char*>(node->link));
    vl_linklist_freeN(list);
    return texts;
}

TEST(TextHelpers, CopyStrings) {
    char* with_terminators = vl_strdupn("a\0b", 3);
    EXPECT_EQ(std::string(with_terminators, 4), std::string("a\0b\0", 4));
    std::free(with_terminators);
    EXPECT_EQ(taken(vl_strdupn("abc", 2)), "ab");
    EXPECT_EQ(taken(vl_strdup("")), "");
    EXPECT_EQ(taken(vl_strdupcat("ab", "cd")), "abcd");
    EXPECT_EQ(taken(vl_strdupcat(nullptr, "cd")), "cd");
    EXPECT_EQ(vl_strdup(nullptr), nullptr);
    EXPECT_EQ(vl_strdupn("a", SIZE_MAX), nullptr);
    EXPECT_EQ(vl_strnlen("abc", 2), 2U);
    EXPECT_EQ(vl_strnlen("abc", 9), 3U);
    EXPECT_EQ(vl_strnlen("abc", 0), 0U);
}

TEST(LinkList, PutsInFrontAndTurnsRound) {
    LinkNode* list = nullptr;
    LinkNode* const first = vl_linklist_prepend(&list, vl_strdup("x"));
    EXPECT_EQ(list, first);
    auto* own = static_cast<LinkNode*>(std::malloc(sizeof(LinkNode)));
    EXPECT_EQ(vl_linklist_prepend_nlink(&list, vl_strdup("y"), own), first) << "the one that was in front";
    EXPECT_EQ(list, own);
    EXPECT_EQ(vl_linklist_reverse(&list), nullptr);
    EXPECT_EQ(taken(list), (std::vector<std::string>{"x", "y"}));
    LinkNode* empty = nullptr;
    vl_linklist_reverse(&empty);
    EXPECT_EQ(empty, nullptr);
}

TEST(Lines, EndAtLineFeedsOnly) {
    const TemporaryFolder folder;
    const std::string long_line(100'000, 'l');
    const struct {
        std::string content;
        std::vector<std::string> lines;
    } rows[] = {{"a\r\nb", {"a\r", "b"}},
                {"a\n", {"a", ""}},
                {"", {""}},
                {"\n\n", {"", "", ""}},
                {long_line + "\n" + long_line, {long_line, long_line}}};
    for (const auto& row : rows)
        EXPECT_EQ(taken(vl_file_read_as_lines(folder.write("file", row.content).c_str())), row.lines);
    EXPECT_EQ(vl_file_read_as_lines((folder / "none").c_str()), nullptr);
    EXPECT_EQ(vl_file_read_as_lines(folder.path().c_str()), nullptr);
    EXPECT_EQ(vl_file_read_as_lines(nullptr), nullptr);
}

}  // namespace
