// The plan of the heaps' sizes, memory.cfg, the making of the heap set and the routing of buffers.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "heap_log.h"
#include "memory/heap_plan.h"
#include "memory/heap_record.h"
#include "memory/raw_memory.h"
#include "memory/size_text.h"
#include "support/temporary_folder.h"
#include "vellcore/heap_set.h"
#include "vellcore/lockable_heap.h"

namespace {

constexpr uint64_t k_mib = 1 << 20;

TEST(HeapPlan, GivesEachMachineItsSizes) {
    struct Row {
        const char* machine;
        uint64_t available_mib, max_block_mib, frame_mib, proxy_mib, image_mib;
    };
    const Row rows[] = {{"16 GiB", 12288, 0, 5568, 256, 64},
                        {"8 GiB available, two bytes short of the sparing rule", 8192, 0, 3520, 256, 64},
                        {"4 GiB", 3072, 0, 960, 256, 64},
                        {"64 GiB available", 65536, 0, 18880, 256, 64},
                        {"just below the large machines", 2095, 0, 759, 128, 32},
                        {"the least that does not wrap", 576, 0, 0, 128, 32},
                        {"a largest block", 12288, 2048, 2048 - 576, 256, 64},
                        {"a largest block above two thirds", 3072, 4096, 960, 256, 64}};
    for (const Row& row : rows) {
        const auto sizes = vell::default_heap_sizes(row.available_mib * k_mib, row.max_block_mib * k_mib);
        EXPECT_EQ(sizes.frame / k_mib, row.frame_mib) << row.machine;
        EXPECT_EQ(sizes.frame % k_mib, 0U) << row.machine;
        EXPECT_EQ(sizes.proxy, row.proxy_mib * k_mib) << row.machine;
        EXPECT_EQ(sizes.audio, sizes.proxy) << row.machine;
        EXPECT_EQ(sizes.image, row.image_mib * k_mib) << row.machine;
    }
}

TEST(HeapPlan, WrapsAndHalvesOnSmallMachines) {
    uint64_t size = vell::with_minimums(vell::default_heap_sizes(384 * k_mib, 0)).frame;
    EXPECT_EQ(size, uint64_t{0} - 96 * k_mib);
    unsigned tries = 0;
    for (bool goes_on = true; goes_on; ++tries) {
        goes_on = vell::may_halve(size);
        size /= 2;
    }
    EXPECT_EQ(tries, 36U);
    EXPECT_EQ(size, (uint64_t{0} - 96 * k_mib) >> 36);
    EXPECT_TRUE(vell::may_halve(536870914));
    EXPECT_FALSE(vell::may_halve(536870913));
}

TEST(HeapPlan, AlignsTheFrameHeapToPages) {
    EXPECT_EQ(vell::frame_alignment(512), 8192);
    EXPECT_EQ(vell::frame_alignment(4096), 8192);
    EXPECT_EQ(vell::frame_alignment(16384), 16384);
}

TEST(HeapPlan, ReadsConfigurationLines) {
    struct Row {
        const char* line;
        bool applies;
        uint64_t mib;
    };
    const Row rows[] = {{"frame_heap_size=1024\n", true, 1024}, {"frame_heap_size= 7", true, 7},
                        {"frame_heap_size=12x", true, 12},      {"frame_heap_size=", false, 1},
                        {"frame_heap_size=x", false, 1},        {"frame_heap_size =9", false, 1},
                        {" frame_heap_size=9", false, 1},       {"Frame_heap_size=9", false, 1},
                        {"frame_heap_siz", false, 1},           {"", false, 1}};
    for (const Row& row : rows) {
        vell::HeapSizes sizes{k_mib, 2, 3, 4};
        EXPECT_EQ(vell::apply_config_line(row.line, sizes), row.applies) << row.line;
        EXPECT_EQ(sizes.frame, row.mib * k_mib) << row.line;
        EXPECT_EQ(sizes.proxy + sizes.audio + sizes.image, 9U) << row.line;
    }
    vell::HeapSizes sizes;
    EXPECT_TRUE(vell::apply_config_line("proxy_heap_size=5", sizes));
    EXPECT_TRUE(vell::apply_config_line("audio_heap_size=6", sizes));
    EXPECT_TRUE(vell::apply_config_line("image_heap_size=7", sizes));
    EXPECT_EQ(sizes.proxy, 5 * k_mib);
    EXPECT_EQ(sizes.audio, 6 * k_mib);
    EXPECT_EQ(sizes.image, 7 * k_mib);
    sizes = vell::with_minimums(sizes);
    EXPECT_EQ(sizes.frame + sizes.proxy + sizes.audio + sizes.image, (256 + 128 + 128 + 32) * k_mib);
}

TEST(SizeText, RoundsLikePrintf) {
    for (const unsigned long long bytes :
         {0ULL, 1ULL, 511ULL, 512ULL, 1536ULL, 1048063ULL, 1048575ULL, 123456789012345ULL, ~0ULL, (1ULL << 53) + 1}) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "%.3f", static_cast<double>(bytes) / 1024);
        EXPECT_STREQ(vell::SizeText(bytes, vell::k_kib_bits).text(), expected);
    }
}

