// A process forks while its other threads are inside every family of calls; the child uses them all and shuts down.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "memory/heap_record.h"
#include "support/temporary_folder.h"
#include "vellcore/vellcore.h"

namespace {

struct Family {
    const char* name;
    bool (*use)(const TemporaryFolder& folder);  // one round of its calls; false when a result is wrong
};

bool use_log(const TemporaryFolder&) {
    return msginfo("a line of thread %p", static_cast<void*>(&errno)) == 1 && msgcont("and what belongs to it") == 1;
}

bool use_heap(const TemporaryFolder&) {
    void *first = nullptr, *second = nullptr;
    if (mem_alloc_locked_buffer(&first, 3 << 20, MEM_HEAP_IMAGE) == nullptr) return false;
    const bool has_second = mem_alloc_locked_buffer(&second, 5 << 20, MEM_HEAP_IMAGE) != nullptr;
    mem_unlock_buffer(&first);
    if (mem_lock_buffer(&first) > 0) mem_unlock_buffer(&first);
    mem_free_buffer(&first);
    return has_second && mem_free_locked_buffer(&second) == 1;
}

bool use_system_memory(const TemporaryFolder&) {
    void* block = os_alloc(100000, 0);
    return block != nullptr && os_check_ptr(block) && os_free(block);
}

bool use_worker(const TemporaryFolder&) {
    VL_TFlush object;
    object.Start();
    VL_Thread::Flush();
    return std::atomic_ref<int32_t>(object.done) == 1;
}

bool use_pool(const TemporaryFolder&) {
    std::atomic<int> shares{0};
    smp_exec([](void* count, void*, void*, void*, void*, void*) { ++*static_cast<std::atomic<int>*>(count); }, &shares);
    return shares == smp_numprocs();
}

bool use_threads(const TemporaryFolder&) {
    const int32_t index = mp_start_thread(
        "Busy", [](void*) -> void* { return nullptr; }, nullptr);
    return index >= 0 && mp_join_thread(index) && mp_get_thread_name() != nullptr;
}

bool use_transfers(const TemporaryFolder& folder) {
    char bytes[16] = "";
    const int file = open((folder / "input").c_str(), O_RDONLY | O_CLOEXEC);
    int handle = 0;
    const bool is_read = io_read_async64(file, bytes, 0, sizeof bytes, &handle) &&
                         io_complete64(file, &handle, true) == 1 && bytes[0] == 'x';
    close(file);
    return is_read;
}

bool use_readers(const TemporaryFolder& folder) {
    constexpr size_t k_bytes = 3 * 65536;  // three pieces
    std::string bytes(k_bytes, '\0');
    fReadBuffer reader(-1);
    fReadBuffer::set_xfer_breakvalue(65537);
    if (!reader.open_file((folder / "input").c_str(), /*shared*/ true, /*prefetch*/ true, /*direct*/ false))
        return false;
    return reader.read_raw_bytes(bytes.data(), 0, k_bytes, k_bytes) == k_bytes && bytes == std::string(k_bytes, 'x');
}

bool use_copies(const TemporaryFolder& folder) {
    const std::string target = folder / ("copy" + std::to_string(reinterpret_cast<uintptr_t>(&errno)));
    unsigned long long bytes = 0;
    md5_state_s md5;
    const int32_t result =
        file_copy_secure((folder / "input").c_str(), target.c_str(), false, bytes, md5, 3, nullptr, nullptr);
    return *get_error_file_copy_secure(result, false) == '\0' && unlink(target.c_str()) == 0;
}

bool use_listings(const TemporaryFolder& folder) {
    dir_list* list = flist_new(folder.path().c_str(), 0);
    flist_delete(list);
    return list != nullptr;
}

bool use_libraries(const TemporaryFolder&) {
    void* library = vl_open_library("libuuid.so.1", 0);
    vl_close_library(library);
    return true;
}

bool use_languages(const TemporaryFolder&) {
    vl_locale_set("de_DE");
    return *vl_pgettext("File") == 'F' && *vl_locale_get() != '\0' && *cocoa_user_locale() != '\0';
}

bool use_programs(const TemporaryFolder&) {
    char program[] = "/bin/true";
    char* arguments[] = {program, nullptr};
    int32_t status = -1;
    return cocoa_run_executable_with_args(program, arguments, 1, &status) && status == 0;
}

bool use_http(const TemporaryFolder&) {
    vl_http_socket socket;
    return !socket.OpenUrl("http://127.0.0.1:1/") && *socket.LastErrorString() != '\0';
}

bool use_websockets(const TemporaryFolder&) {
    VlWebSocket* socket = VlWebSocket::Create();
    const bool is_refused = socket->Connect("ws://127.0.0.1:1/") && !socket->SendText("x");
    char text[100];
    const bool is_told = VlWebSocket::GetErrorText(socket, text, sizeof text) > 0;
    VlWebSocket::Destroy(socket);
    return is_refused && is_told;
}

constexpr Family k_families[] = {
    {"log", use_log},
    {"heap", use_heap},
    {"system memory", use_system_memory},
    {"worker", use_worker},
    {"pool", use_pool},
    {"threads", use_threads},
    {"transfers", use_transfers},
    {"readers", use_readers},
    {"copies", use_copies},
    {"listings", use_listings},
    {"libraries", use_libraries},
    {"languages", use_languages},
    {"programs", use_programs},
    {"http", use_http},
    {"WebSockets", use_websockets},
};
constexpr int k_rounds = 15;
constexpr int k_shutdown = static_cast<int>(std::size(k_families));

class Fork : public testing::Test {
protected:
    void SetUp() override {
        folder_.write("Settings/memory.cfg", "frame_heap_size=256\nimage_heap_size=32\n");
        folder_.write("input", std::string(200000, 'x'));
        std::filesystem::create_directory(folder_ / "run");
        std::filesystem::permissions(folder_ / "run", std::filesystem::perms::owner_all);
        setenv("FORK_TEST_DATA", folder_.path().c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (folder_ / "run").c_str(), 1);
        const char* arguments[] = {"/opt/gantry/fork_test", "-p2"};
        ASSERT_TRUE(vl_initialize("Fork Test", "FORK_TEST_DATA", 2, arguments));
        void* shared = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        progress_ = new (shared) std::atomic<int>{0};
    }
    void TearDown() override { vl_closedown(); }

