// The application's folders and the log file that start-up opens.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "core/module_name.h"
#include "files/app_folders.h"
#include "support/temporary_folder.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace {

class AppFoldersTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("VELL_TEST_DATA", folder.path().c_str(), 1);
        setenv("XDG_DATA_HOME", folder.path().c_str(), 1);
        vell::set_module_name("/opt/editor/bin/editor");
    }
    TemporaryFolder folder;
};

mode_t permissions(const std::string& path) {
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 ? facts.st_mode & 0777 : 0;
}

TEST_F(AppFoldersTest, AreNamedByTheEnvironment) {
    EXPECT_STREQ(file_get_data(), "");
    EXPECT_STREQ(file_get_logfile(), "");
    file_initialize("editor", "VELL_TEST_DATA");
    EXPECT_EQ(file_get_data(), folder.path());
    EXPECT_STREQ(file_get_code(), "/opt/editor/bin/editor");
    EXPECT_EQ(file_get_default_settings(), folder / "Defaults");
    EXPECT_EQ(file_get_logfile(), folder / "Settings/logs/editor.log");
    EXPECT_EQ(vell::app_folders().search_list, folder / "Settings|" + (folder / "Defaults|/opt/editor/bin|"));
    EXPECT_EQ(permissions(folder / "Settings/logs"), 0777u);
    EXPECT_EQ(permissions(file_get_logfile()), 0666u);
    EXPECT_EQ(umask(0), 0u);
}

TEST_F(AppFoldersTest, HaveADefaultForEveryCase) {
    const std::string bundle = folder / "Editor.app/";
    folder.write("Editor.app/Settings/System.reg", "");
    const struct {
        const char* label;
        const char* app;
        const char* env;
        std::string module, data, search_end;
    } cases[] = {
        {"variable not set", "editor", "VELL_TEST_UNSET", "/x/y", folder / "editor", "|/x|"},
        {"no variable", "editor", nullptr, "/x/y", folder / "editor", "|/x|"},
        {"self-contained bundle", "editor", nullptr, bundle + "Contents/MacOS/e", bundle,
         "|" + (folder / "Editor.app|")},
        {"no name", nullptr, nullptr, "/x/y", "/x/y", "|/x|"},
        {"no name, no module", nullptr, nullptr, "", "", "||"},
        {"module at the root", nullptr, nullptr, "/y", "/y", "||"},
    };
    for (const auto& c : cases) {
        vell::set_module_name(c.module.empty() ? nullptr : c.module.c_str());
        file_initialize(c.app, c.env);
        EXPECT_EQ(file_get_data(), c.data) << c.label;
        const std::string list = vell::app_folders().search_list;
        EXPECT_EQ(list.substr(list.size() - c.search_end.size()), c.search_end) << c.label;
        EXPECT_STREQ(
            file_get_logfile(),
            c.app == nullptr ? "" : (c.data + (c.data.back() == '/' ? "" : "/") + "Settings/logs/editor.log").c_str())
            << c.label;
    }
}

TEST_F(AppFoldersTest, UseTheUsersDataFolderAndNeverARelativeOne) {
    setenv("XDG_DATA_HOME", "relative/path", 1);
    setenv("HOME", folder.path().c_str(), 1);
    file_initialize("editor", nullptr);
    EXPECT_EQ(file_get_data(), folder / ".local/share/editor");
}

TEST_F(AppFoldersTest, KeepTheTextsOfAnEarlierStart) {
    file_initialize("editor", "VELL_TEST_DATA");
    const char* data = file_get_data();
    const std::string text = data;
    file_initialize(nullptr, nullptr);
    EXPECT_EQ(data, text);
    EXPECT_NE(file_get_data(), text);
}

TEST_F(AppFoldersTest, TurnStandardErrorIntoTheLog) {
    file_initialize("editor", "VELL_TEST_DATA");
    EXPECT_EQ(msg_getlevel(), MSG_INFO);
    msginfo("from the log");
    ASSERT_EQ(write(STDERR_FILENO, "from a child\n", 13), 13);
    const std::string text = read_whole_file(file_get_logfile());
    EXPECT_NE(text.find("INFO : from the log\nfrom a child\n"), std::string::npos) << text;
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFD) & FD_CLOEXEC, 0);
    msg_closedown();
}

