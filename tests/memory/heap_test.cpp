// What single operations of a lockable heap do, answer and write.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "heap_log.h"
#include "memory/heap_record.h"
#include "memory/raw_memory.h"
#include "vellcore/heap_set.h"
#include "vellcore/lockable_heap.h"

namespace {

struct HeapDeleter {
    void operator()(_mheap* heap) const { mheap_destroy(heap); }
};
using HeapOwner = std::unique_ptr<_mheap, HeapDeleter>;

/// A heap that does not keep a test waiting.
HeapOwner make_heap(uint64_t size, int alignment = 16, int mode = MHEAP_DISCARD) {
    HeapOwner heap(mheap_initialize("Test", size, alignment, mode, 0));
    if (heap != nullptr) vell::as_heap(heap.get()).wait_ns = 0;
    return heap;
}

/// An unlocked block of `total` bytes, header included.
void add_block(_mheap* heap, uint64_t total, void** handle) {
    ASSERT_EQ(mheap_alloc_lock(heap, total - heap->header_size, handle), 1);
    ASSERT_EQ(mheap_unlock(heap, handle), 0);
}

std::byte* byte_at(_mheap* heap, uint64_t offset) {
    return static_cast<std::byte*>(heap->base) + offset;
}
uint64_t offset_of(_mheap* heap, void* address) {
    return static_cast<uint64_t>(static_cast<std::byte*>(address) - byte_at(heap, 0));
}
mheap_mblk* header_of(_mheap* heap, void* data) {
    return reinterpret_cast<mheap_mblk*>(static_cast<std::byte*>(data) - heap->header_size);
}

int callbacks = 0;
void* last_discarded = nullptr;
void count_callback(void* data) {
    ++callbacks;
    last_discarded = data;
}

TEST(MHeap, IsLaidOutAsItsSizeAndAlignmentSay) {
    struct Row {
        uint64_t size;
        int alignment;
        uint64_t header_size, total;  // 0 = refused
    };
    for (const Row& row : {Row{134217728, 16, 80, 134217728}, Row{1000, 4, 68, 1000}, Row{1001, 4, 68, 1000},
                           Row{1000, 20, 80, 1000}, Row{1000, 65, 65, 975}, Row{100000, 4096, 4096, 98304},
                           Row{161, 16, 0, 0}, Row{176, 16, 80, 176}, Row{8192, 4096, 0, 0}, Row{0, 16, 0, 0},
                           Row{1000, 3, 0, 0}, Row{1000, 0, 0, 0}, Row{1000, -16, 0, 0}, Row{UINT64_MAX, 16, 0, 0}}) {
        const HeapOwner heap = make_heap(row.size, row.alignment);
        ASSERT_EQ(heap != nullptr, row.total != 0) << row.size << " by " << row.alignment;
        if (heap == nullptr) continue;
        EXPECT_EQ(heap->header_size, row.header_size);
        EXPECT_EQ(mheap_totalsize(heap.get()), row.total);
        uint64_t free_bytes, reclaimable;
        EXPECT_EQ(mheap_queryspace(heap.get(), free_bytes, reclaimable), row.total);
        EXPECT_EQ(free_bytes, row.total - row.header_size);
        EXPECT_EQ(reclaimable, free_bytes);
        EXPECT_EQ(static_cast<void*>(heap->first), heap->base);
        EXPECT_EQ(offset_of(heap.get(), heap->end), free_bytes);
    }
    const HeapOwner long_name(mheap_initialize("A name of more than thirty-two letters", 4096, 16, 0, 0));
    EXPECT_EQ(std::memcmp(long_name->name, "A name of more than thirty-two l", 32), 0);
}

TEST(MHeap, TakesAHeaderAndRoundsUp) {
    const HeapOwner heap = make_heap(1 << 20, 4096);
    void* first = nullptr;
    void* second = nullptr;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 1, &first), 1);
    EXPECT_EQ(offset_of(heap.get(), first), 4096U);
    EXPECT_EQ(header_of(heap.get(), first)->size, 8192U);
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 4097, &second), 1);
    EXPECT_EQ(header_of(heap.get(), second)->size, 12288U);
    EXPECT_EQ(header_of(heap.get(), second)->stamp, 3U);
    EXPECT_EQ(heap->use_counter, 4U);
}

