// What the tool says and leaves behind when it cannot do its work.

#include <csignal>
#include <filesystem>

#include "clip_reference.h"
#include "run_vell.h"

namespace {

constexpr const char* k_header = "YUV4MPEG2 W64 H48 F25:1 C420jpeg";

/// Names in the folder, apart from what the runs themselves print to.
std::vector<std::string> names_in(const TemporaryFolder& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        const std::string name = entry.path().filename();
        if (name != "stdout" && name != "stderr") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class VellFailure : public testing::Test {
protected:
    void SetUp() override {
        clip = clip_text(random_clip(k_header, 6, 31));
        in = folder.write("in.y4m", clip);
    }
    /// Runs a command that must fail with `code`, say `text` and leave no result.
    void expect_failure(const std::vector<std::string>& arguments, int code, const std::string& text,
                        const std::string& output = "") {
        const RunResult run = run_vell(folder, arguments, output);
        EXPECT_EQ(run.code, code) << text << "\n" << run.errors;
        EXPECT_NE(run.errors.find(text), std::string::npos) << run.errors;
        EXPECT_EQ(names_in(folder), names) << text;
    }
    const TemporaryFolder folder;
    std::string clip, in;
    std::vector<std::string> names = {"in.y4m"};
};

TEST_F(VellFailure, NamesTheFrameAtWhichAClipEnds) {
    const struct {
        size_t bytes;
        const char* text;
    } cases[] = {{clip.size() - 1, "frame 5 at byte"},
                 {clip.find("FRAME") + 6 + 10, "frame 0 at byte"},
                 {clip.find("FRAME") + 3, "line of frame 0"},
                 {clip.find("FRAME") - 1, "ends inside the header"},
                 {20, "ends inside the header"}};
    for (const auto& c : cases) {
        folder.write("in.y4m", clip.substr(0, c.bytes));
        for (const char* command : {"proxy", "reverse"}) {
            expect_failure({"clip", command, in, folder / "out.y4m"}, 5, c.text);
        }
        expect_failure({"clip", "info", in}, 5, "truncated");
    }
}

TEST_F(VellFailure, RefusesWhatIsNoClip) {
    const struct {
        std::string content;
        const char* text;
    } cases[] = {
        {"", "not a YUV4MPEG2 clip"},
        {"RIFF\n", "not a YUV4MPEG2 clip"},
        {std::string(9000, 'x'), "not a YUV4MPEG2 clip"},
        {"YUV4MPEG2 W4 H4 C444alpha\n", "'C444alpha'"},
        {"YUV4MPEG2 W4\n", "no frame size"},
        {"YUV4MPEG2 W4 H4\nFRAMES\n" + std::string(24, 'x'), "no FRAME line: frame 0 at byte 16"},
        {"YUV4MPEG2 W4 H4\nFRAME\n" + std::string(24, 'x') + "frame\n" + std::string(2000, 'x'), "frame 1 at byte 46"},
        {"YUV4MPEG2 W4 H4\nFRAME\n" + std::string(24, 'x') + "junk", "frame 1 at byte 46"},
        {"YUV4MPEG2 W4 H4 X" + std::string(9000, 'x'), "the header does not end"},
    };
    for (const auto& c : cases) {
        folder.write("in.y4m", c.content);
        expect_failure({"clip", "framemd5", in}, 4, c.text);
    }
}

TEST_F(VellFailure, NamesAnInputThatCannotBeRead) {
    expect_failure({"clip", "info", folder / "absent"}, 3, "absent: cannot be read: No such file or directory");
    expect_failure({"clip", "proxy", folder.path(), folder / "out"}, 3, "is not a regular file");
}

TEST_F(VellFailure, NamesAnOutputThatCannotBeWritten) {
    expect_failure({"clip", "reverse", in, "/dev/full"}, 6, "/dev/full: cannot be written: No space left on device");
    expect_failure({"clip", "reverse", in, "-"}, 6, "standard output: cannot be written: No space left", "/dev/full");
    expect_failure({"clip", "framemd5", in}, 6, "standard output: cannot be written", "/dev/full");
    expect_failure({"clip", "info", in}, 6, "standard output: cannot be written", "/dev/full");
    expect_failure({"clip", "reverse", in, folder / "absent/out"}, 6, "out: cannot be written: No such file");
    expect_failure({"clip", "reverse", in, ""}, 2, "the output has no name");
    if (geteuid() == 0) return;  // nothing is protected from root
    names = {"in.y4m", "protected"};
    ASSERT_EQ(chmod(folder.write("protected", "old").c_str(), 0400), 0);
    expect_failure({"clip", "reverse", in, folder / "protected"}, 6, "protected: cannot be written: Permission denied");
}

// A limit on the file's size stands for the full disk: the write fails in the middle of the result.
TEST_F(VellFailure, LeavesTheOldResultWhenTheDiskIsFull) {
    folder.write("out.y4m", "old");
    names = {"in.y4m", "out.y4m"};
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{clip.size() / 2, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    expect_failure({"clip", "reverse", in, folder / "out.y4m"}, 6, "out.y4m: writing failed");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(read_whole_file(folder / "out.y4m"), "old");
}

TEST_F(VellFailure, NeverWritesOverItsInput) {
    ASSERT_EQ(symlink("in.y4m", (folder / "link").c_str()), 0);
    ASSERT_EQ(link(in.c_str(), (folder / "second").c_str()), 0);
    names = {"in.y4m", "link", "second"};
    for (const char* name : {"in.y4m", "link", "second"}) {
        expect_failure({"clip", "proxy", in, folder / name}, 2, "is the input clip");
    }
    EXPECT_TRUE(read_whole_file(in) == clip);
}

TEST_F(VellFailure, SaysHowLargeTheHeapMustBe) {
    for (const std::string command : {"framemd5", "reverse", "proxy", "average"}) {
        std::vector<std::string> arguments = {"clip", command, in, "--heap", "4K"};
        if (command != "framemd5") arguments.insert(arguments.begin() + 3, folder / "out.y4m");
        if (command == "average") arguments.insert(arguments.end(), {"--window", "3"});
        expect_failure(arguments, 7, "too small for one frame");
        const std::string errors = read_whole_file(folder / "stderr");
        const size_t at = errors.find("at least ") + 9;
        *std::find(arguments.begin(), arguments.end(), "4K") = errors.substr(at, errors.find('K', at) + 1 - at);
        EXPECT_EQ(run_vell(folder, arguments).code, 0) << read_whole_file(folder / "stderr");
        std::filesystem::remove(folder / "out.y4m");
    }
}

TEST_F(VellFailure, ExplainsAWrongCommandLine) {
    const std::vector<std::string> cases[] = {{},
                                              {"clip"},
                                              {"clip", "proxy", "x"},
                                              {"clip", "average", "x", "y"},
                                              {"clip", "average", "x", "y", "--window", "0"},
                                              {"clip", "proxy", "x", "y", "--heap", "64MB"},
                                              {"clip", "proxy", "x", "y", "--threads", "0"},
                                              {"nonsense"}};
    for (const auto& arguments : cases)
        expect_failure(arguments, 2, "Run with --help");
    expect_failure({"clip", "mirror", "x"}, 2, "'mirror' is not understood");
    EXPECT_EQ(run_vell(folder, {"--help"}).code, 0);
    EXPECT_EQ(run_vell(folder, {"clip", "proxy", "--help"}).code, 0);
    EXPECT_EQ(run_vell(folder, {"--version"}).code, 0);
}

// The tool is stopped while its unfinished result is there, so it has not come to the end when the signal comes. With
// every frame wanted for every result it would work for many seconds.
TEST_F(VellFailure, RemovesAnUnfinishedResultWhenItIsEnded) {
    clip = std::string(k_header) + "\n";
    for (int i = 0; i < 3000; ++i)
        clip += "FRAME\n" + std::string(64 * 48 * 3 / 2, 'x');
    folder.write("in.y4m", clip);
    for (const int signal_number : {SIGTERM, SIGINT, SIGHUP}) {
        const pid_t child =
            start_vell(folder, {"clip", "average", in, folder / "out.y4m", "--window", "3000", "--heap", "2M"});
        const std::string part = folder / (".out.y4m." + std::to_string(child) + ".part");
        while (!std::filesystem::exists(part) && waitpid(child, nullptr, WNOHANG) == 0)
            sched_yield();
        kill(child, SIGSTOP);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
        ASSERT_TRUE(WIFSTOPPED(status) && std::filesystem::exists(part));
        kill(child, signal_number);
        kill(child, SIGCONT);
        EXPECT_EQ(await_vell(folder, child).code, 128 + signal_number);
        EXPECT_EQ(names_in(folder), names);
    }
}

TEST(VellDoctor, TellsWhatTheLibraryFound) {
    const TemporaryFolder folder;
    const RunResult run = run_vell(folder, {"doctor", folder.path()});
    EXPECT_EQ(run.code, 0) << run.errors;
    for (const char* label : {"vellcore:", "system:", "machine:", "processor:", "processors:", "allowed:", "memory:",
                              "frame heap:", "image heap:", "page size:", "transfers:", "uncached:", "program:",
                              "data folder:", "user's data:", "locale:", "log:"}) {
        const size_t at = run.output.find("\n" + std::string(label));
        EXPECT_TRUE(at != std::string::npos || run.output.starts_with(label)) << label << "\n" << run.output;
    }
    EXPECT_NE(run.output.find(VELL_PROGRAM), std::string::npos);
    EXPECT_NE(run.output.find("(" + folder.path() + ")"), std::string::npos);
}

}  // namespace
