// The shared library as a plug-in host uses it: loaded after the process has started, so that its thread-local data is
// made when a thread first looks at it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "support/temporary_folder.h"

extern "C" void* __libc_malloc(size_t bytes);

namespace {

constexpr int k_allocated = 3;
std::atomic<pthread_t> crashed_in_allocator{};

}  // namespace

/// The allocator of this process. A thread that crashed inside it would wait for its own lock for ever.
extern "C" __attribute__((visibility("default"))) void* malloc(size_t bytes) {
    if (crashed_in_allocator.load() == pthread_self()) _exit(k_allocated);
    return __libc_malloc(bytes);
}

namespace {

using Initialize = bool (*)(const char*, const char*, int32_t, const char* const*);

int crash_inside_the_allocator() {
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    void* library = dlopen(VELLCORE_LIBRARY, RTLD_NOW);
    if (library == nullptr) return 1;
    const auto initialize = reinterpret_cast<Initialize>(dlsym(library, "_Z13vl_initializePKcS0_iPKS0_"));
    const char* arguments[] = {"/opt/gantry/loaded", "-p2"};
    if (initialize == nullptr || !initialize("Loaded", "LOADED_TEST_DATA", 2, arguments)) return 2;
    std::thread([] {
        crashed_in_allocator = pthread_self();
        raise(SIGSEGV);
    }).join();
    return 0;
}

TEST(LoadedLibrary, ReportsACrashInsideTheAllocator) {
    const TemporaryFolder folder;
    folder.write("Settings/memory.cfg",
                 "frame_heap_size=256\nproxy_heap_size=128\naudio_heap_size=128\nimage_heap_size=32\n");
    setenv("LOADED_TEST_DATA", folder.path().c_str(), 1);
    std::filesystem::create_directory(folder / "run");
    std::filesystem::permissions(folder / "run", std::filesystem::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", (folder / "run").c_str(), 1);
    const pid_t child = fork();
    if (child == 0) _exit(crash_inside_the_allocator());
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    const std::string log = read_whole_file(folder / "Settings/logs/Loaded.log");
    EXPECT_NE(log.find("Exception: 0x0000000b, Thread: Unknown"), std::string::npos) << log;
}

}  // namespace
