// Opening things and running programs, on a desktop of this test's own: an application entry, associations, and a
// program that writes down what it was called with. One desktop per process, for GIO reads it once.

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/desktop_shell.h"

namespace {

class Desktop : public testing::Test {
protected:
    static void SetUpTestSuite() {
        for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_CURRENT_DESKTOP"})
            unsetenv(variable);
        setenv("HOME", (folder() / "home").c_str(), 1);
        setenv("XDG_DATA_HOME", (folder() / "data").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (folder() / "config").c_str(), 1);
        setenv("XDG_DATA_DIRS", (folder() / "shared").c_str(), 1);
        setenv("XDG_CONFIG_DIRS", (folder() / "config").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (folder() / "run").c_str(), 1);
        const std::string program =
            folder().write("recorder", "#!/bin/sh\nexec printf '%s|' \"$@\" >'" + pipe() + "'\n");
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        install("recorder", "Film Recorder", program + " %u");
        install("files", "File Recorder", program + " file %f");
        install("missing", "Missing Program", "/nonexistent/program %u");
        folder().write("config/mimeapps.list",
                       "[Default Applications]\nx-scheme-handler/gantry=recorder.desktop\n"
                       "x-scheme-handler/lost=missing.desktop\ntext/plain=files.desktop\n"
                       "inode/directory=files.desktop\n");
        folder().write("config/user-dirs.dirs", "XDG_VIDEOS_DIR=\"$HOME/My Films\"\n");
    }
    void SetUp() override { ASSERT_EQ(mkfifo(pipe().c_str(), 0600), 0); }
    void TearDown() override { unlink(pipe().c_str()); }