TEST(MHeap, DiscardsTheLeastRecentlyUsedUnlockedBlockWhenFull) {
    const HeapOwner heap = make_heap(4 * 1024 + 80);
    void* blocks[4] = {};
    for (void*& block : blocks)
        add_block(heap.get(), 1024, &block);
    void* const second = blocks[1];
    EXPECT_TRUE(mheap_set_discard_callback(heap.get(), blocks[1], count_callback));
    EXPECT_EQ(mheap_keep(heap.get(), &blocks[0]), 0);  // now the youngest
    EXPECT_NE(mheap_lock_ex(heap.get(), blocks[1]), nullptr);
    EXPECT_TRUE(mheap_unlock_ex(heap.get(), blocks[1]));  // as old as before
    void* fresh = nullptr;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 900, &fresh), 1);
    EXPECT_EQ(fresh, second);
    EXPECT_EQ(blocks[1], nullptr);
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(last_discarded, second);
    EXPECT_EQ(mheap_lock(heap.get(), &blocks[1]), -1);
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 1900, &blocks[1]), 1);  // the third and the fourth go
    EXPECT_EQ(blocks[2], nullptr);
    EXPECT_EQ(blocks[3], nullptr);
    EXPECT_NE(blocks[0], nullptr);
}

TEST(MHeap, MovesUnlockedBlocksTogetherWhenCompacting) {
    const HeapOwner heap = make_heap(5 * 1024 + 80, 16, MHEAP_COMPACT);
    void* blocks[4] = {};
    for (void*& block : blocks)
        add_block(heap.get(), &block == blocks ? 2048 : 1024, &block);
    std::memset(blocks[1], 0x5A, 900);
    EXPECT_EQ(mheap_free(heap.get(), &blocks[0]), 1);
    EXPECT_EQ(mheap_free(heap.get(), &blocks[2]), 1);
    void* copy = blocks[1];
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 2900, &blocks[0]), 1);
    EXPECT_EQ(offset_of(heap.get(), blocks[1]), 80U) << "moved down by the free block before it";
    EXPECT_EQ(static_cast<unsigned char*>(blocks[1])[899], 0x5A);
    EXPECT_EQ(mheap_lock(heap.get(), &copy), -1) << "the old place names no block any more";
    EXPECT_EQ(mheap_lock(heap.get(), &blocks[1]), 1);
    EXPECT_NE(blocks[3], nullptr);
}

TEST(MHeap, RefusesPointersThatNameNoBlock) {
    HeapLog log;
    const HeapOwner heap = make_heap(1 << 16);
    void *block = nullptr, *other = nullptr;
    add_block(heap.get(), 2048, &block);
    add_block(heap.get(), 2048, &other);
    void* pointers[] = {heap->base,
                        byte_at(heap.get(), 8),
                        static_cast<std::byte*>(block) + 16,
                        heap->end,
                        byte_at(heap.get(), 4096 + 80),
                        byte_at(heap.get(), 1 << 20),
                        &log,
                        static_cast<std::byte*>(block) + 3};
    for (void* pointer : pointers) {
        char text[64];
        void* handle = pointer;
        std::snprintf(text, sizeof text, "Illegal mheap pointer: %p\n", pointer);
        EXPECT_EQ(mheap_lock(heap.get(), &handle), -1);
        EXPECT_EQ(log.take(), text);
        EXPECT_FALSE(mheap_is_valid(heap.get(), &handle));
        EXPECT_FALSE(mheap_unlock_ex(heap.get(), pointer));
        EXPECT_FALSE(mheap_set_discard_callback(heap.get(), pointer, count_callback));
        EXPECT_EQ(mheap_free(heap.get(), &handle), -1);
        log.take();
    }
    void* copy = block;
    EXPECT_EQ(mheap_lock(heap.get(), &copy), 1) << "a copy of the pointer will do";
    EXPECT_EQ(mheap_keep(heap.get(), &copy), 1);
    EXPECT_FALSE(mheap_is_valid(heap.get(), &copy));
    EXPECT_TRUE(mheap_is_valid(heap.get(), &block));
    log.take();
    EXPECT_EQ(mheap_free(heap.get(), &copy), -1);
    char text[128];
    std::snprintf(text, sizeof text, "MHeap: Illegal pointer owner (%p,%p): %p\n",
                  static_cast<void*>(header_of(heap.get(), block)), static_cast<void*>(&block),
                  static_cast<void*>(&copy));
    EXPECT_EQ(log.take(), text);
}

