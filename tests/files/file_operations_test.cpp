// Operations on paths: results, codes and what is left behind.

#include "vellcore/file_operations.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fstream>
#include <string>

#include "platform/posix/file_calls.h"
#include "support/temporary_folder.h"
#include "vellcore/message_log.h"

namespace {

TEST(FileChecks, TellFilesFoldersAndBundlesApart) {
    const TemporaryFolder folder;
    folder.write("file", "x");
    folder.write("Editor.app/inside", "x");
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    const struct {
        const char* name;
        bool is_file, is_directory, is_bundle;
    } cases[] = {
        {"file", true, false, false},   {"link", true, false, false},    {"Editor.app", false, false, true},
        {"", false, true, false},       {"absent", false, false, false}, {"absent.app", false, false, true},
        {"x.App", false, false, false},
    };
    for (const auto& c : cases) {
        const std::string path = folder / c.name;
        EXPECT_EQ(file_exists(path.c_str()), c.is_file) << c.name;
        EXPECT_EQ(file_is_directory(path.c_str()), c.is_directory) << c.name;
        EXPECT_EQ(file_is_bundle(path.c_str()), c.is_bundle) << c.name;
    }
    EXPECT_FALSE(file_exists(nullptr) || file_is_directory(nullptr) || file_is_bundle(nullptr));
}

TEST(FileCreateDirectory, AnswersWhetherParentsWereMade) {
    const TemporaryFolder folder;
    folder.write("file", "");
    const std::string root = folder.path();
    const struct {
        std::string path;
        bool recursive;
        int32_t result;
    } cases[] = {
        {root + "/a", false, 0},
        {root + "/a", false, -1},
        {root + "/a", true, -1},
        {root + "/b/c/d", false, -1},
        {root + "/b/c/d", true, 1},
        {root + "/b/e", true, 0},
        {root + "/f/g/", true, 1},
        {root + "/h//i", true, 1},
        {root + "/file/x/y", true, -1},
        {"", true, -1},
        {"/", true, -1},
        {root + "/" + std::string(5000, 'x'), true, -1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(file_create_directory(c.path.c_str(), c.recursive), c.result) << c.path;
    EXPECT_EQ(file_create_directory(nullptr, true), -1);
}

TEST(FileDelete, RemovesFilesEmptyFoldersAndLinks) {
    const TemporaryFolder folder;
    folder.write("file", "");
    folder.write("full/inside", "");
    mkdir((folder / "empty").c_str(), 0777);
    ASSERT_EQ(symlink("full", (folder / "link").c_str()), 0);
    EXPECT_EQ(file_delete((folder / "file").c_str()), 0);
    EXPECT_EQ(file_delete((folder / "file").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(file_delete((folder / "empty").c_str()), 0);
    EXPECT_EQ(file_delete((folder / "link").c_str()), 0);
    EXPECT_EQ(file_delete((folder / "full").c_str()), -1);
    EXPECT_TRUE(file_exists((folder / "full/inside").c_str()));
    EXPECT_EQ(file_delete(nullptr), -1);
}

TEST(FileMove, HasACodeForEveryReason) {
    const TemporaryFolder folder;
    folder.write("source", "s");
    folder.write("taken", "t");
    const std::string root = folder.path(), source = root + "/source";
    const struct {
        std::string from, to;
        bool overwrite;
        int32_t result;
    } cases[] = {
        {"", root + "/x", true, -6},
        {source, "", true, -10},
        {source, source, true, -9},
        {source, root + "/taken", false, -7},
        {source, "name", true, -4},
        {source, "/" + std::string(1023, 'x') + "/y", true, -4},
        {source, root + "/taken/y", true, -5},
        {root + "/absent", root + "/x", true, -11},
        {source, root + "/new/folder/y", false, 0},
        {root + "/new/folder/y", root + "/taken", true, 0},
        {root + "/taken", root + "/Editor.app/y", true, 0},
        {root + "/Editor.app/y", root + "/Editor.app/z", true, -5},
        {root + "/Editor.app/y", root + "/z", false, 0},
        {root + "/new", root + "/b", false, 0},
        {root + "/z", root + "/b", false, -11},
    };
    for (const auto& c : cases)
        EXPECT_EQ(file_move(c.from.c_str(), c.to.c_str(), c.overwrite), c.result) << c.to;
    EXPECT_EQ(read_whole_file(root + "/z"), "s");
    EXPECT_EQ(file_move(nullptr, "/x", true), -6);
    EXPECT_EQ(file_move("/x", nullptr, true), -10);
}

// What appears at the destination between the checks and the rename stays.
TEST(FileMove, ReplacesNothingThatAppearsMeanwhile) {
    const TemporaryFolder folder;
    static std::string rival;
    rival = folder / "to";
    folder.write("from", "mine");
    vell::file_calls.rename_to_free_name = [](const char* from, const char* to) {
        std::ofstream(rival) << "theirs";
        return vell::system_file_calls.rename_to_free_name(from, to);
    };
    EXPECT_EQ(file_move((folder / "from").c_str(), rival.c_str(), false), -7);
    vell::file_calls = vell::system_file_calls;
    EXPECT_EQ(read_whole_file(rival), "theirs");
    std::filesystem::remove(rival);
    vell::file_calls.rename_to_free_name = [](const char*, const char*) {
        std::ofstream(rival) << "theirs";
        return errno = EINVAL, -1;
    };
    EXPECT_EQ(file_move((folder / "from").c_str(), rival.c_str(), false), -7) << "where that call is missing";
    EXPECT_EQ(read_whole_file(rival), "theirs");
    EXPECT_EQ(file_move((folder / "from").c_str(), (folder / "other").c_str(), false), 0);
    EXPECT_EQ(read_whole_file(folder / "other"), "mine");
    EXPECT_FALSE(file_exists((folder / "from").c_str()));
    std::filesystem::create_directory(folder / "box");
    EXPECT_EQ(file_move((folder / "box").c_str(), (folder / "moved").c_str(), false), 0) << "a folder has one name";
    vell::file_calls.link = [](const char*, const char*) { return errno = EPERM, -1; };
    EXPECT_EQ(file_move((folder / "other").c_str(), (folder / "last").c_str(), false), 0) << "and where links are, too";
    vell::file_calls = vell::system_file_calls;
}

// A rival makes the folder between the parent's making and the second try.
TEST(FileCreateDirectory, CountsARivalsFolderAsMade) {
    const TemporaryFolder folder;
    static int calls;
    calls = 0;
    vell::file_calls.mkdir = [](const char* path, mode_t mode) {
        if (++calls == 4) vell::system_file_calls.mkdir(path, mode);
        return vell::system_file_calls.mkdir(path, mode);
    };
    EXPECT_EQ(file_create_directory((folder / "a/b").c_str(), true), 1);
    vell::file_calls = vell::system_file_calls;
    EXPECT_TRUE(file_is_directory((folder / "a/b").c_str()));
}

TEST(FileBackup, ShiftsOldFilesByOne) {
    const TemporaryFolder folder;
    folder.write("x.log", "0");
    folder.write("x.1.log", "1");
    folder.write("x.2.log", "2");
    EXPECT_EQ(file_backup((folder / "x.log").c_str(), 0), 0);
    EXPECT_EQ(file_backup((folder / "x.log").c_str(), -5), 0);
    EXPECT_EQ(file_backup((folder / "x.log").c_str(), 2), 2);
    EXPECT_FALSE(file_exists((folder / "x.log").c_str()));
    EXPECT_EQ(read_whole_file(folder / "x.1.log"), "0");
    EXPECT_EQ(read_whole_file(folder / "x.2.log"), "1");
    EXPECT_FALSE(file_exists((folder / "x.3.log").c_str()));
    EXPECT_EQ(file_backup((folder / "x.log").c_str(), INT_MAX), 2);
    EXPECT_EQ(file_backup(nullptr, 2), 0);
}

TEST(FileBackup, LooksForTheDotInTheNameOnly) {
    const TemporaryFolder folder;
    folder.write("v1.0/notes", "n");
    EXPECT_EQ(file_backup((folder / "v1.0/notes").c_str(), 3), 1);
    EXPECT_EQ(read_whole_file(folder / "v1.0/notes.1."), "n");
}

// Every unlink and rename of a rotation is refused in turn: the rest still happens, and the log names the file.
TEST(FileBackup, GoesOnAfterAFailure) {
    static int refused, calls;
    for (refused = 0; refused < 3; ++refused) {
        const TemporaryFolder folder;
        for (const char* name : {"x.log", "x.1.log", "x.2.log"})
            folder.write(name, name);
        FILE* log = tmpfile();
        ASSERT_NE(log, nullptr);
        msg_initialize(log);
        calls = 0;
        vell::file_calls.unlink = [](const char* path) {
            return calls++ == refused ? (errno = EACCES, -1) : vell::system_file_calls.unlink(path);
        };
        vell::file_calls.rename = [](const char* from, const char* to) {
            return calls++ == refused ? (errno = EACCES, -1) : vell::system_file_calls.rename(from, to);
        };
        const bool is_removal = refused == 0;
        EXPECT_EQ(file_backup((folder / "x.log").c_str(), 2), is_removal ? 2 : 1) << refused;
        vell::file_calls = vell::system_file_calls;
        char text[2048] = {};
        rewind(log);
        ASSERT_GT(fread(text, 1, sizeof text - 1, log), 0u);
        msg_closedown();
        fclose(log);
        const char* expected = is_removal ? "F-BK: Failed to remove...(Permission denied)\n"
                                          : "F-BK: Failed to rename...(Permission denied)\n";
        EXPECT_NE(std::string(text).find(expected), std::string::npos) << text;
        const char* named[] = {"x.2.log'", "x.1.log'", "x.log'"};
        EXPECT_NE(std::string(text).find(named[refused]), std::string::npos) << text;
    }
}

TEST(ErrorMessage, IsTheSystemsText) {
    errno = ENOENT;
    EXPECT_STREQ(_errormsg(), "No such file or directory");
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
