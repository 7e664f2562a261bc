// Desktop services: folders and the locale.

#include "vellcore/desktop_shell.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "support/temporary_folder.h"

namespace {

TEST(DesktopShell, HandsOutAPool) {
    void* pool = vl_create_autorelease_pool();
    EXPECT_NE(pool, nullptr);
    vl_release_autorelease_pool(pool);
    vl_release_autorelease_pool(nullptr);
    cocoa_release_autorelease_pool(cocoa_create_autorelease_pool());
}

TEST(DesktopShell, FindsTheFolderForApplicationData) {
    setenv("HOME", "/home/u/", 1);
    const struct {
        const char* data_home;
        const char* expected;
    } cases[] = {
        {"/data//", "/data"}, {"relative", "/home/u//.local/share"}, {"", "/home/u//.local/share"}, {"/", "/"}};
    for (const auto& c : cases) {
        setenv("XDG_DATA_HOME", c.data_home, 1);
        char path[64];
        EXPECT_TRUE(cocoa_application_support_path(path, sizeof path)) << c.data_home;
        EXPECT_STREQ(path, c.expected);
    }
    unsetenv("XDG_DATA_HOME");
    unsetenv("HOME");
    char path[4096];
    EXPECT_TRUE(cocoa_application_support_path(path, sizeof path));
    EXPECT_EQ(path[0], '/');
    char cut[4] = {'x', 'x', 'x', 'x'};
    EXPECT_TRUE(cocoa_application_support_path(cut, 3));
    EXPECT_EQ(strlen(cut), 2u);
    EXPECT_EQ(cut[3], 'x');
    EXPECT_FALSE(cocoa_application_support_path(cut, 0));
    EXPECT_FALSE(cocoa_application_support_path(cut, -1));
    EXPECT_FALSE(cocoa_application_support_path(nullptr, 4));
}

TEST(DesktopShell, KnowsTheUsersLocale) {
    const struct {
        const char *all, *messages, *lang, *expected;
    } cases[] = {
        {"", "", "C.UTF-8", "en_US"},         {"", "", "de_AT.UTF-8@euro", "de_AT"},
        {"", "fr_FR", "de_AT", "fr_FR"},      {"pt_BR.UTF-8", "fr_FR", "de_AT", "pt_BR"},
        {"POSIX", "fr_FR", "de_AT", "pt_BR"}, {"", "", "", "pt_BR"},
    };
    for (const auto& c : cases) {
        setenv("LC_ALL", c.all, 1);
        setenv("LC_MESSAGES", c.messages, 1);
        setenv("LANG", c.lang, 1);
        EXPECT_STREQ(cocoa_user_locale(), c.expected);
    }
}

TEST(DesktopShell, KnowsWhatTheDesktopHides) {
    const TemporaryFolder folder;
    folder.write("list/.hidden", "listed\n\nname with blanks\nlast");
    for (const char* name :
         {"list/listed", "list/name with blanks", "list/last", "list/shown", "list/.dot", "list/back~"})
        folder.write(name, "");
    std::filesystem::create_directories(folder / "pipe/.folder");
    ASSERT_EQ(mkfifo((folder / "pipe/.hidden").c_str(), 0600), 0);
    std::filesystem::create_symlink("nowhere", folder / "pipe/.link");
    const struct {
        const char* path;
        bool is_hidden;
    } cases[] = {
        {"list/listed", true},     {"list/name with blanks", true},
        {"list/last", true},       {"list/shown", false},
        {"list/.dot", true},       {"list/back~", false},
        {"list/.missing", false},  {"list/.hidden", true},
        {"pipe/.folder", true},    {"pipe/.folder/", true},
        {"pipe/.folder/.", false}, {"pipe/.folder/..", false},
        {"pipe/.link", true},      {"pipe", false},
        {"list/listed/", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(cocoa_file_is_hidden((folder / c.path).c_str()), c.is_hidden) << c.path;
    std::filesystem::current_path(folder / "list");
    EXPECT_TRUE(cocoa_file_is_hidden("listed"));
    EXPECT_FALSE(cocoa_file_is_hidden("shown"));
    EXPECT_FALSE(cocoa_file_is_hidden("/Volumes"));
    EXPECT_FALSE(cocoa_file_is_hidden("/"));
    EXPECT_FALSE(cocoa_file_is_hidden(""));
    EXPECT_FALSE(cocoa_file_is_hidden(nullptr));
    std::filesystem::current_path("/");
}

}  // namespace
