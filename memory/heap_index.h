// The index beside a heap's arena. It answers in a handful of steps what a walk over all headers would:
//
//     the lowest stretch of free space of a given length      which block contains an address
//     the unlocked block that was used the longest ago        how much is free, how much could be
//
// The arena is divided into cells of 64 units. A cell has one bit per unit and kind of block that starts there:
//
//     used       a block in use
//     idle       a used block with both lock counts 0 (also marked used)
//     run        a free block behind a used one or at the base: the start of a maximal run of free space
//     fragment   any other free block of a run, free but not merged into the block before it yet
//
// Every block is used, run or fragment. Above the cells stand, each covering the whole arena, sets of the cells that
// hold a kind, a tournament over the longest run that starts in each cell, and one over the oldest idle block in each.
// The shape is fixed by the arena's size: one allocation when the heap is made and none afterwards, so no operation
// can run out of memory, and parts of the arena that are not used cost no index memory.
//
// The index takes blocks' lengths from its own bits, never from headers, which a host may have overwritten; only
// the stamps of idle blocks are read there. No lock of its own: the heap's mutex guards it. The two totals may be read
// without.
#pragma once

#include <atomic>
#include <bit>
#include <cstdint>

#include "memory/heap_arena.h"
#include "memory/heap_cell_set.h"
#include "memory/heap_max_tree.h"

namespace vell {

class HeapIndex {
public:
    HeapIndex() noexcept = default;
    ~HeapIndex() { release(); }
    HeapIndex(const HeapIndex&) = delete;
    HeapIndex& operator=(const HeapIndex&) = delete;

    /// Gets memory for an arena and knows no block yet. False when memory is short.
    [[nodiscard]] bool create(const Arena& arena) noexcept;
    void release() noexcept;
    /// Takes over what `other` knows.
    void swap(HeapIndex& other) noexcept;

    // Questions. Units passed in are starts of blocks unless it is said otherwise.
    [[nodiscard]] bool is_used(Unit unit) const noexcept { return has(k_used, unit); }
    [[nodiscard]] bool is_idle(Unit unit) const noexcept { return has(k_idle, unit); }
    [[nodiscard]] bool is_free(Unit unit) const noexcept { return has(k_run, unit) || has(k_fragment, unit); }
    [[nodiscard]] bool is_fragment(Unit unit) const noexcept { return has(k_fragment, unit); }
    /// The used block that contains any unit, or k_no_unit.
    [[nodiscard]] Unit used_block_at(Unit unit) const noexcept;
    /// The run that contains any free unit.
    [[nodiscard]] Unit run_at(Unit unit) const noexcept { return previous(k_run, unit); }
    /// The first unit behind the run that contains `unit`.
    [[nodiscard]] Unit end_of_run(Unit unit) const noexcept { return next(k_used, unit); }
    /// The first unmerged block from any unit on, or k_no_unit.
    [[nodiscard]] Unit next_fragment(Unit unit) const noexcept {
        return fragments_ == 0 ? k_no_unit : next(k_fragment, unit);
    }
    [[nodiscard]] Unit length_of(Unit unit) const noexcept;

    /// The lowest run of at least `length` units, or k_no_unit.
    [[nodiscard]] Unit first_fit(Unit length) const noexcept;
    /// The idle block with the smallest stamp, or k_no_unit.
    [[nodiscard]] Unit oldest_idle() const noexcept;