    /// Runs in the child: every family, and shutdown. Ends it with 0, or 1 when a result was wrong.
    [[noreturn]] void use_everything() const {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
        _exit(0);  // the sanitizers' own locks stay held when another thread is inside their allocator
#endif
        alarm(30);  // ends a child that hangs
        for (int i = 0; i < k_shutdown; ++i) {
            *progress_ = i;
            if (!k_families[i].use(folder_)) _exit(1);
        }
        *progress_ = k_shutdown;
        vl_closedown();
        _exit(0);
    }
    const char* where_it_stopped() const {
        return *progress_ == k_shutdown ? "shutdown" : k_families[*progress_].name;
    }

    TemporaryFolder folder_;
    std::atomic<int>* progress_ = nullptr;
};

TEST_F(Fork, LeavesTheChildEveryFamilyWhileOtherThreadsAreInside) {
    std::atomic<bool> is_over{false};
    std::vector<std::thread> busy;
    for (const Family& family : k_families)
        busy.emplace_back([this, &family, &is_over] {
            while (!is_over)
                EXPECT_TRUE(family.use(folder_)) << family.name;
        });
    for (int round = 0; round < k_rounds && !HasFailure(); ++round) {
        const pid_t child = fork();
        if (child == 0) use_everything();
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << where_it_stopped() << ", round " << round;
    }
    is_over = true;
    for (std::thread& thread : busy)
        thread.join();
}

TEST_F(Fork, FindsTheHostsCodeUnderAHeapsLock) {
    // A discard callback that waits for the forking thread: the fork must not wait for it, and the child's copy of the
    // heap answers instead of hanging.
    static std::atomic<bool> is_inside{false}, may_return{false};
    void *old = nullptr, *fresh = nullptr;
    _mheap* heap = mem_getheap(MEM_HEAP_IMAGE);
    ASSERT_NE(mem_alloc_locked_buffer(&old, 30 << 20, MEM_HEAP_IMAGE), nullptr);
    mheap_set_discard_callback(heap, old, [](void*) {
        for (is_inside = true; !may_return;)
            std::this_thread::yield();
    });
    mem_unlock_buffer(&old);
    std::thread other([&] { EXPECT_NE(mem_alloc_locked_buffer(&fresh, 30 << 20, MEM_HEAP_IMAGE), nullptr); });
    while (!is_inside)
        std::this_thread::yield();
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        void* buffer = nullptr;
        const bool is_refused = mem_alloc_locked_buffer(&buffer, 1000, MEM_HEAP_IMAGE) == nullptr &&
                                mheap_validate(heap) == -1 && mheap_lock_ex(heap, old) == nullptr;
        const bool others_work = mem_alloc_locked_buffer(&buffer, 1000, MEM_HEAP_PROXY) != nullptr;
        vl_closedown();
        _exit(is_refused && others_work ? 0 : 1);
    }
    may_return = true;
    other.join();
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Fork, InADiscardCallbackLeavesBothSidesTheHeap) {
    static pid_t child;
    void *old = nullptr, *fresh = nullptr;
    ASSERT_NE(mem_alloc_locked_buffer(&old, 30 << 20, MEM_HEAP_IMAGE), nullptr);
    mheap_set_discard_callback(mem_getheap(MEM_HEAP_IMAGE), old, [](void*) { child = fork(); });
    mem_unlock_buffer(&old);
    const bool is_right = mem_alloc_locked_buffer(&fresh, 30 << 20, MEM_HEAP_IMAGE) != nullptr && old == nullptr &&
                          mem_free_locked_buffer(&fresh) == 1;
    if (child == 0) _exit(is_right ? 0 : 1);
    EXPECT_TRUE(is_right);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