    static const TemporaryFolder& folder() {
        static const TemporaryFolder one;
        return one;
    }
    static std::string pipe() { return folder() / "pipe"; }
    static void install(const std::string& id, const std::string& name, const std::string& command) {
        folder().write("data/applications/" + id + ".desktop",
                       "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + command + "\n");
    }

    /// What the recorder was called with by `open`, each argument followed by "|".
    template <class Open>
    std::string recorded(Open open_something) const {
        const int end = open(pipe().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        std::string text;
        if (open_something()) {
            pollfd watched{end, POLLIN, 0};
            constexpr int k_patience_ms = 60000;
            while (poll(&watched, 1, k_patience_ms) == 1) {
                char piece[4096];
                const ssize_t got = read(end, piece, sizeof piece);
                if (got <= 0) break;
                text.append(piece, static_cast<size_t>(got));
            }
        } else {
            text = "(not opened)";
        }
        close(end);
        return text;
    }

    LogCapture log{MSG_DEBUG};
};

constexpr char k_odd_name[] = "odd $(touch x);`touch y` & 'quoted\" #1%20?.txt";

TEST_F(Desktop, OpensUrlsWithTheApplicationForTheirScheme) {
    EXPECT_EQ(recorded([] { return cocoa_open_url("gantry://clip/1?a=b&c='d'"); }), "gantry://clip/1?a=b&c='d'|");
    EXPECT_EQ(recorded([] { return cocoa_open_url("GANTRY:x"); }), "GANTRY:x|");
    for (const char* url : {"unknown://x", "lost://x", "no url", "", ":", "gantry", "gantry://\xFF"})
        EXPECT_FALSE(cocoa_open_url(url)) << url;
    EXPECT_FALSE(cocoa_open_url(nullptr));
    EXPECT_TRUE(log.contains("Desktop: can't open 'lost://x': ")) << log.text();
}

TEST_F(Desktop, OpensFilesAndFoldersWithTheApplicationForTheirKind) {
    const std::string file = folder().write(k_odd_name, "plain text\n");
    EXPECT_EQ(recorded([&] { return cocoa_open_file_with_default_app(file.c_str()); }), "file|" + file + "|");
    EXPECT_EQ(recorded([&] { return cocoa_open_dir_in_finder(folder().path().c_str()); }),
              "file|" + folder().path() + "|");
    EXPECT_EQ(recorded([&] { return cocoa_open_url(("file://" + folder().path()).c_str()); }),
              "file|" + folder().path() + "|");
    EXPECT_FALSE(cocoa_open_file_with_default_app((folder() / "missing.txt").c_str()));
    EXPECT_FALSE(cocoa_open_dir_in_finder((folder() / "missing").c_str()));
    EXPECT_FALSE(cocoa_open_file_with_default_app(""));
    EXPECT_FALSE(cocoa_open_file_with_default_app(nullptr));
    EXPECT_FALSE(cocoa_open_dir_in_finder(nullptr));
    EXPECT_FALSE(std::filesystem::exists("x") || std::filesystem::exists("y"));
}

TEST_F(Desktop, StartsApplicationsByAnyOfTheirNames) {
    const std::string entry = folder() / "data/applications/files.desktop";
    const std::string file = folder().write(k_odd_name, "plain text\n");
    for (const char* name : {"files", "files.desktop", "File Recorder", entry.c_str()}) {
        EXPECT_EQ(recorded([&] { return cocoa_open_file_with_application(name, file.c_str()); }), "file|" + file + "|")
            << name;
    }
    EXPECT_EQ(recorded([] { return cocoa_open_file_with_application("File Recorder", nullptr); }), "file|");
    const std::string program = folder() / "recorder";
    EXPECT_EQ(recorded([&] { return cocoa_open_file_with_application(program.c_str(), file.c_str()); }), file + "|");
    EXPECT_FALSE(cocoa_open_file_with_application("Missing Program", file.c_str()));
    EXPECT_FALSE(cocoa_open_file_with_application("no such application", nullptr));
    EXPECT_FALSE(cocoa_open_file_with_application("", nullptr));
    EXPECT_FALSE(cocoa_open_file_with_application(nullptr, file.c_str()));
}

TEST_F(Desktop, LeavesNothingOnStandardErrorAndNoChildren) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const int saved = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    const std::string file = folder().write("text.txt", "plain text\n");
    const std::string seen = recorded([&] { return cocoa_open_file_with_default_app(file.c_str()); });
    for (const char* url : {"lost://x", "unknown:", "\xC3(:"})
        EXPECT_FALSE(cocoa_open_url(url));
    char path[4096];
    cocoa_movies_path(path, sizeof path);
    static_cast<void>(cocoa_get_num_mounted_local_volume_paths());
    dup2(saved, STDERR_FILENO);
    char text[4096] = {};
    EXPECT_EQ(read(ends[0], text, sizeof text - 1), -1) << text;
    EXPECT_EQ(seen, "file|" + file + "|");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST_F(Desktop, KnowsTheUsersFolders) {
    char path[4096];
    EXPECT_TRUE(cocoa_movies_path(path, sizeof path));
    EXPECT_EQ(path, folder() / "home/My Films");
    char cut[5] = {'x', 'x', 'x', 'x', 'x'};
    EXPECT_TRUE(cocoa_movies_path(cut, 4));
    EXPECT_EQ(std::string(cut, 5), folder().path().substr(0, 3) + std::string("\0x", 2));
    std::filesystem::create_directories(folder() / "shared/applications");
    EXPECT_TRUE(cocoa_application_path(path, sizeof path));
    EXPECT_EQ(path, folder() / "shared/applications");
    setenv("XDG_DATA_DIRS", ("relative::/nonexistent:" + folder().path() + "/shared/").c_str(), 1);
    EXPECT_TRUE(cocoa_application_path(path, sizeof path));
    EXPECT_EQ(path, folder() / "shared/applications");
    setenv("XDG_DATA_DIRS", "/nonexistent", 1);
    EXPECT_TRUE(cocoa_application_path(path, sizeof path));
    EXPECT_STREQ(path, "/usr/share/applications");
}

TEST_F(Desktop, ListsTheVolumesOfThisMachine) {
    const int32_t count = cocoa_get_num_mounted_local_volume_paths();
    ASSERT_GE(count, 1);
    const char* root = cocoa_get_mounted_local_volume_path(0);
    EXPECT_STREQ(root, "/");
    EXPECT_EQ(cocoa_get_mounted_local_volume_path(0), root);
    std::set<std::string> paths;
    for (int32_t i = 0; i < count; ++i) {
        paths.insert(cocoa_get_mounted_local_volume_path(i));
    }
    EXPECT_EQ(paths.size(), static_cast<size_t>(count));
    for (const char* system : {"/proc", "/sys", "/dev"})
        EXPECT_EQ(paths.count(system), 0u) << system;
    EXPECT_EQ(cocoa_get_mounted_local_volume_path(-1), nullptr);
    EXPECT_EQ(cocoa_get_mounted_local_volume_path(count), nullptr);
}

bool run(std::string command, int32_t* status, int32_t wait = 1) {
    char shell[] = "sh", option[] = "-c";
    char* arguments[] = {shell, option, command.data(), nullptr};
    return cocoa_run_executable_with_args("sh", arguments, wait, status);
}

TEST_F(Desktop, TellsHowAProgramEnded) {
    const struct {
        const char* command;
        int32_t status;
    } cases[] = {{"exit 0", 0}, {"exit 255", 255}, {"kill -9 $$", INT32_MIN + 9}, {"kill -15 $$", INT32_MIN + 15}};
    for (const auto& c : cases) {
        int32_t status = 7;
        EXPECT_TRUE(run(c.command, &status)) << c.command;
        EXPECT_EQ(status, c.status) << c.command;
    }
    EXPECT_TRUE(run("exit 3", nullptr));
    EXPECT_EQ(log.text(), "");
}

TEST_F(Desktop, WarnsOfAProgramThatDoesNotStart) {
    char name[] = "program";
    char* arguments[] = {name, nullptr};
    int32_t status = 7;
    EXPECT_FALSE(cocoa_run_executable_with_args("/nonexistent/program", arguments, 1, &status));
    EXPECT_EQ(status, -1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"WARN : Failed to start '/nonexistent/program' - 2"});
    EXPECT_FALSE(cocoa_run_executable_with_args(nullptr, arguments, 1, &status));
    EXPECT_FALSE(cocoa_run_executable_with_args("sh", nullptr, 1, nullptr));
    EXPECT_FALSE(cocoa_open_file_with_executable("/nonexistent/program", "a", "b", 0));
    EXPECT_FALSE(cocoa_open_file_with_executable(nullptr, nullptr, nullptr, 1));
}

TEST_F(Desktop, ReapsTheProgramsThatNobodyWaitsFor) {
    int32_t status = 7;
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(run("exit 1", &status, /*wait*/ 0));
    EXPECT_EQ(status, 0);
    // All have ended, not all have been reaped: the first of these calls may meet one that is still running.
    for (int ended = 0; ended == 0;) {
        siginfo_t info{};
        EXPECT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOWAIT), 0);
        EXPECT_TRUE(run("exit 0", &status));
        info = {};
        ended = waitid(P_ALL, 0, &info, WEXITED | WNOWAIT | WNOHANG) != 0 ? 1 : 0;
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(Desktop, WaitsThroughSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART, so that the wait is interrupted
    sigaction(SIGUSR1, &action, nullptr);
    int32_t status = 7;
    EXPECT_TRUE(run("kill -USR1 $PPID; kill -USR1 $PPID; exit 4", &status));
    EXPECT_EQ(status, 4);
}

TEST_F(Desktop, PassesUpToTwoArguments) {
    const std::string program = folder() / "recorder";
    EXPECT_EQ(recorded([&] { return cocoa_open_file_with_executable(program.c_str(), "a b", "$HOME", 0); }),
              "a b|$HOME|");
    EXPECT_EQ(recorded([&] { return cocoa_open_file_with_executable(program.c_str(), "one", nullptr, 0); }), "one|");
}

TEST(TemporaryPath, EndsInASlashOrInSlashZero) {
    const struct {
        const char* folder;
        int32_t size;
        int32_t result;
        const char* expected;
    } cases[] = {
        {"/tmp/x/", 64, 7, "/tmp/x/"}, {"/tmp/x", 64, 6, "/tmp/x/0"}, {"", 64, 4, "/tmp/0"},
        {"/tmp", 8, 4, "/tmp/0"},      {"/tmp", 7, 0, "/tmp"},        {"/tmp", 5, 0, "/tmp"},
        {"/tmp", 3, 0, "/t"},          {"/tmp", 2, 0, "/"},           {"/tmp", 1, 0, ""},
    };
    for (const auto& c : cases) {
        setenv("TMPDIR", c.folder, 1);
        char buffer[65];
        std::fill(std::begin(buffer), std::end(buffer), '\x7F');
        EXPECT_EQ(cocoa_get_temp_path(buffer, c.size), c.result) << c.folder << c.size;
        EXPECT_STREQ(buffer, c.expected) << c.folder << c.size;
        EXPECT_EQ(buffer[c.size], '\x7F');
    }
    unsetenv("TMPDIR");
    char buffer[64];
    EXPECT_EQ(cocoa_get_temp_path(buffer, sizeof buffer), 4);
    EXPECT_EQ(cocoa_get_temp_path(buffer, 0), 0);
    EXPECT_EQ(cocoa_get_temp_path(buffer, -5), 0);
    EXPECT_EQ(cocoa_get_temp_path(nullptr, 64), 0);
}

}  // namespace
