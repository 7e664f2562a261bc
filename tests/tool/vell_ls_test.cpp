// vell ls: what it prints, in which order, and how it ends.

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "run_vell.h"
#include "vellcore/file_operations.h"

namespace {

class VellLs : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        for (const char* name : {"shot.1001.dpx", "shot.1002.dpx", "shot.1004.dpx", "take10.wav", "take9.wav",
                                 "lone.mov", ".hidden", "reel2/C0001.mov", "reel2/C0002.mov", "reel10/deep/x.mov"})
            write(name, "12345");
    }
    void write(const std::string& name, const std::string& text) {
        tree.write(name, text);
        file_set_modified_ts((tree / name).c_str(), 1709852705);
    }
    RunResult list(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "ls");
        return run_vell(prints, arguments);
    }
    /// The lines, their sizes and times cut off.
    std::string names(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), tree.path());
        const RunResult run = list(arguments);
        EXPECT_EQ(run.code, 0) << run.errors;
        std::string result;
        for (size_t at = 0; at < run.output.size(); at = run.output.find('\n', at) + 1)
            result += run.output.substr(at + 29, run.output.find('\n', at) - at - 28);
        return result;
    }
    const TemporaryFolder tree, prints;
};

TEST_F(VellLs, PrintsFoldersThenNamesInNaturalOrderWithSequencesFolded) {
    EXPECT_EQ(names({}),
              "reel10/\nreel2/\nlone.mov\nshot.[1001-1002,1004].dpx  3 files, 1 missing\ntake[9-10].wav  2 files\n");
    EXPECT_EQ(list({tree.path(), "lone*"}).output, "      5 B  2024-03-07 23:05  lone.mov\n");
    EXPECT_EQ(list({tree / "lone.mov"}).output, "      5 B  2024-03-07 23:05  " + (tree / "lone.mov") + "\n");
    EXPECT_EQ(list({tree.path(), "*.dpx"}).output,
              "     15 B  2024-03-07 23:05  shot.[1001-1002,1004].dpx  3 files, 1 missing\n");
}

TEST_F(VellLs, HasOptionsForWhatIsShown) {
    EXPECT_EQ(names({"*.WAV", "-i", "--no-fold"}), "take9.wav\ntake10.wav\n");
    EXPECT_EQ(names({".*", "--all"}), ".hidden\n");
    EXPECT_EQ(names({"*.mov", "--recursive"}), "lone.mov\nreel10/deep/x.mov\nreel2/C[0001-0002].mov  2 files\n");
}

TEST_F(VellLs, ShowsLinksAndDoesNotFollowThemDown) {
    ASSERT_EQ(symlink(".", (tree / "reel2/loop").c_str()), 0);
    ASSERT_EQ(symlink("absent", (tree / "reel2/nowhere").c_str()), 0);
    ASSERT_EQ(symlink("C0001.mov", (tree / "reel2/C0003.mov").c_str()), 0);
    EXPECT_EQ(names({"-r", "[ln]o*"}), "lone.mov\nreel2/loop/\nreel2/nowhere@\n");
    EXPECT_EQ(names({"-r", "C*"}), "reel2/C[0001-0002].mov  2 files\nreel2/C0003.mov@\n") << "a link is no frame";
}

TEST_F(VellLs, KeepsOddBytesAwayFromTheTerminal) {
    write("esc\x1b[31m\n", "");
    write("bad\xff\\", "");
    std::string longest(255, 'n');
    write(longest, "");
    EXPECT_EQ(names({"[eb]*"}), "bad\\xff\\\\\nesc\\x1b[31m\\n\n");
    EXPECT_EQ(names({"nn*"}), longest.append("\n"));
}

TEST_F(VellLs, PrintsOneJsonObjectForEachLine) {
    write("a\"b\n", "");
    write("bad\xff.mov", "");
    const struct {
        std::vector<std::string> arguments;
        std::string output;
    } cases[] = {
        {{"shot*"},
         R"({"type":"sequence","path":"shot.[1001-1002,1004].dpx","prefix":"shot.","suffix":".dpx","padding":1,)"
         R"("ranges":[[1001,1002],[1004,1004]],"files":3,"missing":1,"size":15,"modified":"2024-03-07T23:05:05Z"})"},
        {{"a*"}, R"({"type":"file","path":"a\"b\u000a","size":0,"modified":"2024-03-07T23:05:05Z"})"},
        {{"bad*"},
         "{\"type\":\"file\",\"path\":\"bad\xEF\xBF\xBD.mov\",\"path_hex\":\"626164ff2e6d6f76\",\"size\":0,"
         "\"modified\":\"2024-03-07T23:05:05Z\"}"},
        {{"x.mov", "-r"}, R"({"type":"file","path":"reel10/deep/x.mov","size":5,"modified":"2024-03-07T23:05:05Z"})"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments = {tree.path(), "--json"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        EXPECT_EQ(list(arguments).output, c.output + "\n");
    }
}

TEST_F(VellLs, EndsWithACodeForEveryReason) {
    mkfifo((tree / "pipe").c_str(), 0666);
    const struct {
        std::vector<std::string> arguments;
        int code;
        const char* text;
    } cases[] = {
        {{tree / "absent\x1b"}, 3, "absent\\x1b: No such file or directory"},
        {{tree / "lone.mov/x"}, 3, "Not a directory"},
        {{""}, 3, "No such file or directory"},
        {{tree.path(), "*.nothing"}, 5, "nothing matches *.nothing"},
        {{tree.path(), "a", "b"}, 2, "b"},
        {{tree / "pipe"}, 0, ""},
        {{prints.path(), "*.txt"}, 5, "nothing matches"},
    };
    for (const auto& c : cases) {
        const RunResult run = list(c.arguments);
        EXPECT_EQ(run.code, c.code) << c.text;
        EXPECT_NE(run.errors.find(c.text), std::string::npos) << run.errors;
    }
    EXPECT_EQ(run_vell(prints, {"ls", tree.path()}, "/dev/full").code, 1);
}

TEST_F(VellLs, GoesOnPastAFolderThatCannotBeRead) {
    if (geteuid() == 0) GTEST_SKIP() << "root reads everything";
    ASSERT_EQ(chmod((tree / "reel10/deep").c_str(), 0), 0);
    const RunResult run = list({tree.path(), "-r"});
    EXPECT_EQ(run.code, 4);
    EXPECT_NE(run.errors.find("cannot read " + (tree / "reel10/deep") + ": Permission denied"), std::string::npos);
    EXPECT_NE(run.output.find("reel2/C[0001-0002].mov"), std::string::npos);
    chmod((tree / "reel10/deep").c_str(), 0777);
}

}  // namespace
