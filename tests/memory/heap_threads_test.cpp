// Several threads in one heap.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "heap_log.h"
#include "memory/heap_record.h"
#include "memory/heap_set_state.h"
#include "support/random_seed.h"
#include "vellcore/heap_set.h"
#include "vellcore/lockable_heap.h"

namespace {

bool is_clock_ahead = false;

}  // namespace

/// The wall clock, as the library reads it; a test may set it an hour ahead.
extern "C" int gettimeofday(timeval* now, void*) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    now->tv_sec = real.tv_sec + (is_clock_ahead ? 3600 : 0);
    now->tv_usec = real.tv_nsec / 1000;
    return 0;
}

namespace {

constexpr int64_t k_a_minute = 60'000'000'000;

/// Waits until the log shows `text`.
void wait_for_line(HeapLog& log, const char* text) {
    for (std::string seen; seen.find(text) == std::string::npos; seen += log.take())
        std::this_thread::yield();
}

class WaitingAllocation : public testing::TestWithParam<int> {};

TEST_P(WaitingAllocation, IsWokenByAnUnlock) {
    HeapLog log;
    _mheap* heap = mheap_initialize("Wait", 1 << 16, 16, GetParam(), 0);
    vell::as_heap(heap).wait_ns = k_a_minute;  // longer than the test may take: only a signal ends the wait in time
    void *big = nullptr, *wanted = nullptr;
    ASSERT_EQ(mheap_alloc_lock(heap, 60000, &big), 1);
    int result = 0;
    std::thread waiter([&] { result = mheap_alloc_lock(heap, 50000, &wanted); });
    // Under the heap's mutex, which the waiter gives up only by waiting.
    wait_for_line(log, GetParam() == MHEAP_DISCARD ? "Waiting for free space" : "  Total : ");
    EXPECT_EQ(mheap_unlock(heap, &big), 0);
    waiter.join();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(big, nullptr);
    EXPECT_NE(wanted, nullptr);
    mheap_destroy(heap);
}
INSTANTIATE_TEST_SUITE_P(Modes, WaitingAllocation, testing::Values(MHEAP_DISCARD, MHEAP_COMPACT));

TEST(HeapThreads, AWaitDoesNotFollowTheWallClock) {
    _mheap* heap = mheap_initialize("Wait", 1 << 16, 16, MHEAP_DISCARD, 0);
    vell::as_heap(heap).wait_ns = 1'000'000;
    void *big = nullptr, *wanted = nullptr;
    ASSERT_EQ(mheap_alloc_lock(heap, 60000, &big), 1);
    is_clock_ahead = true;  // a wait until a moment of this clock would last an hour
    EXPECT_EQ(mheap_alloc_lock(heap, 50000, &wanted), -1);
    mheap_destroy(heap);
}

TEST(HeapThreads, ACancelledWaiterLeavesTheHeapUsable) {
    HeapLog log;
    _mheap* heap = mheap_initialize("Wait", 1 << 16, 16, MHEAP_COMPACT, 0);
    void* big = nullptr;
    ASSERT_EQ(mheap_alloc_lock(heap, 60000, &big), 1);
    struct Waiter {
        _mheap* heap;
        void* block = nullptr;
    } waiter{heap};
    pthread_t thread;
    pthread_create(
        &thread, nullptr,
        [](void* argument) -> void* {
            auto* self = static_cast<Waiter*>(argument);
            (void)!mheap_alloc_lock(self->heap, 50000, &self->block);
            return nullptr;
        },
        &waiter);
    wait_for_line(log, "  Total : ");
    pthread_cancel(thread);
    EXPECT_EQ(mheap_unlock(heap, &big), 0);
    pthread_join(thread, nullptr);
    EXPECT_NE(waiter.block, nullptr) << "the cancellation waited for the end of the call";
    EXPECT_EQ(mheap_unlock(heap, &waiter.block), 0);
    mheap_destroy(heap);
}

std::atomic<unsigned> discards{0};

/// The calls by handle: of one heap, or of the heap set, which finds the heap by itself.
struct Calls {
    const char* name;
    int mode;
    bool by_heap_set;
    uint64_t heap_bytes;
    size_t largest_block;  // bytes; a move of large ones takes long enough to be met by other threads
    unsigned steps;        // of each thread
};

/// Allocates, fills, unlocks and looks again; whatever is still there holds what was written.
class Owner {
public:
    Owner(_mheap* heap, const Calls& calls, unsigned seed) : heap_(heap), calls_(calls), random_(seed) {}
    Owner(const Owner&) = delete;

