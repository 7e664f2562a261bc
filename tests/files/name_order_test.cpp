// Natural order: the comparisons, and that sorting with prepared keys is sorting with the comparisons.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "files/merge_sort.h"
#include "files/sort_keys.h"
#include "vellcore/directory_listing.h"

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(NaturalOrder, ComparesNamesAsPeopleReadThem) {
    const struct {
        const char* label;
        const char *a, *b;
        int order;
    } cases[] = {
        {"numbers, not digits", "img9.dpx", "img10.dpx", -1},
        {"leading zeros", "a007", "a7", 0},
        {"zeros are skipped whole", "a007b", "a7c", -1},
        {"case", "ABC", "abd", -1},
        {"case only", "Shot", "sHOT", 0},
        {"different extensions are plain text", "a10.x", "a2.y", -1},
        {"the extension's case counts", "a10.DPX", "a2.dpx", -1},
        {"one extension only is natural", "a10", "a2.x", 1},
        {"the last dot counts", "a.1.x", "a.2.x", -1},
        {"an empty extension is one", "a10.", "a2.b", -1},
        {"the shorter first", "a", "ab", -1},
        {"a digit against a letter", "a1", "ab", -1},
        {"a digit against a sign", "a1", "a!", 1},
        {"a longer name with a high byte comes first", "a", "a\xC3\xA9", 1},
        {"high bytes are below zero", "\xC3\xA9", "z", -1},
        {"high bytes are above in plain text", "\xC3\xA9.x", "z.y", 1},
        {"the largest number", "a4294967295", "a4294967294", 1},
        {"an eleventh digit is not counted", "a42949672950", "a4294967295", 0},
        {"nor is what carries beyond 32 bits", "a4294967296", "a429496729", 0},
        {"digits behind an overlong number are skipped", "a99999999999999999999b", "a99999999999999999998c", -1},
        {"empty", "", "", 0},
        {"empty against something", "", "a", -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(sign(file_namecmp(c.a, c.b)), c.order) << c.label;
        EXPECT_EQ(sign(file_namecmp(c.b, c.a)), -c.order) << c.label << ", turned round";
    }
    EXPECT_EQ(file_namecmp("a.txt", "b.dpx"), strcasecmp("a.txt", "b.dpx"));
    EXPECT_EQ(file_namecmp(nullptr, ""), 0);
}

TEST(NaturalOrder, ComparesFoldersAsPlainText) {
    const auto order = [](const char* a, const char* b) { return sign(dir_cmp(&a, &b)); };
    EXPECT_EQ(order("take10", "take2"), -1);
    EXPECT_EQ(order("Take", "tAKE"), 0);
    EXPECT_EQ(order("", "a"), -1);
    EXPECT_EQ(order("", "\xC3"), 1);
    EXPECT_EQ(order("", ""), 0);
}

TEST(NaturalOrder, ComparesDatesWithFoldersFirst) {
    const auto entry = [](const char* name, int64_t date, bool is_directory) {
        return _file_entry{const_cast<char*>(name), date, 0, is_directory, {}};
    };
    const _file_entry sorted[] = {
        entry("take10", 5, true), entry("take2", 5, true),      entry("early", 6, true),
        entry("z", -1, false),    entry("shot2.dpx", 5, false), entry("shot10.dpx", 5, false),
    };
    for (size_t i = 0; i + 1 < std::size(sorted); ++i) {
        EXPECT_LT(date_cmp(&sorted[i], &sorted[i + 1]), 0) << sorted[i].name;
        EXPECT_GT(date_cmp(&sorted[i + 1], &sorted[i]), 0) << sorted[i].name;
    }
}

std::string random_name(std::mt19937& random) {
    static constexpr const char* k_pieces[] = {"a",    "A",  "b", ".",    ".dpx", ".DPX",       ".longextension",
                                               "0",    "00", "1", "9",    "10",   "4294967296", "\xC3",
                                               "\xA9", "_",  "!", "\x7F", "shot", "Z"};
    std::string name;
    for (size_t pieces = 1 + random() % 6; pieces > 0; --pieces)
        name += k_pieces[random() % std::size(k_pieces)];
    return name;
}

std::vector<std::string> random_names(unsigned seed, size_t count) {
    std::mt19937 random(seed);
    std::vector<std::string> names(count);
    for (std::string& name : names)
        name = random_name(random);
    return names;
}

TEST(SortKeys, OrderEveryPairAsTheComparisonDoes) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        const std::vector<std::string> names = random_names(seed, 120);
        vell::SortKeys keys;
        const auto name_at = [](const void* all, int32_t i) {
            return (*static_cast<const std::vector<std::string>*>(all))[static_cast<size_t>(i)].c_str();
        };
        ASSERT_TRUE(keys.make(name_at, &names, static_cast<int32_t>(names.size())));
        for (const vell::SortKey& a : keys.keys())
            for (const vell::SortKey& b : keys.keys())
                ASSERT_EQ(sign(vell::file_order(a, b)), sign(file_namecmp(a.name, b.name)))
                    << a.name << " | " << b.name;
    }
}

