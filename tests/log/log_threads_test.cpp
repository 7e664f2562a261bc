#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "platform/crash.h"
#include "support/log_capture.h"

namespace {

TEST(LogThreads, LinesOfDifferentThreadsNeverMix) {
    constexpr int k_threads = 4;
    constexpr int k_lines = 500;
    const LogCapture log;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < k_threads; ++t)
            threads.emplace_back([t] {
                for (int i = 0; i < k_lines; ++i)
                    msginfo("%d %d %s", t, i, std::string(size_t(i % 200), 'z').c_str());
            });
    }
    const auto lines = log.lines();
    EXPECT_EQ(lines.size(), size_t{k_threads * k_lines});
    for (const std::string& line : lines) {
        int thread = 0, number = 0, head = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "INFO : %d %d %n", &thread, &number, &head), 2) << line;
        EXPECT_EQ(line.substr(size_t(head)), std::string(size_t(number % 200), 'z'));
    }
}

TEST(LogThreads, ExternalLockKeepsAGroupTogether) {
    const LogCapture log;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 3; ++t)
            threads.emplace_back([t] {
                for (int i = 0; i < 200; ++i) {
                    msg_set_lock();
                    msginfo("head %d %d", t, i);
                    msgcont("tail %d %d", t, i);
                    msg_release_lock();
                }
            });
    }
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1200u);
    for (size_t i = 0; i < lines.size(); i += 2)
        EXPECT_EQ(lines[i].substr(lines[i].find("head") + 4), lines[i + 1].substr(lines[i + 1].find("tail") + 4));
}

TEST(LogThreads, CancelledWriterLeavesNoLockBehind) {
    const LogCapture log;
    std::atomic<bool> has_started{false};
    pthread_t thread{};
    const auto log_for_ever = [](void* started) -> void* {
        for (;;) {
            msginfo("line");
            msginfo("another");
            static_cast<std::atomic<bool>*>(started)->store(true);
            pthread_testcancel();
        }
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, log_for_ever, &has_started), 0);
    while (!has_started)
        std::this_thread::yield();
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    EXPECT_EQ(msginfo("still works"), 1);
}

TEST(LogThreads, OpensAndClosesWhileOthersWrite) {
    std::atomic<bool> stops{false};
    FILE* sink = std::fopen("/dev/null", "w");
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 2; ++t)
            threads.emplace_back([&stops] {
                while (!stops) {
                    msgerror("x");
                    msgcont("y");
                    msg_os_error("z");
                }
            });
        for (int i = 0; i < 300; ++i) {
            EXPECT_NE(msg_initialize(sink), nullptr);
            msgerror("open %d", i);
            msg_closedown();
        }
        stops = true;
    }
    std::fclose(sink);
    EXPECT_EQ(msg_getlevel(), -1);
}

/// Runs `crash` in a child whose log is a pipe; returns what the child wrote before it died by abort.
template <class Crash>
std::string report_of(Crash crash) {
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        msg_initialize(fdopen(ends[1], "w"));
        crash(ends[1]);
        std::abort();
    }
    close(ends[1]);
    std::string text;
    char part[512];
    for (ssize_t n = 0; (n = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, size_t(n));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT ? text : "did not abort: " + text;
}

/// Opens the log on a pipe that nobody reads and has another thread block inside it. Every line fills a page of the
/// pipe, so that not even a short line finds room.
int block_the_log() {
    constexpr size_t k_page_of_text = 4096 - sizeof "14:03:07.25 INFO : 00 " - sizeof '\n';
    int ends[2];
    if (pipe(ends) != 0) return -1;
    msg_initialize(fdopen(ends[1], "w"));
    std::thread([] {
        for (int i = 0;; ++i)
            msginfo("%2d %s", i, std::string(k_page_of_text, 'b').c_str());
    }).detach();
    pollfd room{.fd = ends[1], .events = POLLOUT, .revents = 0};
    while (poll(&room, 1, 0) > 0)
        std::this_thread::yield();
    return ends[1];
}

TEST(LogThreads, CrashReportGetsPastAThreadThatIsStuckInTheLog) {
    const std::string text = report_of([](int report) {
        dup2(report, block_the_log());  // The log's descriptor leads to the report from here on.
        vell::begin_crash_report();
        msgerror("crash");
        msgcont("details");
    });
    EXPECT_NE(text.find("ERROR: crash\n                 : details\n"), std::string::npos) << text;
}

TEST(LogThreads, CrashReportGivesUpOnAReaderThatSleeps) {
    const std::string text = report_of([](int) {
        alarm(60);  // ends a report that waits, by another signal
        block_the_log();
        vell::begin_crash_report();
        EXPECT_EQ(msgerror("crash"), 1);
        EXPECT_EQ(msgcont("details"), 1);
    });
    EXPECT_EQ(text, "");
}

int log_descriptor = -1;
int saved_descriptor = -1;

TEST(LogThreads, WritesFromInsideTheLogGetThrough) {
    const std::string text = report_of([](int report) {
        int closed[2];
        if (pipe(closed) != 0) return;
        close(closed[0]);
        log_descriptor = report;
        saved_descriptor = dup(report);
        signal(SIGPIPE, [](int) {
            dup2(saved_descriptor, log_descriptor);
            msgerror("from the handler");
        });
        dup2(closed[1], report);  // The write of the next line raises SIGPIPE, inside the log.
        msgerror("lost");
        msgerror("after");
    });
    EXPECT_NE(text.find("ERROR: from the handler\n"), std::string::npos) << text;
    EXPECT_NE(text.find("ERROR: after\n"), std::string::npos) << text;
}

}  // namespace
