// Child processes: how they end, and what is said when they do not start.

#include "vellcore/child_process.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "vellcore/message_log.h"
#include "vellcore/threads.h"

namespace {

class ChildProcess : public testing::Test {
protected:
    void SetUp() override {
        log = tmpfile();
        ASSERT_NE(log, nullptr);
        msg_initialize(log);
    }
    void TearDown() override {
        msg_closedown();
        fclose(log);
    }
    std::string log_text() const {
        char text[512] = {};
        rewind(log);
        const size_t length = fread(text, 1, sizeof text - 1, log);
        return {text, length};
    }
    /// Runs a shell command to its end.
    bool run(std::string command, ProcessResultStruct& result, void (*callback)(void*) = nullptr,
             void* argument = nullptr, int32_t interval_ms = 1) {
        char shell[] = "sh", option[] = "-c";
        char* arguments[] = {shell, option, command.data(), nullptr};
        return SpawnAndLoopUntilFinished("sh", arguments, /*wait*/ true, callback, argument, result, interval_ms);
    }
    FILE* log = nullptr;
};

TEST_F(ChildProcess, TellsHowTheChildEnded) {
    const struct {
        const char* command;
        ProcessResultStruct expected;
    } cases[] = {
        {"exit 3", {true, 3, true, false, 0}},
        {"exit 255", {true, 255, true, false, 0}},
        {"kill -9 $$", {true, 137, false, true, 9}},
        {"kill -15 $$", {true, 143, false, true, 15}},
    };
    for (const auto& c : cases) {
        ProcessResultStruct result{false, 7, false, true, 7};
        EXPECT_TRUE(run(c.command, result)) << c.command;
        EXPECT_EQ(result.started, c.expected.started) << c.command;
        EXPECT_EQ(result.exit_code, c.expected.exit_code) << c.command;
        EXPECT_EQ(result.exited, c.expected.exited) << c.command;
        EXPECT_EQ(result.signalled, c.expected.signalled) << c.command;
        EXPECT_EQ(result.signal, c.expected.signal) << c.command;
    }
    EXPECT_EQ(log_text(), "");
}

TEST_F(ChildProcess, ReportsAProgramThatDoesNotExist) {
    char name[] = "nothing";
    char* arguments[] = {name, nullptr};
    ProcessResultStruct result{};
    EXPECT_FALSE(SpawnAndLoopUntilFinished("/nonexistent/program", arguments, true, nullptr, nullptr, result, 1));
    EXPECT_FALSE(result.started);
    EXPECT_EQ(result.exit_code, -1);
    EXPECT_NE(log_text().find("_spawnvp failed (No such file or directory)"), std::string::npos);
    EXPECT_FALSE(SpawnAndLoopUntilFinished(nullptr, arguments, true, nullptr, nullptr, result, 1));
    EXPECT_FALSE(SpawnAndLoopUntilFinished("sh", nullptr, true, nullptr, nullptr, result, 1));
}

TEST_F(ChildProcess, ReportsAChildThatCannotBeWaitedFor) {
    signal(SIGCHLD, SIG_IGN);
    ProcessResultStruct result{};
    EXPECT_FALSE(run("exit 3", result));
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exit_code, -1);
    EXPECT_NE(log_text().find("_spawnvp waitpid failed (No child processes)"), std::string::npos);
}

// The child lives until the third callback closes the pipe that it reads.
TEST_F(ChildProcess, CallsBackWithoutAPauseWhileTheChildRuns) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    struct Progress {
        int calls;
        int pipe_end;
    } progress{0, ends[1]};
    ProcessResultStruct result{};
    const std::string command = "exec " + std::to_string(ends[1]) + ">&-; read line <&" + std::to_string(ends[0]);
    EXPECT_TRUE(run(
        command, result,
        [](void* argument) {
            auto* state = static_cast<Progress*>(argument);
            if (++state->calls == 3) close(state->pipe_end);
        },
        &progress, /*interval_ms*/ 0));
    EXPECT_GE(progress.calls, 3);
    EXPECT_TRUE(result.exited);
    close(ends[0]);
}

TEST_F(ChildProcess, RunsOnWhenNobodyWaits) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char shell[] = "sh", option[] = "-c";
    std::string command = "echo done >&" + std::to_string(ends[1]);
    char* arguments[] = {shell, option, command.data(), nullptr};
    ProcessResultStruct result{};
    EXPECT_TRUE(SpawnAndLoopUntilFinished("sh", arguments, /*wait*/ false, nullptr, nullptr, result, 1));
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exit_code, -1);
    char text[8] = {};
    EXPECT_EQ(read(ends[0], text, sizeof text), 5);
    EXPECT_STREQ(text, "done\n");
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