/// A folder with a small memory.cfg as the current folder, and the log.
class HeapSet : public testing::Test {
protected:
    void SetUp() override {
        folder.write("memory.cfg",
                     "frame_heap_size=100\n Frame_heap_size=3000\naudio_heap_size=130\nproxy_heap_size=1\n"
                     "image_heap_size=5\n");
        ASSERT_EQ(chdir(folder.path().c_str()), 0);
    }
    void TearDown() override {
        mem_free_pools();
        ASSERT_EQ(chdir("/"), 0);
    }
    HeapLog log;
    TemporaryFolder folder;
};

TEST_F(HeapSet, IsMadeOnceFromTheConfigurationFile) {
    for (uint32_t id = 0; id < 6; ++id) {
        EXPECT_EQ(mem_getheap(id), nullptr);
        EXPECT_EQ(mem_heapsize(id), 0U);
        EXPECT_EQ(mem_heapbase(id), nullptr);
        EXPECT_EQ(mem_clearall(id), -1);
        EXPECT_EQ(mem_validate(id), -1);
        EXPECT_EQ(mem_dumpheap(id, "none"), id >= 1 && id <= 4 ? 0 : -1);
    }
    EXPECT_EQ(log.take(), "");
    EXPECT_EQ(mem_alloc_pools(), (256 + 128 + 130 + 32) * k_mib);
    const std::string text = log.take();
    EXPECT_EQ(
        text.find("Memory config:\nframe_heap_size=100\n Frame_heap_size=3000\naudio_heap_size=130\nproxy_heap_size"),
        0U);
    EXPECT_NE(text.find("\nMemory setup:\n Available      : "), std::string::npos);
    EXPECT_EQ(text.substr(text.find(" Frame heap")),
              " Frame heap     :   256.000 Mb\n"
              " Proxy heap     :   128.000 Mb\n"
              " Audio heap     :   130.000 Mb\n"
              " Image heap     :    32.000 Mb\n"
              "                  ---------\n"
              " Total size     :   546.000 Mb\n"
              "                  ---------\n");
    struct Row {
        uint32_t id;
        const char* name;
        uint64_t alignment;
        mheap_mode mode;
    };
    for (const Row& row : {Row{1, "Frame", 8192, MHEAP_DISCARD}, Row{2, "Proxy", 4096, MHEAP_DISCARD},
                           Row{3, "Audio", 16, MHEAP_DISCARD}, Row{4, "Image", 4096, MHEAP_COMPACT}}) {
        ASSERT_NE(mem_getheap(row.id), nullptr);
        EXPECT_STREQ(mem_getheap(row.id)->name, row.name);
        EXPECT_EQ(mem_getheap(row.id)->alignment, row.alignment);
        EXPECT_EQ(mem_getheap(row.id)->mode, row.mode);
        EXPECT_EQ(mem_heapsize(row.id), mem_getheap(row.id)->total_size);
        EXPECT_EQ(mem_heapbase(row.id), mem_getheap(row.id)->base);
        EXPECT_TRUE(os_check_ptr(mem_heapbase(row.id)));
        EXPECT_EQ(mem_validate(row.id), 0);
    }
    EXPECT_EQ(mem_alloc_pools(), 546 * k_mib);
    EXPECT_EQ(log.take(), "");
    mem_free_pools();
    EXPECT_EQ(mem_alloc_pools(), 546 * k_mib) << "the total stays";
    EXPECT_EQ(mem_getheap(MEM_HEAP_FRAME), nullptr);
}