TEST(MHeap, AnswersAndReportsMisuse) {
    HeapLog log;
    const HeapOwner heap = make_heap(1 << 16);
    void *block = nullptr, *none = nullptr, *outside = &none;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 0, &block), -1);
    EXPECT_EQ(log.take(), "MHeap: Illegal size (0) requested..\n");
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 100, &block), 1);
    EXPECT_EQ(mheap_lock(heap.get(), &none), -1);
    EXPECT_EQ(mheap_keep(heap.get(), &none), -1);
    EXPECT_EQ(mheap_free(heap.get(), &none), -1);
    EXPECT_EQ(log.take(), "") << "null pointers are answered silently";
    EXPECT_EQ(mheap_unlock(heap.get(), &none), -1);
    EXPECT_EQ(log.take().substr(0, 23), "Illegal MHeap pointer: ");
    EXPECT_EQ(mheap_free(heap.get(), &outside), -1);
    EXPECT_EQ(log.take().substr(0, 23), "MHeap: Illegal pointer:");
    EXPECT_EQ(mheap_free(heap.get(), &block), -1);
    EXPECT_EQ(log.take().substr(0, 37), "MHeap: Attempt to free locked block: ");
    EXPECT_EQ(mheap_unlock(heap.get(), &block), 0);
    EXPECT_EQ(mheap_unlock(heap.get(), &block), 0);
    EXPECT_EQ(log.take(), "MHeap: Unlocking a non locked block\n");
    uint64_t free_bytes, reclaimable;
    EXPECT_EQ(mheap_queryspace(nullptr, free_bytes, reclaimable), 0U);
    EXPECT_EQ(mheap_resize(nullptr, 1 << 20, 0), UINT64_MAX);
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 1, nullptr) + mheap_lock(heap.get(), nullptr) + mheap_keep(nullptr, &block) +
                  mheap_unlock(nullptr, &block) + mheap_free(nullptr, &block) + mheap_clearall(nullptr) +
                  mheap_validate(nullptr),
              -7);
    EXPECT_EQ(mheap_initialize(nullptr, 1 << 20, 16, 0, 0), nullptr);
    EXPECT_EQ(mheap_lock_ex(nullptr, block), nullptr);
    EXPECT_EQ(mheap_prefetch_all(nullptr), 0U);
    mheap_free_blk(heap.get(), nullptr);
    mheap_dump(nullptr, "none");
    mheap_trace(nullptr, nullptr);
    mheap_destroy(nullptr);
}

TEST(MHeap, LocksByAnyAddressInsideABlock) {
    for (const int alignment : {4, 16, 100, 4096}) {
        const HeapOwner heap = make_heap(40 * static_cast<uint64_t>(alignment) + 4000, alignment);
        void *block = nullptr, *gap = nullptr;
        ASSERT_EQ(mheap_alloc_lock(heap.get(), 500, &block), 1);
        ASSERT_EQ(mheap_alloc_lock(heap.get(), 500, &gap), 1);
        const uint64_t size = header_of(heap.get(), block)->size;
        EXPECT_EQ(mheap_lock_ex(heap.get(), byte_at(heap.get(), 0)), nullptr) << "not strictly inside";
        for (const uint64_t offset : {uint64_t{1}, heap->header_size, heap->header_size + 100, size - 1})
            EXPECT_EQ(mheap_lock_ex(heap.get(), byte_at(heap.get(), offset)), block) << offset << " by " << alignment;
        EXPECT_EQ(mheap_lock_ex(heap.get(), byte_at(heap.get(), size)), gap);
        EXPECT_EQ(mheap_lock_ex(heap.get(), byte_at(heap.get(), 2 * size)), nullptr) << "free space";
        EXPECT_EQ(mheap_lock_ex(heap.get(), heap->end), nullptr);
        for (int i = 0; i < 4; ++i)
            EXPECT_TRUE(mheap_unlock_ex(heap.get(), block));
        EXPECT_FALSE(mheap_unlock_ex(heap.get(), block));
    }
}