    void run() {
        for (unsigned i = 0; i < calls_.steps; ++i)
            step(slots_[random_() % k_slots]);
        for (Slot& slot : slots_)
            if (slot.pointer != nullptr) release(slot);
    }
    /// Nobody writes to a variable that has stopped being a handle.
    [[nodiscard]] bool old_handles_are_untouched() const {
        return std::all_of(old_handles_.begin(), old_handles_.end(),
                           [](const auto& handle) { return *handle == k_not_a_handle; });
    }
    unsigned damaged = 0;  // blocks with other bytes than were written
    unsigned wrong = 0;    // results and handles that contradict each other
    unsigned found = 0;
    unsigned moved = 0;

private:
    static constexpr unsigned k_slots = 40;  // more than the heap holds, also when one thread runs alone
    static inline void* const k_not_a_handle = &discards;
    struct Slot {
        std::unique_ptr<void*> pointer;  // the handle; the heap's to change while the block is not locked
        void* last_seen = nullptr;       // where the block was when it was unlocked
        size_t size = 0;
        unsigned char pattern = 0;
    };

    int32_t alloc(size_t size, void** handle) {
        if (!calls_.by_heap_set) return mheap_alloc_lock(heap_, size, handle);
        return mem_alloc_locked_buffer(handle, size, MEM_HEAP_IMAGE) != nullptr ? 1 : -1;
    }
    int32_t lock(void** handle) { return calls_.by_heap_set ? mem_lock_buffer(handle) : mheap_lock(heap_, handle); }
    int32_t keep(void** handle) { return calls_.by_heap_set ? mem_keep_buffer(handle) : mheap_keep(heap_, handle); }
    int32_t unlock(void** handle) {
        return calls_.by_heap_set ? mem_unlock_buffer(handle) : mheap_unlock(heap_, handle);
    }
    int32_t free(void** handle) { return calls_.by_heap_set ? mem_free_buffer(handle) : mheap_free(heap_, handle); }
    static void* current(void** handle) { return std::atomic_ref<void*>(*handle).load(std::memory_order_acquire); }

    /// Frees the block, which may have been discarded, and ends the life of its handle.
    void release(Slot& slot) {
        const int32_t result = free(slot.pointer.get());
        if (current(slot.pointer.get()) != nullptr || (result != 1 && result != -1)) ++wrong;
        *slot.pointer = k_not_a_handle;
        old_handles_.push_back(std::move(slot.pointer));
    }

    void look_again(Slot& slot) {
        void** const handle = slot.pointer.get();
        if (random_() % 3 == 0 && keep(handle) < 0 && current(handle) != nullptr) ++wrong;
        if (lock(handle) < 0) {  // discarded
            if (current(handle) != nullptr) ++wrong;
            return release(slot);
        }
        ++found;
        if (*handle != slot.last_seen) ++moved;
        slot.last_seen = *handle;
        const auto* bytes = static_cast<const unsigned char*>(*handle);
        if (!std::all_of(bytes, bytes + slot.size, [&](unsigned char byte) { return byte == slot.pattern; })) ++damaged;
        if (unlock(handle) != 0) ++wrong;
        if (random_() % 4 == 0) release(slot);
    }

    void step(Slot& slot) {
        if (slot.pointer != nullptr) return look_again(slot);
        slot.pointer = std::make_unique<void*>(nullptr);
        void** const handle = slot.pointer.get();
        slot.size = 1 + random_() % calls_.largest_block;
        slot.pattern = static_cast<unsigned char>(random_());
        if (alloc(slot.size, handle) < 0) return release(slot);
        slot.last_seen = *handle;
        std::memset(*handle, slot.pattern, slot.size);
        mheap_set_discard_callback(heap_, *handle, [](void*) { ++discards; });
        (void)mheap_is_valid(heap_, handle);
        if (unlock(handle) != 0) ++wrong;
    }

