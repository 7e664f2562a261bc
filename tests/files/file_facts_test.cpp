// Sizes, times and their texts; operations on names.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "support/temporary_folder.h"
#include "vellcore/file_operations.h"

namespace {

TEST(FileFacts, AreThoseOfRegularFiles) {
    const TemporaryFolder folder;
    const std::string file = folder.write("file", "12345");
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    ASSERT_EQ(symlink("absent", (folder / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    ASSERT_TRUE(file_set_modified_ts((folder / "link").c_str(), 86400));
    const struct {
        std::string path;
        uint64_t size;
        bool in_use, has_time;
    } cases[] = {
        {file, 5, false, true},
        {folder / "link", 5, false, true},
        {folder.path(), 0, false, true},
        {folder / "pipe", 0, false, true},
        {folder / "absent", 0, true, false},
        {folder / "dangling", 0, true, false},
        {"", 0, true, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(file_size(c.path.c_str()), c.size) << c.path;
        EXPECT_EQ(file_in_use(c.path.c_str()), c.in_use) << c.path;
        EXPECT_EQ(file_get_modified_ts(c.path.c_str()) != 0, c.has_time) << c.path;
    }
    struct stat facts {};
    ASSERT_EQ(stat(file.c_str(), &facts), 0);
    EXPECT_TRUE(facts.st_mtime == 86400 && facts.st_atime == 86400 && facts.st_mtim.tv_nsec == 0);
    EXPECT_FALSE(file_set_modified_ts((folder / "absent").c_str(), 1) || file_set_modified_ts(nullptr, 1));
    EXPECT_TRUE(file_in_use(nullptr));
    EXPECT_EQ(file_size(nullptr) + static_cast<uint64_t>(file_get_modified_ts(nullptr)), 0u);
}

TEST(FileIsHidden, AsksTheDesktopAboutTheJoinedPath) {
    const TemporaryFolder folder;
    folder.write(".dot", "x");
    folder.write("plain", "x");
    for (const std::string& in : {folder.path(), folder.path() + "/"}) {
        EXPECT_TRUE(file_is_hidden(in.c_str(), ".dot"));
        EXPECT_FALSE(file_is_hidden(in.c_str(), "plain"));
    }
    EXPECT_FALSE(file_is_hidden("", ".dot") || file_is_hidden(nullptr, ".dot") || file_is_hidden("/", nullptr));
    EXPECT_FALSE(file_is_hidden(std::string(5000, '/').c_str(), ".dot"));
}

class FileTimeTexts : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
        tzset();
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }
};

TEST_F(FileTimeTexts, AreInLocalTimeOrUtc) {
    const TemporaryFolder folder;
    const std::string file = folder.write("file", "");
    const struct {
        int64_t seconds;
        const char *day_first, *date, *utc;
    } cases[] = {
        {1709852705, " 7-03-24 18:05", "2024-03-07", "2024-03-07T23:05:05Z"},
        {1720065600, " 4-07-24  0:00", "2024-07-04", "2024-07-04T04:00:00Z"},
        {-1, "31-12-69 18:59", "1969-12-31", "1969-12-31T23:59:59Z"},
        {946702800, " 1-01-00  0:00", "2000-01-01", "2000-01-01T05:00:00Z"},
    };
    for (const auto& c : cases) {
        char out[32] = "x";
        file_ts_2_txt(c.seconds, out, sizeof out);
        EXPECT_STREQ(out, c.day_first);
        ASSERT_TRUE(file_set_modified_ts(file.c_str(), c.seconds));
        EXPECT_TRUE(file_get_local_datetime_str(file.c_str(), out, sizeof out));
        EXPECT_STREQ(out, c.day_first);
        EXPECT_TRUE(file_get_mod_date_str(file.c_str(), out, sizeof out, false));
        EXPECT_STREQ(out, c.date);
        EXPECT_TRUE(file_get_mod_date_str(file.c_str(), out, sizeof out, true));
        EXPECT_STREQ(out, c.utc);
        for (const bool utc : {true, false}) {
            EXPECT_FALSE(file_get_mod_date_str(file.c_str(), out, 8, utc));
            EXPECT_STREQ(out, "");
        }
    }
    char out[32] = "x";
    EXPECT_FALSE(file_get_local_datetime_str((folder / "absent").c_str(), out, sizeof out));
    EXPECT_FALSE(file_get_mod_date_str(nullptr, out, sizeof out, false));
    file_ts_2_txt(INT64_MAX, out, sizeof out);
    EXPECT_STREQ(out, "");
    EXPECT_FALSE(file_get_local_datetime_str(file.c_str(), nullptr, 5));
}

TEST(FileSizeLabel, RoundsToTheUnitBelow1024) {
    const struct {
        float bytes;
        const char* label;
    } cases[] = {
        {0, "0 B"},
        {500, "500 B"},
        {1023.99F, "1024.0 B"},
        {1024, "1 KB"},
        {1536, "1.5 KB"},
        {1048576, "1 MB"},
        {1288490188.8F, "1.2 GB"},
        {1099511627776.F, "1 TB"},
        {-5, "-5 B"},
        {1125899906842624.F, "1 PB"},
        {1152921504606846976.F, "1 EB"},
        {1e25F, "8673617 EB"},
    };
    for (const auto& c : cases) {
        char out[32];
        EXPECT_TRUE(file_size_label(c.bytes, out, sizeof out));
        EXPECT_STREQ(out, c.label);
    }
    char out[5];
    EXPECT_FALSE(file_size_label(1536.F, out, sizeof out));
    EXPECT_STREQ(out, "1.5 ");
    EXPECT_FALSE(file_size_label(1.F, nullptr, 5) || file_size_label(1.F, out, 0));
}

TEST(FileSizeLabel, ReadsAndWritesNumbersWhateverTheLocale) {
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // where there is one, its decimal point is a comma
    const struct {
        const char *text, *label;
    } cases[] = {
        {"1536", "1.5 KB"}, {" +2048 bytes", "2 KB"}, {"1.5e3x", "1.5 KB"}, {"512.5", "512.5 B"}, {"many", "0 B"},
        {" ", "0 B"},       {"-3", "-3 B"},           {"", nullptr},        {"1e99", nullptr},
    };
    for (const auto& c : cases) {
        char out[32] = "";
        EXPECT_EQ(file_size_label(c.text, out, sizeof out), c.label != nullptr) << c.text;
        EXPECT_STREQ(out, c.label != nullptr ? c.label : "");
    }
    char out[8];
    EXPECT_FALSE(file_size_label(static_cast<const char*>(nullptr), out, sizeof out));
    std::setlocale(LC_ALL, "C");
}

TEST(FileExtension, LooksAtTheNamesEnd) {
    const char* path = "/a.dpx/Shot.DPX";
    EXPECT_EQ(file_extension(path, ".dpx"), path + 11);
    EXPECT_EQ(file_extension(path, "shot.dpx"), path + 7);
    EXPECT_EQ(file_extension(path, ""), path + 15);
    for (const char* ext : {".dpy", "/Shot.DPX", "a longer text than the whole path"})
        EXPECT_EQ(file_extension(path, ext), nullptr) << ext;
    EXPECT_EQ(file_extension("/a.dpx/", ".dpx"), nullptr);
    EXPECT_TRUE(file_extension(nullptr, "x") == nullptr && file_extension("x", nullptr) == nullptr);
}

TEST(CopyValidFilename, ReplacesWhatNamesMayNotHold) {
    const struct {
        const char* source;
        int32_t size;
        const char* copy;
        int32_t taken;
    } cases[] = {
        {"a:b?c", 0, "a_b_c", 5},
        {"?~<>:\"/\\|", 0, "_________", 9},
        {"\x01\x1E\x1F\x7F\xC3\xA9", 0, "__\x1F\x7F\xC3\xA9", 6},
        {"abcdef", 4, "abc", 4},
        {"abcd", 4, "abc", 4},
        {"abc", 4, "abc", 3},
        {"a", 1, "", 1},
        {"", 1, "", 0},
    };
    for (const auto& c : cases) {
        char out[16];
        std::fill(out, out + sizeof out, '#');
        EXPECT_EQ(vl_copy_valid_filename(out, c.source, c.size), c.taken) << c.source;
        EXPECT_STREQ(out, c.copy);
        if (c.size > 0) {
            EXPECT_EQ(out[c.size], '#') << "nothing is written behind the size";
        }
    }
    char out[4] = "###";
    EXPECT_EQ(vl_copy_valid_filename(out, "abc", -1), 0);
    EXPECT_STREQ(out, "###");
}

TEST(IncrementSuffix, CountsUpOrBegins) {
    const struct {
        const char* name;
        bool square;
        const char* next;
    } cases[] = {
        {"clip", false, "clip(1)"},
        {"clip(9)", false, "clip(10)"},
        {"clip(10)", true, "clip(10)[1]"},
        {"x[3]", true, "x[4]"},
        {"a)", false, "a)(1)"},
        {"a(1)(2)", false, "a(1)(3)"},
        {"", true, "[1]"},
        {"(1)", false, "(2)"},
        {"a(final)", false, "a(1)"},
        {"a(2nd)", false, "a(3)"},
        {"a()", false, "a(1)"},
        {"a(1", false, "a(1(1)"},
        {"a(007)", false, "a(8)"},
        {"a(999999999)", false, "a(1000000000)"},
        {"a(2147483646)", false, "a(2147483647)"},
        {"a(2147483647)", false, "a(2147483647)(1)"},
        {"a(9999999999)", false, "a(9999999999)(1)"},
        {"a(1) ", false, "a(1) (1)"},
    };
    for (const auto& c : cases) {
        char name[64];
        std::snprintf(name, sizeof name, "%s", c.name);
        EXPECT_TRUE(vl_increment_suffix(name, c.square));
        EXPECT_STREQ(name, c.next) << c.name;
    }
    EXPECT_FALSE(vl_increment_suffix(nullptr, true));
}

}  // namespace
