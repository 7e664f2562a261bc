#include "vellcore/block_memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "memory/allocation_records.h"
#include "memory/raw_memory.h"
#include "support/log_capture.h"
#include "support/random_seed.h"
#include "vellcore/heap_set.h"

namespace {

using Lines = std::vector<std::string>;

uint64_t word_before(const void* block, size_t distance) {
    uint64_t word = 0;
    std::memcpy(&word, static_cast<const char*>(block) - distance, sizeof word);
    return word;
}

TEST(AlignedBlock, HonoursAnyAlignmentAndKnowsItsSize) {
    for (const int32_t alignment : {4, 5, 7, 8, 16, 64, 100, 4096, 65536, 3, 0, -1}) {
        const auto step = static_cast<uint64_t>(alignment < 4 ? mem_pagesize() : alignment);
        for (const uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{100}, uint64_t{5000}}) {
            void* block = a_alloc(size, alignment);
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % step, 0u) << alignment;
            EXPECT_EQ(word_before(block, 16), size);
            EXPECT_GE(word_before(block, 8), 17u);
            EXPECT_LE(word_before(block, 8), step + 16);
            std::memset(block, 0x5A, size);
            a_free(block);
        }
    }
    a_free(nullptr);
}

TEST(AlignedBlock, ReallocationKeepsContentsAndAnswersNull) {
    std::mt19937 random(7);
    char* block = static_cast<char*>(a_realloc(nullptr, 10, 64));
    std::memcpy(block, "0123456789", 10);
    for (int i = 0; i < 500; ++i) {
        const uint64_t size = 10 + random() % 300000;
        block = static_cast<char*>(a_realloc(block, size, static_cast<int32_t>(4 + random() % 200)));
        ASSERT_EQ(std::memcmp(block, "0123456789", 10), 0);
        EXPECT_EQ(word_before(block, 16), size);
    }
    block = static_cast<char*>(a_realloc(block, 4, 16));
    EXPECT_EQ(std::memcmp(block, "0123", 4), 0);
    a_free(block);
}

TEST(AlignedBlock, RefusesWhatCannotBeHad) {
    const LogCapture log;
    void* block = a_alloc(16, 16);
    EXPECT_EQ(a_alloc(UINT64_MAX, 16), nullptr);
    EXPECT_EQ(a_alloc(UINT64_MAX - 40, 64), nullptr);
    EXPECT_EQ(a_realloc(block, UINT64_MAX - 41, 64), nullptr);
    a_free(block);
    const Lines lines = log.lines();
    ASSERT_EQ(lines.size(), 3u) << "equal lines are counted";
    EXPECT_EQ(lines[0], "ERROR: MEMORY: Aligned allocation failed.. (Requested: 18014398509481984.000)");
    EXPECT_EQ(lines[2], "WARN : MEMORY: Aligned re-allocation failed.. (Requested: 18014398509481984.000)");
}