TEST(MHeap, ReleasesAPendingBlockWithTheFirstLockByAddressDropped) {
    const HeapOwner heap = make_heap(1 << 16);
    void* block = nullptr;
    add_block(heap.get(), 1024, &block);
    void* const data = block;
    mheap_set_discard_callback(heap.get(), data, count_callback);
    EXPECT_EQ(mheap_lock_ex(heap.get(), data), data);
    EXPECT_EQ(mheap_lock_ex(heap.get(), data), data);
    EXPECT_EQ(mheap_free(heap.get(), &block), 1);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(header_of(heap.get(), data)->flags, 1U);
    EXPECT_EQ(mheap_clearall(heap.get()), 0);
    EXPECT_EQ(header_of(heap.get(), data)->state, 1U) << "still there";
    EXPECT_TRUE(mheap_unlock_ex(heap.get(), data));
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(header_of(heap.get(), data)->state, 0U);
    EXPECT_FALSE(mheap_unlock_ex(heap.get(), data)) << "the second lock went with the block";
    void* all = nullptr;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), (1 << 16) - 160, &all), 1) << "no count is left that pins free space";
}

TEST(MHeap, WaitsTenTimesForARequestThatCanNeverFit) {
    for (const uint64_t size : {uint64_t{1} << 16, UINT64_MAX - 200, UINT64_MAX}) {
        HeapLog log;
        const HeapOwner heap = make_heap(1 << 16);
        void* block = nullptr;
        EXPECT_EQ(mheap_alloc_lock(heap.get(), size, &block), -1);
        const std::string text = log.take();
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20);
        EXPECT_NE(text.find(" (9)\nTimeout while waiting for free space in Test heap\n"), std::string::npos);
        EXPECT_EQ(text.find("TOTALLY LOCKED"), std::string::npos);
        EXPECT_EQ(block, nullptr);
        const HeapOwner compacting = make_heap(1 << 16, 16, MHEAP_COMPACT);
        EXPECT_EQ(mheap_alloc_lock(compacting.get(), size, &block), -1);
        EXPECT_EQ(log.take(), "");
    }
}

TEST(MHeap, ListsItsBlocksTwicePerRoundWhenAllIsLocked) {
    HeapLog log;
    const HeapOwner heap = make_heap(8 * 4096, 16);
    void *locked = nullptr, *by_address = nullptr, *block = nullptr;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 4096, &locked), 1);
    add_block(heap.get(), 20480, &by_address);
    EXPECT_NE(mheap_lock_ex(heap.get(), by_address), nullptr);
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 10000, &block), -1);
    const std::string list =
        "HEAP 'Test' - TOTALLY LOCKED !!:\n  Locked( 1):        4 ( 1)\n  LockedEx( 1):       20 ( 1)\n"
        "  Free      :        7 ( 0)\n  Total :       31 of 32\n";
    const std::string text = log.take();
    EXPECT_EQ(text.find(list + list + "Waiting for free space in Test heap: 10080 (0)\nTimeout"), 0U) << text;
    size_t lists = 0;
    for (size_t at = text.find("TOTALLY"); at != std::string::npos; at = text.find("TOTALLY", at + 1))
        ++lists;
    EXPECT_EQ(lists, 20U);
}

