// The consistency walk: every header and every bit of the index, compared with each other. Reads only. And what is said
// when a header was overwritten.

#include <algorithm>
#include <bit>
#include <csignal>

#include "memory/heap_record.h"
#include "vellcore/message_log.h"

namespace vell {

class HeapChecker {
public:
    explicit HeapChecker(const HeapCore& core) noexcept : core_(core), index_(core.index_), arena_(core.arena_) {}

    [[nodiscard]] bool passes() noexcept {
        for (Unit unit = 0; unit != arena_.end(); unit += length_) {
            if (!arena_.has_possible_size(unit)) return false;
            length_ = arena_.units(core_.header(unit).size);
            if (!block_passes(unit)) return false;
        }
        return index_.free_bytes() == free_bytes_ && index_.idle_bytes() == idle_bytes_ && cells_pass() &&
               index_.longest_run_.max() == longest_run_;
    }

    [[nodiscard]] bool is_small() const noexcept { return index_.cell_count_ <= k_small_cells; }

private:
    static constexpr uint64_t k_small_cells = 256;

    bool block_passes(Unit unit) noexcept {
        const BlockHeader& block = core_.header(unit);
        const bool follows_free = run_ != k_no_unit;
        if (!block.is_free()) {
            run_ = k_no_unit;
            ++starts_;
            const bool is_idle = !block.is_locked();
            if (is_idle) {
                idle_bytes_ += block.size;
                ++starts_;
            }
            return has_kinds(unit, /*used=*/true, /*run=*/false, /*fragment=*/false, is_idle) &&
                   block.data == arena_.data(unit);
        }
        if (!follows_free) run_ = unit;
        free_bytes_ += block.size;
        longest_run_ = std::max(longest_run_, unit + length_ - run_);
        ++starts_;
        return has_kinds(unit, /*used=*/false, !follows_free, follows_free, /*idle=*/false) && !block.is_locked() &&
               block.owner == nullptr && block.data == nullptr && block.discard == nullptr;
    }

    [[nodiscard]] bool has_kinds(Unit unit, bool used, bool run, bool fragment, bool idle) const noexcept {
        return index_.has(HeapIndex::k_used, unit) == used && index_.has(HeapIndex::k_run, unit) == run &&
               index_.has(HeapIndex::k_fragment, unit) == fragment && index_.has(HeapIndex::k_idle, unit) == idle;
    }

    /// No bit that no block stands for, and everything above the cells is as the cells say.
    [[nodiscard]] bool cells_pass() const noexcept {
        uint64_t bits = 0;
        for (uint64_t cell = 0; cell < index_.cell_count_; ++cell) {
            for (const uint64_t starts : index_.cells_[cell].starts)
                bits += static_cast<uint64_t>(std::popcount(starts));
            for (unsigned kind = 0; kind < HeapIndex::k_neighbour_kinds; ++kind)
                if (index_.cells_with_[kind].contains(cell) != (index_.cells_[cell].starts[kind] != 0)) return false;
            if (index_.longest_run_.get(cell) != index_.longest_run_in(cell)) return false;
            if (index_.oldest_idle_.get(cell) != index_.oldest_age_in(cell)) return false;
        }
        return bits == starts_ + 1;  // The end marker counts as used.
    }

    const HeapCore& core_;
    const HeapIndex& index_;
    const Arena& arena_;
    Unit length_ = 0;       // of the block at hand
    Unit run_ = k_no_unit;  // that the block before belongs to
    uint64_t starts_ = 0;   // bits that the blocks so far stand for
    uint64_t free_bytes_ = 0;
    uint64_t idle_bytes_ = 0;
    Unit longest_run_ = 0;
};

void report_overwritten(const Heap& heap) noexcept {
    msgerror("HEAP '%.32s' CORRUPTED: Illegal (0 size) block detected...", heap.name);
    std::raise(SIGSEGV);
}

bool heap_is_consistent(const HeapCore& core) noexcept {
    return HeapChecker(core).passes();
}

#if defined(VELLCORE_CHECKED)
void check_heap(const Heap& heap) noexcept {
    HeapChecker checker(heap.core);
    if (checker.is_small() && !checker.passes()) report_overwritten(heap);
}
#else
void check_heap(const Heap&) noexcept {}
#endif

}  // namespace vell