TEST(AlignedBlock, CopiesOverlappingRanges) {
    char text[] = "abcdefgh";
    EXPECT_EQ(memcopy(text, text + 2, 6), text);
    EXPECT_STREQ(text, "cdefghgh");
    EXPECT_EQ(memcopy(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(a_heapcompact(), 4096u);
}

TEST(SmallBlocks, EachSizeComesFromItsPool) {
    // Neighbours in a fresh pool are an item apart.
    const struct { uint64_t size, stride; } rows[] = {{0, 40}, {32, 40}, {33, 72}, {64, 72}, {65, 136}, {128, 136}};
    for (const auto& row : rows) {
        sb_destroy();
        auto* first = static_cast<char*>(sb_alloc(row.size));
        auto* second = static_cast<char*>(sb_alloc(row.size));
        EXPECT_EQ(static_cast<uint64_t>(second - first), row.stride) << row.size;
        EXPECT_EQ(word_before(first, 8), reinterpret_cast<uintptr_t>(second) - 8) << "linked to the next fresh item";
    }
    sb_destroy();
    void* large = sb_alloc(129);
    sb_free(large, 129);
    sb_free(nullptr, 10);
}

TEST(SmallBlocks, ComeBackInTheReverseOrderOfTheirFrees) {
    std::vector<void*> blocks(5000);
    for (void*& block : blocks) {
        block = sb_alloc(20);
        EXPECT_EQ(*static_cast<uint64_t*>(block), 0u) << "fresh blocks are zeroed";
        std::memset(block, 0xFF, 32);
    }
    void* last_fresh = blocks.back();
    std::mt19937 random(3);
    std::shuffle(blocks.begin(), blocks.end(), random);
    for (size_t i = 0; i < blocks.size(); ++i) {
        void* next_fresh = nullptr;
        if (i == 0) std::memcpy(&next_fresh, static_cast<char*>(last_fresh) - 8, sizeof next_fresh);
        sb_free(blocks[i], 20);
        void* newer = i == 0 ? next_fresh : static_cast<char*>(blocks[i - 1]) - 8;
        EXPECT_EQ(word_before(blocks[i], 8), reinterpret_cast<uintptr_t>(newer)) << "linked to the one before";
    }
    for (size_t i = blocks.size(); i-- > 0;)
        ASSERT_EQ(sb_alloc(1), blocks[i]);
    sb_destroy();
}

TEST(SmallBlocks, AMixedHistoryNeverHandsABlockOutTwice) {
    std::set<void*> live;
    std::mt19937 random(11);
    for (int i = 0; i < 200000; ++i) {
        if (live.empty() || random() % 5 < 3) {
            void* block = sb_alloc(100);
            *static_cast<uint64_t*>(block) = ~uint64_t{0};
            ASSERT_TRUE(live.insert(block).second);
        } else {
            auto victim = live.begin();
            std::advance(victim, random() % std::min<size_t>(live.size(), 8));
            sb_free(*victim, 100);
            live.erase(victim);
        }
    }
    sb_destroy();
}

uint64_t largest_mapping = 0;
std::vector<uint64_t> asked_for;

class PoolWithoutMemory : public testing::Test {
protected:
    void SetUp() override {
        saved_ = vell::raw_memory;
        asked_for.clear();
        vell::raw_memory.map_zeroed = [](size_t bytes) noexcept -> void* {
            asked_for.push_back(bytes - 32);
            return bytes > largest_mapping ? nullptr : std::calloc(1, bytes);
        };
        vell::raw_memory.unmap = [](void* memory, size_t) noexcept { std::free(memory); };
    }
    void TearDown() override { vell::raw_memory = saved_; }
    vell::RawMemory saved_;
};

TEST_F(PoolWithoutMemory, HalvesItsChunkUntilItFits) {
    largest_mapping = 200'000;
    Allocator<char> pool(32, 524288);
    std::set<void*> items;
    for (int i = 0; i < 4096; ++i) {
        void* item = pool.allocate_blk();
        ASSERT_TRUE(item != nullptr && items.insert(item).second) << i;
    }
    std::vector<uint64_t> expected;
    for (uint64_t count = 524288; count >= 4096; count /= 2)
        expected.push_back(count * 40);
    EXPECT_EQ(asked_for, expected);
    EXPECT_NE(pool.allocate_blk(), nullptr);
    EXPECT_EQ(asked_for[expected.size()], 524288u * 40) << "the next chunk is tried at full size again";
}

TEST_F(PoolWithoutMemory, GivesUpBelow32KiB) {
    largest_mapping = 0;
    const LogCapture log;
    msginfo("before");
    Allocator<char> pool(128, 131072);
    EXPECT_EQ(pool.allocate_blk(), nullptr);
    EXPECT_EQ(asked_for.back(), 256u * 136) << "34,816 bytes; the next half would be too small";
    EXPECT_EQ(log.lines().back(), ": Failed to extend the memory pool!");
}

TEST(Vector, GrowsByItsRuleAndRemovesInOrder) {
    vl_vector<int> vector;
    EXPECT_FALSE(vector.remove(0));
    const std::pair<uint32_t, uint32_t> growth[] = {{1, 16},      {16, 16},     {17, 32},     {512, 512},
                                                    {513, 1024},  {1023, 1024}, {1024, 1024}, {1025, 1152},
                                                    {1152, 1152}, {1153, 1280}};
    for (const auto& [count, capacity] : growth) {
        while (vector.count() < count)
            ASSERT_TRUE(vector.append(static_cast<int>(vector.count())));
        EXPECT_EQ(vector.capacity(), capacity) << count;
    }
    EXPECT_TRUE(vector.remove(1));
    EXPECT_EQ(vector[0], 0);
    EXPECT_EQ(vector[1], 2);
    EXPECT_TRUE(vector.remove(5000)) << "removes the last";
    EXPECT_EQ(vector.count(), 1151u);
    EXPECT_EQ(vector[1150], 1151);
    EXPECT_TRUE(vector.append(vector[3])) << "an element of its own";
    vector.release();
    EXPECT_EQ(vector.capacity(), 0u);
}

TEST(Vector, StartsWithRoundedRoomAndReportsWhatItCannotHave) {
    const std::pair<uint32_t, uint32_t> rooms[] = {{0, 0}, {1, 16}, {17, 32}, {1023, 1024}, {1024, 1024}, {1025, 1152}};
    for (const auto& [wanted, capacity] : rooms)
        EXPECT_EQ(vl_vector<int>(wanted).capacity(), capacity);
    struct Huge {
        char bytes[1 << 30];
    };
    const LogCapture log;
    vl_vector<Huge> huge(1u << 20);
    const void* volatile array = huge.data();  // seen by somebody, so that a compiler keeps the allocation
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(huge.capacity(), 0u);
    EXPECT_EQ(log.lines(), Lines{"ERROR: Vector ensure: Not enough memory..(0 + 1048576 * 1073741824)"});
}

TEST(SystemMemory, KeepsAllocationsOnRecord) {
    const LogCapture log(MSG_DEBUG);
    mem_info_str info{};
    EXPECT_EQ(mem_initialize(&info), info.heap_avail);
    EXPECT_EQ(info.phys_total, info.heap_total);
    EXPECT_EQ(info.phys_avail, static_cast<uint64_t>(static_cast<double>(info.phys_total) * 0.75));
    EXPECT_EQ(info.max_block, 0u);
    void* first = os_alloc(100, 0);
    void* second = os_alloc(200, 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 65536, 0u);
    EXPECT_TRUE(os_check_ptr(first));
    EXPECT_FALSE(os_check_ptr(static_cast<char*>(first) + 1));
    EXPECT_TRUE(os_free(second));
    EXPECT_FALSE(os_free(second));
    EXPECT_FALSE(os_free(nullptr));
    EXPECT_EQ(os_alloc(UINT64_MAX - 5, 0), nullptr);
    mem_closedown();
    const Lines lines = log.lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0].rfind("DEBUG: MEMORY: OS bad memory reference passed: ", 0), 0u);
    EXPECT_EQ(lines[3], "WARN : MEMORY: OS allocation failed, Requested: 18014398509481984.000");
    EXPECT_EQ(lines[4], "DEBUG: MEMORY: Closedown: 1 OS allocations left: 100");
    EXPECT_FALSE(os_free(first)) << "forgotten, not freed";
    a_free(first);
}