TEST(MHeap, TracesALockedBlockTwice) {
    HeapLog log;
    const HeapOwner heap = make_heap(64 * 1024 + 80);
    void *locked = nullptr, *both = nullptr, *used = nullptr;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 16384 - 80, &locked), 1);
    add_block(heap.get(), 8192, &used);
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 8192 - 80, &both), 1);
    EXPECT_NE(mheap_lock_ex(heap.get(), both), nullptr);
    mheap_trace(heap.get(), header_of(heap.get(), used));
    std::string expected;
    char line[256];
    const auto block = [&](const char* mark, int number, uint64_t offset, int state, int size, void** owner,
                           const char* what) {
        std::snprintf(line, sizeof line, "     %s  BLK %3d: %p -> %2d %9d 0x%p %s\n", mark, number,
                      static_cast<void*>(byte_at(heap.get(), offset)), state, size, static_cast<void*>(owner), what);
        expected += line;
    };
    std::snprintf(line, sizeof line, "MHeap TRACE: 64 Kb (0x%p - 0x%p)\n", heap->base, static_cast<void*>(heap->end));
    expected = line;
    block("", 0, 0, 1, 16384, &locked, "Locked 1");
    block("", 0, 0, 1, 16384, &locked, "Used");
    block("*", 1, 16384, 1, 8192, &used, "Used");
    block("", 2, 24576, 1, 8192, &both, "Locked 1");
    block("", 2, 24576, 1, 8192, &both, "LockedEx 1");
    block("", 3, 32768, 0, 32768, nullptr, "Free");
    EXPECT_EQ(log.take(), expected + "    STATUS: 32 Kb Locked, 24 Kb Used, 32 Kb Free\n");
}

TEST(MHeap, GrowsAndRebasesEveryOwner) {
    const HeapOwner heap = make_heap(4096);
    void *locked = nullptr, *pending = nullptr;
    EXPECT_EQ(mheap_alloc_lock(heap.get(), 100, &locked), 1);
    std::strcpy(static_cast<char*>(locked), "kept");
    add_block(heap.get(), 1024, &pending);
    EXPECT_NE(mheap_lock_ex(heap.get(), pending), nullptr);
    const uint64_t pending_offset = offset_of(heap.get(), pending);
    EXPECT_EQ(mheap_free(heap.get(), &pending), 1);
    EXPECT_EQ(mheap_resize(heap.get(), 4096, 0), UINT64_MAX);
    uint64_t free_bytes = 0, free_before = 0, reclaimable;
    mheap_queryspace(heap.get(), free_before, reclaimable);
    EXPECT_EQ(mheap_resize(heap.get(), 4096 + 16, 0), 4112U) << "less than a header: nothing to add";
    EXPECT_EQ(mheap_queryspace(heap.get(), free_bytes, reclaimable), 4112U);
    EXPECT_EQ(free_bytes, free_before);
    EXPECT_EQ(mheap_resize(heap.get(), 65540, 0), 65536U);
    EXPECT_STREQ(static_cast<char*>(locked), "kept");
    EXPECT_EQ(offset_of(heap.get(), locked), 80U);
    mheap_queryspace(heap.get(), free_bytes, reclaimable);
    EXPECT_EQ(free_bytes, free_before + 65536 - 4112 - 80);
    EXPECT_TRUE(mheap_unlock_ex(heap.get(), byte_at(heap.get(), pending_offset))) << "ownerless blocks are rebased too";
    EXPECT_EQ(mheap_validate(heap.get()), 0);
    EXPECT_TRUE(os_check_ptr(heap->base));
}

void* refuse(size_t) noexcept {
    return nullptr;
}

TEST(MHeap, IsWholeAfterMemoryForItsIndexWasRefused) {
    const HeapOwner heap = make_heap(4096);
    void* block = nullptr;
    add_block(heap.get(), 1024, &block);
    void* const base = heap->base;
    const auto allocate_zeroed = std::exchange(vell::raw_memory.allocate_zeroed, refuse);
    EXPECT_EQ(make_heap(1 << 20), nullptr);
    EXPECT_EQ(mheap_resize(heap.get(), 1 << 20, 0), uint64_t{1} << 20) << "as when the arena cannot be had";
    vell::raw_memory.allocate_zeroed = allocate_zeroed;
    EXPECT_EQ(heap->base, base);
    EXPECT_EQ(mheap_totalsize(heap.get()), 4096U);
    EXPECT_EQ(mheap_lock(heap.get(), &block), 1);
}

TEST(MHeap, PrefetchesWithoutChangingAByte) {
    const HeapOwner heap = make_heap(5 * 4096, 16);
    auto* bytes = static_cast<unsigned char*>(heap->base);
    uint32_t sum = bytes[0];
    for (unsigned page = 1; page < 4; ++page)
        sum += bytes[page * 4096] = static_cast<unsigned char>(200 + page);
    EXPECT_EQ(mheap_prefetch_all(heap.get()), sum);
    EXPECT_EQ(bytes[3 * 4096], 203);
    EXPECT_EQ(mheap_prefetch_all(make_heap(4096).get()), 0U);
}