TEST_F(HeapSet, RoutesBuffersBySizeAndFindsThemAgain) {
    mem_alloc_pools();
    struct Row {
        uint64_t size;
        uint32_t id, lands_in;
    };
    for (const Row& row : {Row{1000, 0, MEM_HEAP_PROXY}, Row{262143, 0, MEM_HEAP_PROXY}, Row{262144, 0, MEM_HEAP_FRAME},
                           Row{10, 1, MEM_HEAP_FRAME}, Row{10, 3, MEM_HEAP_AUDIO}, Row{10, 4, MEM_HEAP_IMAGE}}) {
        void* buffer = nullptr;
        void* data = mem_alloc_locked_buffer(&buffer, row.size, row.id);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(data, buffer);
        EXPECT_TRUE(mheap_is_valid(mem_getheap(row.lands_in), &buffer)) << row.size << " in " << row.id;
        EXPECT_EQ(mem_lock_buffer(&buffer), 2);
        EXPECT_EQ(mem_keep_buffer(&buffer), 2);
        EXPECT_EQ(mem_free_buffer(&buffer), -1) << "locked";
        EXPECT_EQ(mem_unlock_buffer(&buffer), 1);
        EXPECT_EQ(mem_free_locked_buffer(&buffer), 1);
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(mem_free_buffer(&buffer), -1);
        EXPECT_EQ(mem_free_locked_buffer(&buffer), -1);
    }
    void* buffer = nullptr;
    EXPECT_EQ(mem_alloc_locked_buffer(&buffer, 10, 5), nullptr);
    EXPECT_EQ(mem_alloc_locked_buffer(nullptr, 10, 1), nullptr);
    log.take();
    EXPECT_EQ(mem_lock_buffer(nullptr), 0);
    EXPECT_EQ(mem_lock_buffer(&buffer), -1);
    EXPECT_EQ(mem_keep_buffer(&buffer), -1);
    EXPECT_EQ(mem_unlock_buffer(&buffer), -1);
    EXPECT_EQ(log.take(),
              "MEMORY: Lock memory, bad reference: 0\nMEMORY: Keep memory, bad reference: 0\n"
              "MEMORY: Unlock memory, bad reference: 0\n");
    void* unknown = &buffer;
    EXPECT_EQ(mem_free_locked_buffer(&unknown), -1);
    EXPECT_EQ(mem_free_buffer(&unknown), 0) << "kept: answered as if it had been freed";
    EXPECT_EQ(unknown, nullptr);
}

