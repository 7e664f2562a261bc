// Random operations on a lockable heap and on the plain one: after every step the same blocks are at the same places
// in the same state, the same callbacks ran in the same order and the same lines were written.

#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "heap_log.h"
#include "memory/heap_record.h"
#include "plain_heap.h"
#include "support/random_seed.h"

namespace {

std::vector<void*> discarded;
void on_discard(void* data) {
    discarded.push_back(data);
}

struct Setup {
    int alignment;
    int mode;
    uint64_t arena_bytes;
    uint64_t largest_request;
    unsigned steps;
};
void PrintTo(const Setup& setup, std::ostream* out) {
    *out << "alignment " << setup.alignment << ", mode " << setup.mode << ", " << setup.arena_bytes << " bytes";
}

class Twins {
public:
    Twins(const Setup& setup, unsigned seed)
        : setup_(setup),
          random_(seed),
          plain_("Twins", setup.arena_bytes, static_cast<uint64_t>(setup.alignment), setup.mode),
          heap_(mheap_initialize("Twins", setup.arena_bytes, setup.alignment, setup.mode, 0)) {
        vell::as_heap(heap_).wait_ns = 0;
        vell::as_heap(heap_).compacting_rounds = 0;
    }
    ~Twins() { mheap_destroy(heap_); }

    void step() {
        const unsigned slot = pick(k_slots);
        switch (pick(20)) {
            case 0:
            case 1:
            case 2:
            case 3:
            case 4:
                return allocate(slot);
            case 5:
            case 6:
            case 7:
            case 8:
            case 9:
            case 10:
            case 11:
                return both("unlock", plain_.unlock(&plain_handle_[slot]),
                            [&] { return mheap_unlock(heap_, &handle_[slot]); });
            case 12:
                return both("lock", plain_.lock(&plain_handle_[slot]),
                            [&] { return mheap_lock(heap_, &handle_[slot]); });
            case 13:
                return both("keep", plain_.keep(&plain_handle_[slot]),
                            [&] { return mheap_keep(heap_, &handle_[slot]); });
            case 14:
            case 15:
                if (plain_handle_[slot] != nullptr && handle_[slot] != nullptr && lock_count(slot) > 0) return;
                return both("free", plain_.free(&plain_handle_[slot]),
                            [&] { return mheap_free(heap_, &handle_[slot]); });
            case 16:
                return lock_by_address();
            case 17:
            case 18:
                return unlock_by_address();
            default:
                return rare(slot);
        }
    }

    const std::string& operation() const { return operation_; }
    HeapLog log;

private:
    static constexpr unsigned k_slots = 40;

    unsigned pick(uint64_t below) { return static_cast<unsigned>(random_() % below); }
    static int64_t offset(const void* base, const void* address) {
        return address == nullptr ? -1 : static_cast<const std::byte*>(address) - static_cast<const std::byte*>(base);
    }
    uint32_t lock_count(unsigned slot) const {
        return reinterpret_cast<const PlainHeap::Block*>(static_cast<std::byte*>(handle_[slot]) - heap_->header_size)
            ->lock_count;
    }

    /// Compares result, callbacks and lines of an operation that ran on the plain heap already.
    template <class Result, class Operation>
    void both(const char* name, Result expected, Operation operation) {
        operation_ = name;
        const std::string expected_lines = log.take();
        std::vector<int64_t> expected_discards, discards;
        for (void* data : std::exchange(discarded, {}))
            expected_discards.push_back(offset(plain_.base(), data));
        msgerror("==== the heap");  // As long as the line before the plain heap's, for the sake of repeats.
        log.take();
        EXPECT_EQ(operation(), expected);
        for (void* data : std::exchange(discarded, {}))
            discards.push_back(offset(heap_->base, data));
        EXPECT_EQ(discards, expected_discards);
        EXPECT_EQ(log.take(), expected_lines);
        compare();
        msgerror("=== the plain");
        log.take();
    }

    void allocate(unsigned slot) {
        if (plain_handle_[slot] != nullptr) return;
        const uint64_t size = 1 + random_() % (pick(8) == 0 ? setup_.largest_request * 4 : setup_.largest_request);
        both("allocate", plain_.alloc_lock(size, &plain_handle_[slot]),
             [&] { return mheap_alloc_lock(heap_, size, &handle_[slot]); });
        if (handle_[slot] == nullptr || pick(2) == 0) return;
        plain_.set_discard(plain_handle_[slot], on_discard);
        EXPECT_TRUE(mheap_set_discard_callback(heap_, handle_[slot], on_discard));
    }
    void lock_by_address() {
        const uint64_t where = random_() % (plain_.total() - heap_->header_size);
        void* expected = plain_.lock_ex(plain_.base() + where);
        void* data = nullptr;
        both("lock by address", offset(plain_.base(), expected), [&] {
            data = mheap_lock_ex(heap_, static_cast<std::byte*>(heap_->base) + where);
            return offset(heap_->base, data);
        });
        if (data != nullptr) exclusive_.push_back(offset(heap_->base, data));
    }
    void unlock_by_address() {
        if (exclusive_.empty()) return;
        const unsigned which = pick(exclusive_.size());
        const int64_t data = exclusive_[which];
        exclusive_.erase(exclusive_.begin() + which);
        both("unlock by address", plain_.unlock_ex(plain_.base() + data),
             [&] { return mheap_unlock_ex(heap_, static_cast<std::byte*>(heap_->base) + data); });
    }
    void rare(unsigned slot) {
        switch (pick(40)) {
            case 0:
                return both("clear all", (plain_.clear_all(), 0), [&] { return mheap_clearall(heap_); });
            case 1:
                return both("validate", (plain_.validate(), 0), [&] { return mheap_validate(heap_); });
            case 2: {
                if (plain_.total() > 2 * setup_.arena_bytes) return;
                const uint64_t size = plain_.total() + pick(4 * heap_->header_size + 2) + heap_->alignment;
                const uint64_t rounded = size - size % heap_->alignment;
                return both("resize", (plain_.resize(size), rounded), [&] { return mheap_resize(heap_, size, 0); });
            }
            default:
                return both("keep", plain_.keep(&plain_handle_[slot]),
                            [&] { return mheap_keep(heap_, &handle_[slot]); });
        }
    }

