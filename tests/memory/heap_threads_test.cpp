// Several threads in one heap.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "heap_log.h"
#include "memory/heap_record.h"
#include "support/random_seed.h"
#include "vellcore/lockable_heap.h"

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

/// Allocates, fills, unlocks and looks again; whatever is still there holds what was written.
class Owner {
public:
    Owner(_mheap* heap, unsigned seed) : heap_(heap), random_(seed) {}

    void run(unsigned steps) {
        while (steps-- > 0)
            step(slots_[random_() % k_slots]);
        for (Slot& slot : slots_)
            mheap_free(heap_, &slot.pointer);
    }
    unsigned damaged = 0;
    unsigned found = 0;

private:
    static constexpr unsigned k_slots = 8;
    struct Slot {
        void* pointer = nullptr;  // the heap's to change while the block is not locked
        size_t size = 0;
        unsigned char pattern = 0;
    };

    void step(Slot& slot) {
        if (mheap_lock(heap_, &slot.pointer) > 0) {
            ++found;
            const auto* bytes = static_cast<const unsigned char*>(slot.pointer);
            if (!std::all_of(bytes, bytes + slot.size, [&](unsigned char byte) { return byte == slot.pattern; }))
                ++damaged;
            mheap_unlock(heap_, &slot.pointer);
            if (random_() % 4 == 0) mheap_free(heap_, &slot.pointer);
            return;
        }
        slot.size = 1 + random_() % 3000;
        slot.pattern = static_cast<unsigned char>(random_());
        if (mheap_alloc_lock(heap_, slot.size, &slot.pointer) < 0) return;
        std::memset(slot.pointer, slot.pattern, slot.size);
        mheap_set_discard_callback(heap_, slot.pointer, [](void*) { ++discards; });
        (void)mheap_is_valid(heap_, &slot.pointer);
        mheap_unlock(heap_, &slot.pointer);
    }

    _mheap* heap_;
    std::mt19937 random_;
    Slot slots_[k_slots];
};

class HeapStress : public testing::TestWithParam<int> {};

TEST_P(HeapStress, KeepsEveryOwnersBytes) {
    HeapLog log;
    const unsigned seed = random_seed();
    _mheap* heap = mheap_initialize("Stress", 40000, GetParam() == MHEAP_COMPACT ? 20 : 16, GetParam(), 0);
    std::vector<Owner> owners;
    for (unsigned i = 0; i < 4; ++i)
        owners.emplace_back(heap, seed + i);
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
        threads.emplace_back([&owner] { owner.run(3000); });
    for (std::thread& thread : threads)
        thread.join();
    is_over = true;
    onlooker.join();
    for (const Owner& owner : owners) {
        EXPECT_EQ(owner.damaged, 0U) << "seed " << seed;
        EXPECT_GT(owner.found, 0U);
    }
    EXPECT_GT(discards, 0U);
    uint64_t free_bytes, reclaimable;
    EXPECT_EQ(mheap_queryspace(heap, free_bytes, reclaimable), heap->total_size);
    EXPECT_EQ(free_bytes, heap->total_size - heap->header_size) << "all was given back";
    mheap_destroy(heap);
}
INSTANTIATE_TEST_SUITE_P(Modes, HeapStress, testing::Values(MHEAP_DISCARD, MHEAP_COMPACT));

}  // namespace
