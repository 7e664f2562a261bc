// Child processes: how they end, and what is said when they do not start.

#include "vellcore/child_process.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "vellcore/message_log.h"
#include "vellcore/threads.h"

namespace {

constexpr char k_traced_child[] = "VELL_TRACED_CHILD";
constexpr int k_cannot_be_traced = 77;

/// The part of a child that this program plays when the variable is set: it stops as debuggers make programs stop,
/// which is the only stop that a parent learns of without asking for it.
[[gnu::constructor]] void play_traced_child() {
    const char* pipe_end = std::getenv(k_traced_child);
    if (pipe_end == nullptr) return;
    const pid_t self = getpid();
    if (write(std::atoi(pipe_end), &self, sizeof self) != static_cast<ssize_t>(sizeof self)) _exit(1);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(k_cannot_be_traced);
    raise(SIGSTOP);
    _exit(0);
}

class ChildProcess : public testing::Test {
protected:
    void SetUp() override {
        signal(SIGCHLD, SIG_DFL);
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
        {"ulimit -c 0; kill -6 $$", {true, 134, false, true, 6}},
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

TEST_F(ChildProcess, ReturnsWhenATracedChildStops) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    setenv(k_traced_child, std::to_string(ends[1]).c_str(), 1);
    char name[] = "child";
    char* arguments[] = {name, nullptr};
    ProcessResultStruct result{true, 7, true, true, 7};
    EXPECT_TRUE(SpawnAndLoopUntilFinished("/proc/self/exe", arguments, true, nullptr, nullptr, result, 1));
    if (result.exit_code == k_cannot_be_traced) GTEST_SKIP() << "no right to be traced";
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exit_code, -1);
    EXPECT_FALSE(result.exited || result.signalled);
    pid_t child = 0;
    ASSERT_EQ(read(ends[0], &child, sizeof child), static_cast<ssize_t>(sizeof child));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    close(ends[0]);
    close(ends[1]);
}

// Nobody reports the stop of a child that is not traced; the call waits until it goes on.
TEST_F(ChildProcess, WaitsForAStoppedChildToGoOn) {
    ProcessResultStruct result{};
    bool was_stopped = false;
    EXPECT_TRUE(run(
        "kill -STOP $$; exit 5", result,
        [](void* argument) {
            siginfo_t info{};
            if (waitid(P_ALL, 0, &info, WSTOPPED | WNOHANG) != 0 || info.si_pid == 0) return;
            *static_cast<bool*>(argument) = true;
            kill(info.si_pid, SIGCONT);
        },
        &was_stopped));
    EXPECT_TRUE(was_stopped);
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.exit_code, 5);
}

TEST_F(ChildProcess, TellsEachThreadOfItsOwnChild) {
    constexpr int k_threads = 4, k_children = 8;
    std::vector<std::thread> threads;
    std::vector<int> right(k_threads);
    for (int thread = 0; thread < k_threads; ++thread) {
        threads.emplace_back([this, thread, &right] {
            for (int child = 0; child < k_children; ++child) {
                ProcessResultStruct result{};
                const int code = thread * k_children + child;
                if (run("exit " + std::to_string(code), result) && result.exit_code == code)
                    ++right[static_cast<size_t>(thread)];
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, std::vector<int>(k_threads, k_children));
}

}  // namespace
