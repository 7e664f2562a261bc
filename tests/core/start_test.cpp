// Start-up and shutdown as a host lives them: each in a process of its own, with an application name, a data folder
// and a runtime folder of its own.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <thread>

#include "platform/transfer_backend.h"
#include "support/temporary_folder.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"
#include "vellcore/processing_pool.h"
#include "vellcore/startup.h"
#include "vellcore/threads.h"

namespace {

constexpr char k_application[] = "Start Test";
constexpr int k_refused = 77;

class Start : public testing::Test {
protected:
    void SetUp() override {
        folder_.write("Settings/memory.cfg",
                      "frame_heap_size=256\nproxy_heap_size=128\naudio_heap_size=128\nimage_heap_size=32\n");
        std::filesystem::create_directory(folder_ / "run");
        std::filesystem::permissions(folder_ / "run", std::filesystem::perms::owner_all);
        setenv("START_TEST_DATA", folder_.path().c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (folder_ / "run").c_str(), 1);
    }

    /// Starts the library in a child, runs `host` there and ends the child with what it returned. @return the child.
    pid_t spawn(const std::function<int()>& host, std::vector<const char*> switches = {}) const {
        const pid_t child = fork();
        if (child != 0) return child;
        const int errors = open((folder_ / "errors").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(errors, STDERR_FILENO);
        close(errors);
        switches.insert(switches.begin(), "/opt/gantry/start_test");
        const auto count = static_cast<int32_t>(switches.size());
        if (!vl_initialize(k_application, "START_TEST_DATA", count, switches.data())) _exit(k_refused);
        const int result = host();
        exit(result);
    }

    /// How the child ended: its exit status, or minus the signal that ended it.
    static int wait_for(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    int run(const std::function<int()>& host, std::vector<const char*> switches = {}) const {
        return wait_for(spawn(host, std::move(switches)));
    }

    std::string log() const { return read_whole_file(folder_ / "Settings/logs/Start Test.log"); }
    /// What went to the standard error stream that the host was started with.
    std::string errors() const { return read_whole_file(folder_ / "errors"); }

    TemporaryFolder folder_;
};

int close_down() {
    vl_closedown();
    vl_closedown();
    return 0;
}

TEST_F(Start, ServesAHostFromBannerToFarewell) {
    EXPECT_EQ(run(
                  [] {
                      void* buffer = nullptr;
                      std::atomic<int> shares{0};
                      smp_exec([](void* count, void*, void*, void*, void*,
                                  void*) { ++*static_cast<std::atomic<int>*>(count); },
                               &shares);
                      const bool works = shares == 3 && smp_numprocs() == 3 && msg_getlevel() == 4 &&
                                         mem_alloc_locked_buffer(&buffer, 1 << 20, MEM_HEAP_AUTO) != nullptr &&
                                         mem_free_locked_buffer(&buffer) == 1 && umask(0) == 0;
                      msginfo("worked %d", works);
                      return close_down();
                  },
                  {"-dd", "-p3"}),
              0);
    const std::string text = log();
    const char* in_order[] = {"Start Test - [Build: ",
                              "Log started(4): ",
                              "\\'/opt/gantry/start_test'",
                              "MacOS Version ",
                              " CPU's: ",
                              "Physical memory : ",
                              "Memory setup:",
                              "Frame heap     :   256.000 Mb",
                              "Privilege level : Administrator",
                              "SMP Initialize  : 3-way multi-processing",
                              "worked 1",
                              "*-----"};
    size_t at = 0;
    for (const char* part : in_order) {
        const size_t found = text.find(part, at);
        ASSERT_NE(found, std::string::npos) << part << " is missing or out of order in:\n" << text;
        at = found;
    }
}

TEST_F(Start, OneInstanceOfANameRunsAtATime) {
    int ready[2], go[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(go), 0);
    const pid_t first = spawn([&] {
        if (vl_initialize(k_application, "START_TEST_DATA", 0, nullptr)) return 1;  // nor twice in one process
        char byte = 'r';
        const bool told = write(ready[1], &byte, 1) == 1 && read(go[0], &byte, 1) == 1;
        return told ? close_down() : 2;
    });
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(run([] { return 0; }), k_refused);
    ASSERT_EQ(write(go[1], &byte, 1), 1);
    EXPECT_EQ(wait_for(first), 0);
    EXPECT_EQ(run(close_down), 0) << "free again";
}

TEST_F(Start, OfManyAtOnceExactlyOneStarts) {
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < 12; ++i)
        children.push_back(spawn([&] {
            char byte = 0;
            close(go[1]);
            return read(go[0], &byte, 1) == 0 ? 0 : 1;  // until every other one has tried
        }));
    std::vector<int> results;
    close(go[0]);
    int refused = 0;
    for (int i = 0; i < 11; ++i) {
        int status = 0;
        wait(&status);
        refused += WEXITSTATUS(status) == k_refused;
    }
    EXPECT_EQ(refused, 11);
    close(go[1]);
    int status = 0;
    wait(&status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(Start, AKilledInstanceLeavesNoClaimBehindNorDoItsChildren) {
    int ready[2], held[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(held), 0);
    const pid_t first = spawn([&]() -> int {
        char byte = 0;
        if (fork() == 0) {  // a child that outlives its parent
            close(held[1]);
            _exit(write(ready[1], &byte, 1) == 1 && read(held[0], &byte, 1) == 0 ? 0 : 1);
        }
        return read(ready[0], &byte, 1) == 1 ? raise(SIGKILL) : 1;
    });
    EXPECT_EQ(wait_for(first), -SIGKILL);
    EXPECT_EQ(run(close_down), 0);
    close(held[1]);
}

/// Recurses until the stack is used up; the depth it ends at is never reached.
__attribute__((noinline)) int overflow(int depth) {
    volatile char frame[4096];
    frame[0] = static_cast<char>(depth);
    return depth == INT_MAX ? 0 : overflow(depth + 1) + frame[0];
}

void forbid_core_dumps() {
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
}

/// Sends the process several fatal signals that arrive in one moment.
int raise_together(std::initializer_list<int> signals) {
    sigset_t set, before;
    sigemptyset(&set);
    for (const int each : signals)
        sigaddset(&set, each);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    for (const int each : signals)
        raise(each);
    return pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(Start, EveryCrashIsReportedAndEndsByAbort) {
    struct Row {
        const char* label;
        std::function<int()> crash;
        const char* report;
    };
    const auto on_pool = [](void (*share)()) {
        smp_exec([](void* run, void*, void*, void*, void*, void*) { reinterpret_cast<void (*)()>(run)(); },
                 reinterpret_cast<void*>(share));
        return 0;
    };
    const Row rows[] = {
        {"segmentation fault", [] { return raise(SIGSEGV); }, "Exception: 0x0000000b, Thread: VL-Main"},
        {"illegal instruction", [] { return raise(SIGILL); }, "Exception: 0x00000004, Thread: VL-Main"},
        {"terminate", [] { return raise(SIGTERM); }, "Exception: 0x0000000f, Thread: VL-Main"},
        {"signal 12", [] { return raise(12); }, "Exception: 0x0000000c, Thread: VL-Main"},
        {"bad system call", [] { return raise(SIGSYS); }, "Exception: 0x0000001f, Thread: VL-Main"},
        {"stack overflow", [] { return overflow(0); }, "Exception: 0x0000000b, Thread: VL-Main"},
        {"on a pool thread", [on_pool] { return on_pool([] { raise(SIGSEGV); }); },
         "Exception: 0x0000000b, Thread: SMP-"},
        {"on a foreign thread",
         [] {
             std::thread([] { raise(SIGSEGV); }).join();
             return 0;
         },
         "Exception: 0x0000000b, Thread: Unknown"},
        {"stack overflow on a thread of the host's",
         [] {
             std::thread([] {
                 if (mp_protect_thread("Decoder")) overflow(0);
             }).join();
             return 0;
         },
         "Exception: 0x0000000b, Thread: Decoder"},
        {"on a transfer thread",
         [] {
             static vell::TransferJob job;
             static char byte = 0;
             job.descriptor = open("/dev/zero", O_RDONLY | O_CLOEXEC);
             job.buffer = reinterpret_cast<std::byte*>(&byte);
             job.length = sizeof byte;
             static volatile uintptr_t nowhere = 8;
             job.ended = [](vell::TransferJob&) { *reinterpret_cast<volatile int*>(nowhere) = 1; };
             return vell::threads_backend.submit(job) == 0 ? pause() : 1;
         },
         "Exception: 0x0000000b, Thread: VL-IO"},
        {"inside the log", [] { return msginfo("%s", reinterpret_cast<const char*>(uintptr_t{1})); },
         "Exception: 0x0000000b, Thread: VL-Main"},
        {"two signals at once: the first is reported, and to its end",
         [] {
             return raise_together({SIGTERM, SIGILL});
         },
         "Exception: 0x00000004, Thread: VL-Main"},
        {"with the log switched off",
         [] {
             msg_setlevel(-1);
             return raise(SIGSEGV);
         },
         "Exception: 0x0000000b, Thread: VL-Main"},
        {"with the log closed, as at the end of shutdown",
         [] {
             msg_closedown();
             return raise(SIGSEGV);
         },
         "Exception: 0x0000000b, Thread: VL-Main"},
        {"with a log stream that has no descriptor",
         [] {
             char* text = nullptr;
             size_t bytes = 0;
             msg_initialize(open_memstream(&text, &bytes));
             return raise(SIGSEGV);
         },
         "Exception: 0x0000000b, Thread: VL-Main"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(run(
                      [&row] {
                          forbid_core_dumps();
                          return row.crash();
                      },
                      {"-p2"}),
                  -SIGABRT)
            << row.label;
        const std::string stars(56, '*');
        EXPECT_NE(log().find(row.report), std::string::npos) << row.label << ":\n" << log();
        EXPECT_NE(log().find("ERROR: " + stars + "\n"), std::string::npos) << row.label;
        EXPECT_NE(log().find(": " + stars + "\n"), std::string::npos) << row.label;
    }
}

TEST_F(Start, AfterShutdownACrashIsTheHostsOwn) {
    EXPECT_EQ(run([] {
                  forbid_core_dumps();
                  vl_closedown();
                  return raise(SIGILL);  // no sanitizer has a handler of its own for it
              }),
              -SIGILL);
    EXPECT_EQ(log().find("Fatal Error"), std::string::npos);
}

TEST_F(Start, AHandlerOfTheHostsOutlivesShutdown) {
    EXPECT_EQ(run([] {
                  struct sigaction own {};
                  own.sa_handler = [](int) { _exit(42); };
                  sigaction(SIGTERM, &own, nullptr);
                  vl_closedown();
                  return raise(SIGTERM);
              }),
              42);
}

TEST_F(Start, AForkedChildsCrashIsNotItsParents) {
    EXPECT_EQ(run([] {
                  forbid_core_dumps();
                  const pid_t child = fork();
                  if (child == 0) raise(SIGSEGV);
                  const int result = wait_for(child);
                  msginfo("the parent goes on");
                  return result == -SIGABRT ? close_down() : 1;
              }),
              0);
    EXPECT_EQ(log().find("Fatal Error"), std::string::npos);
    EXPECT_NE(log().find("the parent goes on"), std::string::npos);
    EXPECT_NE(errors().find("Exception: 0x0000000b, Thread: VL-Main"), std::string::npos) << errors();
}

TEST(ShortStart, ServesToolsWithoutAnInstanceClaim) {
    const mode_t mask = umask(022);
    EXPECT_TRUE(vl_fast_initialize("bin/tool", false));
    EXPECT_EQ(msg_getlevel(), MSG_WARN);
    EXPECT_EQ(msg_get_file(), stderr);
    EXPECT_EQ(mem_getheap(MEM_HEAP_FRAME), nullptr);
    EXPECT_EQ(smp_numprocs(), 1);
    char name[1024];
    ASSERT_TRUE(vl_modulename(name, sizeof name));
    EXPECT_EQ(name, std::filesystem::current_path() / "bin/tool");
    void* buffer = nullptr;
    EXPECT_NE(mem_alloc_locked_buffer(&buffer, 100, MEM_HEAP_AUTO), nullptr);
    EXPECT_EQ(mem_free_locked_buffer(&buffer), 0);
    vl_closedown();
    EXPECT_EQ(msg_getlevel(), -1);
    umask(mask);
}

TEST(ClosedownAlone, IsHarmless) {
    vl_closedown();
    EXPECT_EQ(msg_getlevel(), -1);
}

TEST(StartupServices, HaveTheirAnswers) {
    char uuid[64], other[64];
    ASSERT_EQ(vl_create_uuid(uuid), uuid);
    vl_create_uuid(other);
    EXPECT_EQ(strlen(uuid), 36u);
    EXPECT_STRNE(uuid, other);
    for (size_t i = 36; i < 64; ++i)
        EXPECT_EQ(uuid[i], 0);
    EXPECT_EQ(vl_create_uuid(nullptr), nullptr);
    EXPECT_EQ(MainThreadResponseHandler(nullptr, 1, uuid, nullptr), uuid);
    EXPECT_EQ(vellExceptionFilter(1, nullptr), 0);
    EXPECT_EQ(RA_CheckProcessWasRestarted() + RA_WaitForPreviousProcessFinish() + RA_DoRestartProcessFinish() +
                  vl_get_instance_update(),
              0);
    EXPECT_EQ(RA_ActivateRestartProcess(), 1);
}

}  // namespace