TEST_F(HeapSet, FallsBackToTheOtherHeapAndThenToTheSystem) {
    void* lone = nullptr;
    ASSERT_NE(mem_alloc_locked_buffer(&lone, 100, MEM_HEAP_AUTO), nullptr) << "without heaps";
    EXPECT_EQ(mem_alloc_locked_buffer(&lone, 100, MEM_HEAP_FRAME), nullptr);
    mem_alloc_pools();
    EXPECT_TRUE(os_check_ptr(lone));
    EXPECT_EQ(mem_lock_buffer(&lone), 0);
    EXPECT_EQ(mem_unlock_buffer(&lone), 0);
    EXPECT_EQ(mem_free_buffer(&lone), 0);
    EXPECT_EQ(lone, nullptr);

    void *frame = nullptr, *proxy = nullptr, *other = nullptr, *system = nullptr;
    for (uint32_t id = 1; id <= 4; ++id)
        vell::as_heap(mem_getheap(id)).wait_ns = 0;
    ASSERT_NE(mem_alloc_locked_buffer(&frame, 200 * k_mib, MEM_HEAP_FRAME), nullptr);
    ASSERT_NE(mem_alloc_locked_buffer(&other, 100 * k_mib, MEM_HEAP_AUTO), nullptr);
    EXPECT_TRUE(mheap_is_valid(mem_getheap(MEM_HEAP_PROXY), &other));
    ASSERT_NE(mem_alloc_locked_buffer(&system, 100 * k_mib, MEM_HEAP_AUTO), nullptr);
    EXPECT_TRUE(os_check_ptr(system));
    EXPECT_EQ(mem_alloc_locked_buffer(&proxy, 100 * k_mib, MEM_HEAP_PROXY), nullptr);
    EXPECT_EQ(mem_free_locked_buffer(&system), 0);
}

int discards = 0;
TEST_F(HeapSet, SetsCallbacksInTheFrameHeapOnly) {
    EXPECT_FALSE(mem_set_discard_callback(&discards, nullptr));
    mem_alloc_pools();
    void *frame = nullptr, *proxy = nullptr;
    ASSERT_NE(mem_alloc_locked_buffer(&frame, 100, MEM_HEAP_FRAME), nullptr);
    ASSERT_NE(mem_alloc_locked_buffer(&proxy, 100, MEM_HEAP_PROXY), nullptr);
    EXPECT_TRUE(mem_set_discard_callback(frame, [](void*) { ++discards; }));
    EXPECT_FALSE(mem_set_discard_callback(proxy, [](void*) { ++discards; }));
    mem_unlock_buffer(&frame);
    EXPECT_EQ(mem_clearall(MEM_HEAP_FRAME), 0);
    EXPECT_EQ(discards, 1);
    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(mem_free_locked_buffer(&proxy), 1);
}

uint64_t refused_from = UINT64_MAX;  // bytes
int arenas_left = INT32_MAX;         // allocations of 16 MiB and more
void* allocate_reluctantly(size_t bytes) noexcept {
    if (bytes >= 16 * k_mib && --arenas_left < 0) return nullptr;
    return bytes >= refused_from ? nullptr : std::malloc(bytes);
}

TEST_F(HeapSet, LeavesNothingBehindWhenAHeapCannotBeMade) {
    vell::raw_memory.allocate = allocate_reluctantly;
    const char* messages[] = {"FATAL: Can't create proxy heap\n", "FATAL: Can't create audio heap\n",
                              "FATAL: Can't create image heap\n", "FATAL: Can't create frame heap\n"};
    for (int arenas = 0; arenas < 4; ++arenas) {
        arenas_left = arenas;
        log.take();
        EXPECT_EQ(mem_alloc_pools(), 0U);
        EXPECT_NE(log.take().find(messages[arenas]), std::string::npos) << messages[arenas];
        for (uint32_t id = 1; id <= 4; ++id)
            EXPECT_EQ(mem_getheap(id), nullptr);
    }
    arenas_left = 4;
    EXPECT_NE(mem_alloc_pools(), 0U) << "once memory is there";
}

TEST_F(HeapSet, HalvesTheFrameHeapUntilItFits) {
    folder.write("memory.cfg", "frame_heap_size=3000\nproxy_heap_size=900\n");
    vell::raw_memory.allocate = allocate_reluctantly;
    refused_from = 800 * k_mib;
    EXPECT_NE(mem_alloc_pools(), 0U);
    EXPECT_NE(log.take().find("** MEMORY ALLOCATION FAILED:\n** REDUCED Frame heap size from 3000Mb to 750Mb\n"),
              std::string::npos);
    EXPECT_EQ(mem_heapsize(MEM_HEAP_FRAME), 750 * k_mib);
    EXPECT_EQ(mem_heapsize(MEM_HEAP_PROXY), 128 * k_mib) << "the least size instead of the planned one";
}

}  // namespace