TEST_F(AppFoldersTest, LeaveStandardErrorAloneWhenTheLogCannotBeOpened) {
    ASSERT_EQ(mkdir((folder / "Settings").c_str(), 0777), 0);
    ASSERT_EQ(mkdir((folder / "Settings/logs").c_str(), 0777), 0);
    ASSERT_EQ(mkdir((folder / "Settings/logs/editor.log").c_str(), 0777), 0);
    struct stat before {
    }, after{};
    ASSERT_EQ(fstat(STDERR_FILENO, &before), 0);
    file_initialize("editor", "VELL_TEST_DATA");
    ASSERT_EQ(fstat(STDERR_FILENO, &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(msg_get_file(), stderr);
    EXPECT_EQ(msg_getlevel(), MSG_INFO);
}

TEST_F(AppFoldersTest, LogToTheCurrentFolderWhenTheLogFolderCannotBeMade) {
    folder.write("Settings", "a file in the way");
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    file_initialize("editor", "VELL_TEST_DATA");
    EXPECT_STREQ(file_get_logfile(), "editor.log");
    msginfo("first start");
    file_initialize("editor", "VELL_TEST_DATA");
    EXPECT_TRUE(file_exists("editor.log"));
    EXPECT_NE(read_whole_file("editor.1.log").find("first start"), std::string::npos);
}

TEST_F(AppFoldersTest, LogToStandardErrorWithoutAName) {
    file_initialize(nullptr, "VELL_TEST_DATA");
    EXPECT_EQ(msg_getlevel(), MSG_WARN);
    EXPECT_FALSE(file_is_directory((folder / "Settings").c_str()));
}

TEST_F(AppFoldersTest, KeepTenEarlierLogs) {
    for (int start = 0; start < 13; ++start) {
        file_initialize("editor", "VELL_TEST_DATA");
        msginfo("start %d", start);
    }
    EXPECT_NE(read_whole_file(folder / "Settings/logs/editor.1.log").find("start 11"), std::string::npos);
    EXPECT_NE(read_whole_file(folder / "Settings/logs/editor.10.log").find("start 2"), std::string::npos);
    EXPECT_FALSE(file_exists((folder / "Settings/logs/editor.11.log").c_str()));
}

TEST_F(AppFoldersTest, AreMadeOnDemand) {
    file_initialize(nullptr, "VELL_TEST_DATA");
    msg_closedown();
    const std::string root = folder.path();
    const std::string longest(1024, 'x');
    const struct {
        const char* label;
        std::string folder;
        const char* file;
        std::string expected;  ///< empty: refused
    } cases[] = {
        {"below the data folder", "a/b", "f", root + "/a/b/f"},
        {"absolute", root + "/c/d", "f", root + "/c/d/f"},
        {"a slash at its end", "e/", nullptr, root + "/e/"},
        {"a backslash at its end", "g\\", "", root + "/g/"},
        {"the root", "/", "f", "/f"},
        {"too long", longest, "f", ""},
        {"file too long", "h", longest.c_str(), ""},
        {"under a file", root + "/file/x", "f", ""},
    };
    folder.write("file", "");
    for (const auto& c : cases) {
        char out[1024];
        char* answer = file_ensure_directory(c.folder.c_str(), c.file, out);
        EXPECT_EQ(answer != nullptr ? answer : "", c.expected) << c.label;
    }
    EXPECT_EQ(permissions(root + "/a/b"), 0777u);
    EXPECT_STREQ(file_ensure_directory("a", "f"), (root + "/a/f").c_str());
    EXPECT_EQ(file_ensure_directory(nullptr, "f"), nullptr);
}

TEST_F(AppFoldersTest, SayWhyAFolderCannotBeMade) {
    file_initialize("editor", "VELL_TEST_DATA");
    folder.write("file", "");
    EXPECT_EQ(file_ensure_directory((folder / "file/x").c_str(), "f"), nullptr);
    const std::string line = "Error creating directory " + (folder / "file/x") + " : Not a directory\n";
    EXPECT_NE(read_whole_file(file_get_logfile()).find(line), std::string::npos);
}

TEST_F(AppFoldersTest, AreSearchedInOrder) {
    folder.write("one/Settings/both", "1");
    folder.write("one/Defaults/both", "2");
    folder.write("one/Defaults/second", "2");
    folder.write("plain", "");
    setenv("VELL_TEST_DATA", (folder / "one/").c_str(), 1);
    file_initialize("editor", "VELL_TEST_DATA");
    char out[1024] = "";
    EXPECT_EQ(file_find("both", out), 1);
    EXPECT_EQ(out, folder / "one/Settings/both");
    EXPECT_EQ(file_find("second", out), 1);
    EXPECT_EQ(out, folder / "one/Defaults/second");
    EXPECT_EQ(file_find((folder / "plain").c_str(), out), 1);
    EXPECT_EQ(out, folder / "plain");
    char name[1024] = "second";
    EXPECT_EQ(file_find(name, name), 1);
    EXPECT_STREQ(name, "second");
    EXPECT_EQ(file_find("second", nullptr), 1);
    EXPECT_EQ(file_find("third", out), 0);
    std::string roundabout = folder.path();
    while (roundabout.size() < 1024)
        roundabout += "/.";
    EXPECT_EQ(file_find((roundabout + "/plain").c_str(), out), 0) << "it would not fit";
    EXPECT_EQ(file_find("", out), 0);
    EXPECT_EQ(file_find(nullptr, out), 0);
    EXPECT_NE(read_whole_file(file_get_logfile()).find("Can't search for NULL file..."), std::string::npos);
}

TEST_F(AppFoldersTest, ReplaceVariablesInTheSearchList) {
    folder.write("sub/f", "");
    setenv("VELL_TEST_SUB", "sub", 1);
    const std::string& root = folder.path();
    const std::string too_long(2000, 'x');
    const struct {
        std::string list;
        bool is_found;
    } cases[] = {
        {root + "/$VELL_TEST_SUB$|", true},
        {root + "/$VELL_TEST_SUB|", true},
        {"$VELL_TEST_DATA$/sub", true},
        {root + "/sub$VELL_TEST_UNSET$|", true},
        {"||" + root + "/sub/|", true},
        {root + "|", false},
        {too_long + "|" + root + "/sub|", true},
        {"", false},
        {"$", false},
        {"$$|$|", false},
    };
    for (const auto& c : cases) {
        vell::PathText out;
        EXPECT_EQ(vell::find_in_list(c.list.c_str(), "f", out), c.is_found) << c.list;
        EXPECT_TRUE(!c.is_found || out.text() == root + "/sub/f") << c.list;
    }
}

}  // namespace