// --- Overwritten headers ----------------------------------------------------------------------------------------

volatile std::sig_atomic_t signals = 0;

void allocate_past_an_overwritten_header(uint64_t bad_size, bool is_free) {
    std::signal(SIGSEGV, SIG_DFL);  // Sanitizers have a handler of their own.
    const HeapOwner heap = make_heap(1 << 16);
    void *first = nullptr, *second = nullptr;
    add_block(heap.get(), 1024, &first);
    add_block(heap.get(), 1024, &second);
    mheap_mblk* header = header_of(heap.get(), first);
    if (is_free) mheap_free(heap.get(), &first);
    header->size = bad_size;
    (void)!mheap_alloc_lock(heap.get(), 40000, &first);
}

TEST(MHeapCorruption, SendsSignal11WhenASearchMeetsAnOverwrittenHeader) {
    for (const uint64_t bad_size : {uint64_t{0}, uint64_t{16}, uint64_t{1000}, uint64_t{1} << 20})
        for (const bool is_free : {false, true})
            EXPECT_EXIT(allocate_past_an_overwritten_header(bad_size, is_free), testing::KilledBySignal(SIGSEGV), "")
                << bad_size << is_free;
}

class MHeapClosed : public testing::Test {
protected:
    void SetUp() override {
        signals = 0;
        std::signal(SIGSEGV, [](int) { signals = signals + 1; });
    }
    void TearDown() override { std::signal(SIGSEGV, SIG_DFL); }
    HeapLog log;
};

TEST_F(MHeapClosed, StaysClosedAfterAFailedValidation) {
    struct Row {
        uint64_t size;
        const char* message;
    };
    for (const Row& row : {Row{0, ""}, Row{1000, "HEAP CORRUPTED: Illegal (0 size) block detected...\n"}}) {
        HeapOwner heap = make_heap(1 << 16);
        void *first = nullptr, *second = nullptr;
        add_block(heap.get(), 1024, &first);
        add_block(heap.get(), 1024, &second);
        header_of(heap.get(), second)->size = row.size;
        EXPECT_EQ(mheap_validate(heap.get()), -1);
        EXPECT_EQ(log.take(), row.message);
        EXPECT_FALSE(mp_test_mutex(heap->mutex));
        mheap_dump(heap.get(), "closed");
        EXPECT_EQ(log.take(), "HEAP 'Test' - closed:\n  Used       :        1 ( 1)\n  Total :        1 of 64\n");
        uint64_t free_bytes, reclaimable;
        EXPECT_EQ(mheap_queryspace(heap.get(), free_bytes, reclaimable), uint64_t{1} << 16);
        heap.reset();  // does not wait for the lock that is never released
    }
    EXPECT_EQ(signals, 0);
}

TEST_F(MHeapClosed, StaysClosedAfterAFailedClearing) {
    const HeapOwner heap = make_heap(1 << 16);
    void* block = nullptr;
    add_block(heap.get(), 1024, &block);
    header_of(heap.get(), block)->size = 0;
    EXPECT_EQ(mheap_clearall(heap.get()), -1);
    EXPECT_EQ(log.take(), "HEAP CORRUPTED: Illegal (0 size) block detected...\n");
    EXPECT_EQ(signals, 1);
    EXPECT_FALSE(mp_test_mutex(heap->mutex));
}

TEST_F(MHeapClosed, DoesNotFreeABlockWhoseHeaderWasOverwritten) {
    const HeapOwner heap = make_heap(1 << 16);
    void* block = nullptr;
    add_block(heap.get(), 1024, &block);
    header_of(heap.get(), block)->size = 32;
    EXPECT_EQ(mheap_free(heap.get(), &block), -1);
    EXPECT_EQ(log.take(), "HEAP 'Test' CORRUPTED: Illegal (0 size) block detected...\n");
    EXPECT_EQ(signals, 1);
    EXPECT_NE(block, nullptr);
}

}  // namespace