// With one extension the order is a strict one, so there is only one stable result.
TEST(FlistSort, SortsAsAnyStableSortDoes) {
    for (const size_t count : {0U, 1U, 2U, 7U, 8U, 9U, 100U, 1000U, 5000U}) {
        std::vector<std::string> names = random_names(static_cast<unsigned>(count), count);
        dir_list* list = static_cast<dir_list*>(std::calloc(1, sizeof(dir_list)));
        for (std::string& name : names) {
            std::erase(name, '.');
            flist_add_file(list, (name += ".x").c_str(), 0);
            flist_add_dir(list, name.c_str(), 0, 0);
        }
        flist_sort(list, FLIST_BY_NAME);
        std::vector<std::string> folders = names;
        std::stable_sort(names.begin(), names.end(),
                         [](auto& a, auto& b) { return file_namecmp(a.c_str(), b.c_str()) < 0; });
        std::stable_sort(folders.begin(), folders.end(),
                         [](auto& a, auto& b) { return strcasecmp(a.c_str(), b.c_str()) < 0; });
        EXPECT_TRUE(std::equal(names.begin(), names.end(), list->files, list->files + list->file_count));
        EXPECT_TRUE(
            std::equal(folders.begin(), folders.end(), list->directories, list->directories + list->directory_count));
        flist_delete(list);
    }
}

TEST(MergeSort, KeepsEveryElementWithAnInconsistentComparison) {
    std::mt19937 random(7);
    for (const size_t count : {3U, 8U, 9U, 17U, 1000U}) {
        std::vector<int> data(count + 2, -1), scratch(count + 2, -1);
        for (size_t i = 0; i < count; ++i)
            data[i + 1] = static_cast<int>(i);
        vell::merge_sort(data.data() + 1, count, scratch.data() + 1, [&](int, int) { return random() % 2 == 0; });
        EXPECT_TRUE(data.front() == -1 && data.back() == -1 && scratch.front() == -1 && scratch.back() == -1);
        std::sort(data.begin(), data.end());
        for (size_t i = 0; i < count; ++i)
            ASSERT_EQ(data[i + 2], static_cast<int>(i));
    }
}

TEST(FlistSort, ByDateSortsTheEntriesOnly) {
    dir_list* list = static_cast<dir_list*>(std::calloc(1, sizeof(dir_list)));
    flist_add_file(list, "new", 20);
    flist_add_dir(list, "folder", 30, 0);
    flist_sort(list, FLIST_BY_DATE);
    EXPECT_STREQ(list->entries[0].name, "new") << "one of each is left alone";
    flist_add_file(list, "shot10", 10);
    flist_add_file(list, "shot9", 10);
    flist_sort(list, FLIST_BY_DATE);
    const char* entries[] = {"folder", "shot9", "shot10", "new"};
    const char* files[] = {"new", "shot10", "shot9"};
    for (int i = 0; i < 4; ++i)
        EXPECT_STREQ(list->entries[i].name, entries[i]);
    for (int i = 0; i < 3; ++i)
        EXPECT_STREQ(list->files[i], files[i]);
    flist_sort(list, FLIST_UNSORTED);
    flist_sort(nullptr, FLIST_BY_NAME);
    flist_delete(list);
}

}  // namespace