    bool is_consistent() {
        vell::Heap& heap = vell::as_heap(heap_);
        const vell::HeapLock lock(heap);
        return vell::heap_is_consistent(heap.core);
    }
    void compare() {
        ASSERT_TRUE(is_consistent());
        auto* block = reinterpret_cast<PlainHeap::Block*>(heap_->first);
        for (PlainHeap::Block* plain = plain_.first(); plain != plain_.end(); plain = plain_.next(plain)) {
            ASSERT_EQ(offset(heap_->base, block), offset(plain_.base(), plain));
            ASSERT_EQ(uint64_t{block->size}, uint64_t{plain->size});
            ASSERT_EQ(uint64_t{block->state}, uint64_t{plain->state});
            ASSERT_EQ(uint32_t{block->lock_count}, uint32_t{plain->lock_count});
            ASSERT_EQ(uint32_t{block->exclusive_count}, uint32_t{plain->exclusive_count});
            ASSERT_EQ(uint64_t{block->stamp}, uint64_t{plain->stamp});
            ASSERT_EQ(uint32_t{block->flags}, uint32_t{plain->flags});
            ASSERT_EQ(block->discard == nullptr, plain->discard == nullptr);
            ASSERT_EQ(offset(heap_->base, block->data), offset(plain_.base(), plain->data));
            ASSERT_EQ(offset(handle_, block->owner), offset(plain_handle_, plain->owner));
            block = reinterpret_cast<PlainHeap::Block*>(reinterpret_cast<std::byte*>(block) + block->size);
        }
        ASSERT_EQ(static_cast<void*>(block), static_cast<void*>(heap_->end));
        for (unsigned slot = 0; slot < k_slots; ++slot)
            ASSERT_EQ(offset(heap_->base, handle_[slot]), offset(plain_.base(), plain_handle_[slot])) << slot;
        uint64_t free_bytes, reclaimable, plain_free, plain_reclaimable;
        EXPECT_EQ(mheap_queryspace(heap_, free_bytes, reclaimable), plain_.total());
        plain_.query(plain_free, plain_reclaimable);
        EXPECT_EQ(free_bytes, plain_free);
        EXPECT_EQ(reclaimable, plain_reclaimable);
    }

    Setup setup_;
    std::mt19937_64 random_;
    PlainHeap plain_;
    _mheap* heap_;
    void* plain_handle_[k_slots] = {};
    void* handle_[k_slots] = {};
    std::vector<int64_t> exclusive_;  // data offsets, once per lock
    std::string operation_;
};

class HeapModel : public testing::TestWithParam<Setup> {};

TEST_P(HeapModel, DoesWhatAWalkOverAllBlocksWouldDo) {
    for (unsigned round = 0; round < 6; ++round) {
        const unsigned seed = random_seed();
        Twins twins(GetParam(), seed);
        for (unsigned step = 0; step < GetParam().steps; ++step) {
            twins.step();
            ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << step << ": " << twins.operation();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Alignments, HeapModel,
                         testing::Values(Setup{4, 0, 9000, 400, 2500}, Setup{4, 1, 9000, 400, 2500},
                                         Setup{16, 0, 20000, 900, 2500}, Setup{16, 1, 20000, 900, 2500},
                                         Setup{16, 0, 300000, 30000, 2500}, Setup{16, 1, 300000, 30000, 2500},
                                         Setup{20, 0, 20000, 900, 2500}, Setup{20, 1, 20000, 900, 2500},
                                         Setup{65, 0, 20000, 900, 2500}, Setup{100, 1, 20000, 900, 2500},
                                         Setup{4096, 0, 1 << 20, 60000, 2500}, Setup{4096, 1, 1 << 20, 60000, 2500}),
                         [](const auto& setup) {
                             return "Alignment" + std::to_string(setup.param.alignment) + "Mode" +
                                    std::to_string(setup.param.mode) + "Size" + std::to_string(setup.param.arena_bytes);
                         });

}  // namespace