    _mheap* heap_;
    const Calls& calls_;
    std::mt19937 random_;
    Slot slots_[k_slots];
    std::vector<std::unique_ptr<void*>> old_handles_;
};

class HeapStress : public testing::TestWithParam<Calls> {};

TEST_P(HeapStress, KeepsEveryOwnersBytesAndHandles) {
    HeapLog log;
    const unsigned seed = random_seed();
    const Calls& calls = GetParam();
    _mheap* heap = mheap_initialize("Stress", calls.heap_bytes, calls.mode == MHEAP_COMPACT ? 20 : 16, calls.mode, 0);
    if (calls.by_heap_set) vell::heap_set.heaps[MEM_HEAP_IMAGE] = heap;
    std::deque<Owner> owners;
    for (unsigned i = 0; i < 4; ++i)
        owners.emplace_back(heap, calls, seed + i);
    std::atomic<bool> is_over{false};
    std::thread onlooker([&] {
        uint64_t free_bytes, reclaimable;
        while (!is_over) {
            mheap_dump(heap, "while in use");
            mheap_queryspace(heap, free_bytes, reclaimable);
            EXPECT_EQ(mheap_validate(heap), 0);
        }
    });
    std::vector<std::thread> threads;
    for (Owner& owner : owners)
        threads.emplace_back([&owner] { owner.run(); });
    for (std::thread& thread : threads)
        thread.join();
    is_over = true;
    onlooker.join();
    for (const Owner& owner : owners) {
        EXPECT_EQ(owner.damaged, 0U) << "seed " << seed;
        EXPECT_EQ(owner.wrong, 0U) << "seed " << seed;
        EXPECT_TRUE(owner.old_handles_are_untouched()) << "seed " << seed;
        EXPECT_GT(owner.found, 0U);
        EXPECT_EQ(owner.moved > 0, calls.mode == MHEAP_COMPACT);
    }
    EXPECT_GT(discards, 0U);
    uint64_t free_bytes, reclaimable;
    EXPECT_EQ(mheap_queryspace(heap, free_bytes, reclaimable), heap->total_size);
    EXPECT_EQ(free_bytes, heap->total_size - heap->header_size) << "all was given back";
    mheap_destroy(heap);
}
INSTANTIATE_TEST_SUITE_P(Kinds, HeapStress,
                         testing::Values(Calls{"Discarding", MHEAP_DISCARD, false, 40000, 3000, 3000},
                                         Calls{"Compacting", MHEAP_COMPACT, false, 40000, 3000, 3000},
                                         Calls{"CompactingByHeapSet", MHEAP_COMPACT, true, 4 << 20, 400000, 1500}),
                         [](const auto& row) { return row.param.name; });

/// What another thread does to a large buffer while it is being moved, and what that answers.
struct DuringMove {
    const char* name;
    int32_t (*operation)(void** handle);
    int32_t result;
    bool is_gone;
};

/// True while the header is as it was before the move began to write over it.
__attribute__((noinline, no_sanitize("thread"))) bool names_owner(const volatile mheap_mblk* header, void** owner) {
    return header->owner == owner;
}

class MovingBuffer : public testing::TestWithParam<DuringMove> {};

TEST_P(MovingBuffer, BelongsToItsOwnerThroughout) {
    // [front 8 MiB, free|moving 32 MiB|free 12 MiB]: 16 MiB fit only when the block in the middle moves down.
    constexpr uint64_t k_mib = 1 << 20;
    constexpr uint64_t k_headers = 3 * 4096;
    _mheap* heap = mheap_initialize("Moving", 52 * k_mib + k_headers, 4096, MHEAP_COMPACT, 0);
    vell::heap_set.heaps[MEM_HEAP_IMAGE] = heap;
    void *front = nullptr, *moving = nullptr, *wanted = nullptr;
    ASSERT_EQ(mheap_alloc_lock(heap, 8 * k_mib, &front), 1);
    ASSERT_EQ(mheap_alloc_lock(heap, 32 * k_mib, &moving), 1);
    std::memset(moving, 0x5c, 32 * k_mib);
    const void* const before = moving;
    const void* const target = front;
    mheap_unlock(heap, &front);
    mheap_unlock(heap, &moving);
    mheap_free(heap, &front);
    std::thread mover([&] { EXPECT_EQ(mheap_alloc_lock(heap, 16 * k_mib, &wanted), 1); });
    const auto* header = reinterpret_cast<const mheap_mblk*>(static_cast<const char*>(before) - heap->header_size);
    while (names_owner(header, &moving)) {
    }
    EXPECT_EQ(GetParam().operation(&moving), GetParam().result);
    const void* const afterwards = moving;
    mover.join();
    EXPECT_EQ(afterwards == nullptr, GetParam().is_gone);
    EXPECT_TRUE(afterwards == nullptr || afterwards == target || afterwards == before);
    EXPECT_EQ(moving, GetParam().is_gone ? nullptr : target);
    EXPECT_NE(wanted, nullptr);
    mheap_destroy(heap);
}
INSTANTIATE_TEST_SUITE_P(Calls, MovingBuffer,
                         testing::Values(DuringMove{"Lock", mem_lock_buffer, 1, false},
                                         DuringMove{"Keep", mem_keep_buffer, 0, false},
                                         DuringMove{"Unlock", mem_unlock_buffer, 0, false},
                                         DuringMove{"Free", mem_free_buffer, 1, true},
                                         DuringMove{"FreeLocked", mem_free_locked_buffer, 1, true}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