    [[nodiscard]] uint64_t free_bytes() const noexcept { return free_bytes_.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t idle_bytes() const noexcept { return idle_bytes_.load(std::memory_order_relaxed); }

    // Changes. The headers are written first.
    /// A block is where nothing was known, behind everything that is known.
    void append_free(Unit unit, Unit length) noexcept;
    void append_used(Unit unit, bool is_idle) noexcept;
    /// The end marker is at `unit`, behind everything else.
    void finish(Unit unit) noexcept;
    /// The free block at `unit` and all that follows it in its run becomes a used, locked block of `length` units and
    /// a new run with what remains.
    void take(Unit unit, Unit length) noexcept;
    /// A used block of `length` units that is not idle became a free one.
    void give_back(Unit unit, Unit length) noexcept;
    /// A fragment was merged into the block before it.
    void absorb(Unit fragment) noexcept { erase_fragment(fragment); }
    /// A used block's lock counts became 0; an idle block's stamp changed; an idle block is about to be locked or
    /// given back. Lengths come from the block's header: they count for the total only.
    void enter_idle(Unit unit) noexcept;
    void restamp_idle(Unit unit) noexcept { refresh_oldest(unit / k_cell); }
    void leave_idle(Unit unit) noexcept;
    /// The idle block at `from` moved down to the run of one block right before it. The free block of the run's length
    /// that is now behind it may have fragments behind it.
    void move_down(Unit from, Unit run) noexcept;

private:
    friend class HeapChecker;

    static constexpr uint64_t k_cell = 64;  // units
    enum Kind : unsigned { k_used, k_run, k_fragment, k_idle };
    static constexpr unsigned k_neighbour_kinds = 3;  // kinds that are looked up by neighbourhood: all but idle

    struct Cell {
        uint64_t starts[4];  // by Kind, one bit per unit
    };

    static uint64_t bit(Unit unit) noexcept { return uint64_t{1} << (unit % k_cell); }
    [[nodiscard]] bool has(Kind kind, Unit unit) const noexcept {
        return (cells_[unit / k_cell].starts[kind] & bit(unit)) != 0;
    }
    void insert(Kind kind, Unit unit) noexcept;
    void insert_fragment(Unit unit) noexcept {
        ++fragments_;
        insert(k_fragment, unit);
    }
    void erase_fragment(Unit unit) noexcept {
        --fragments_;
        erase(k_fragment, unit);
    }
    void insert_free(Unit unit, bool starts_run) noexcept { starts_run ? insert(k_run, unit) : insert_fragment(unit); }
    void erase(Kind kind, Unit unit) noexcept;
    /// The nearest start of a kind from `unit` on, and down from it. Mostly it is in the same cell.
    [[nodiscard]] Unit next(Kind kind, Unit unit) const noexcept {
        const uint64_t rest = cells_[unit / k_cell].starts[kind] >> (unit % k_cell);
        return rest != 0 ? unit + static_cast<Unit>(std::countr_zero(rest)) : next_beyond(kind, unit / k_cell);
    }
    [[nodiscard]] Unit previous(Kind kind, Unit unit) const noexcept {
        const uint64_t rest = cells_[unit / k_cell].starts[kind] << (k_cell - 1 - unit % k_cell);
        return rest != 0 ? unit - static_cast<Unit>(std::countl_zero(rest)) : previous_beyond(kind, unit / k_cell);
    }
    [[nodiscard]] Unit next_beyond(Kind kind, uint64_t cell) const noexcept;
    [[nodiscard]] Unit previous_beyond(Kind kind, uint64_t cell) const noexcept;

    [[nodiscard]] Unit length_of_run(Unit run) const noexcept { return end_of_run(run) - run; }
    [[nodiscard]] Unit run_ending_at(Unit unit) const noexcept;
    void make_fragment_of_run_at(Unit unit) noexcept;
    [[nodiscard]] uint64_t longest_run_in(uint64_t cell) const noexcept;
    [[nodiscard]] uint64_t oldest_age_in(uint64_t cell) const noexcept;
    void refresh_longest(uint64_t cell) noexcept { longest_run_.set(cell, longest_run_in(cell)); }
    void refresh_oldest(uint64_t cell) noexcept { oldest_idle_.set(cell, oldest_age_in(cell)); }
    void add_free(int64_t units) noexcept;

    Arena arena_;
    void* memory_ = nullptr;  // one allocation behind all of the following
    Cell* cells_ = nullptr;
    uint64_t cell_count_ = 0;
    uint64_t fragments_ = 0;                 // mostly none
    CellSet cells_with_[k_neighbour_kinds];  // by Kind
    MaxTree longest_run_;                    // by cell, units; 0 = no run starts there
    MaxTree oldest_idle_;                    // by cell, ~stamp: larger is older; 0 = no idle block starts there
    std::atomic<uint64_t> free_bytes_{0};
    std::atomic<uint64_t> idle_bytes_{0};
};

}  // namespace vell