// Against a plain list, searched from its end: random additions and removals, with addresses that come twice.
TEST(SystemMemory, RecordsAreThoseOfAPlainList) {
    const unsigned seed = random_seed();
    SCOPED_TRACE("VELLCORE_TEST_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    vell::AllocationRecords records;
    std::vector<spm_record> plain;
    for (int step = 0; step < 20'000; ++step) {
        const uint64_t limit = step < 10'000 ? 3000 : 40;  // it grows first and shrinks then
        auto* address = reinterpret_cast<void*>((random() % limit + 1) << 16);
        const bool adds = random() % 8 < (step < 10'000 ? 5U : 3U);
        if (adds) {
            const spm_record record{address, random(), static_cast<int32_t>(step)};
            ASSERT_TRUE(records.add(record));
            plain.push_back(record);
        } else {
            const auto newest = std::find_if(plain.rbegin(), plain.rend(),
                                             [&](const spm_record& record) { return record.address == address; });
            ASSERT_EQ(records.has(address), newest != plain.rend());
            spm_record taken{};
            ASSERT_EQ(records.take(address, taken), newest != plain.rend());
            if (newest == plain.rend()) continue;
            ASSERT_EQ(taken.locked, newest->locked) << "the newest of an address";
            ASSERT_EQ(taken.size, newest->size);
            plain.erase(std::next(newest).base());
        }
        ASSERT_EQ(records.count(), plain.size());
    }
    for (auto record = plain.rbegin(); record != plain.rend(); ++record) {
        spm_record taken{};
        ASSERT_TRUE(records.take(record->address, taken));
        ASSERT_EQ(taken.locked, record->locked);
    }
}

// The memory is released without the lock: another thread's calls go through meanwhile, and find the address gone.
TEST(SystemMemory, ReleasesMemoryWhileOthersUseTheRecord) {
    static void* victim;
    static std::thread::id releaser;
    victim = os_alloc(1000, 0);
    releaser = std::this_thread::get_id();
    const vell::RawMemory whole = vell::raw_memory;
    static void (*real_release)(void*) noexcept;
    real_release = whole.release;
    static std::atomic<int> releases;
    releases = 0;
    vell::raw_memory.release = [](void* block) noexcept {
        if (std::this_thread::get_id() == releaser && releases.fetch_add(1) == 0) {
            std::thread([] {
                EXPECT_FALSE(os_check_ptr(victim));
                EXPECT_FALSE(os_free(victim)) << "freed twice at once";
                void* other = os_alloc(10, 0);
                EXPECT_TRUE(os_check_ptr(other));
                EXPECT_TRUE(os_free(other));
            }).join();
        }
        real_release(block);
    };
    void* keeper = os_alloc(1, 0);  // the record itself is not released
    EXPECT_TRUE(os_free(victim));
    vell::raw_memory = whole;
    EXPECT_EQ(releases, 1);
    EXPECT_TRUE(os_free(keeper));
}

TEST(SystemMemory, LeavesOffTheRecordWhatItHasNoRoomFor) {
    const LogCapture log;
    const vell::RawMemory whole = vell::raw_memory;
    vell::raw_memory.allocate_zeroed = [](size_t) noexcept -> void* { return nullptr; };
    void* block = os_alloc(10, 0);
    vell::raw_memory = whole;
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(log.lines(), Lines{"ERROR: Vector ensure: Not enough memory..(0 + 1 * 24)"});
    EXPECT_FALSE(os_check_ptr(block));
    a_free(block);
}

TEST(SystemMemory, LocksAndUnlocksPages) {
    const auto size = static_cast<uint64_t>(mem_pagesize());
    void* block = os_alloc(size, 1);
    EXPECT_EQ(mem_lock(block, size), 0);
    EXPECT_EQ(mem_unlock(block, size), 0);
    EXPECT_TRUE(os_free(block));
}

}  // namespace
