// The blocks of a lockable heap: arena and index together, without lock and without log. The heap's mutex guards it.
//
// A block is named by the unit that its header starts at. What the index knows is the truth; a header that says
// something else was overwritten by a host, and the operation that meets it answers so and stops.
#pragma once

#include "memory/heap_arena.h"
#include "memory/heap_index.h"

namespace vell {

/// Write and read a pointer variable that belongs to a host, who may be looking at it without the heap's mutex. A
/// write is the heap's last access before the owner can see that the block is gone, so it releases and a read acquires:
/// an owner who finds null may end the variable's life.
void write_handle(void** handle, void* value) noexcept;
[[nodiscard]] void* read_handle(void** handle) noexcept;

class HeapCore {
public:
    /// How a search ended.
    enum class Found {
        space,
        too_little,          // even with every unlocked block gone
        nothing_to_discard,  // free space would do, but in pieces
        overwritten          // a header was found overwritten
    };
    struct Space {
        Found found;
        Unit unit;  // of a free block that is large enough
    };
    enum class Soundness { sound, zero_size, overwritten };
    enum class Growth { done, no_memory, overwritten };

    /// Lays out one free block and the end marker. False when memory is short.
    [[nodiscard]] bool create(void* base, uint64_t total_bytes, uint64_t alignment) noexcept;

    /// Gives up a heap that was copied while another thread changed it: no block is found in it any more.
    void lose() noexcept { is_lost_ = true; }
    [[nodiscard]] bool is_lost() const noexcept { return is_lost_; }

    [[nodiscard]] const Arena& arena() const noexcept { return arena_; }
    [[nodiscard]] const HeapIndex& index() const noexcept { return index_; }
    [[nodiscard]] BlockHeader& header(Unit unit) const noexcept { return arena_.header(unit); }

    /// Room for a block of `needed` units, in this order: the lowest stretch of free space; when `may_move`, unlocked
    /// blocks moved together; the least recently used unlocked block discarded, and again from the start.
    [[nodiscard]] Space find_space(Unit needed, bool may_move) noexcept;
    /// Makes the free block that find_space answered a used one, locked once; what is left over becomes free space.
    void take(Unit unit, Unit needed, void** owner, uint64_t stamp) noexcept;

    /// Runs the callback, nulls the owner's pointer, frees the block and merges the free blocks behind it. A free
    /// block is only merged. False, with nothing done, when a header was overwritten.
    [[nodiscard]] bool release(Unit unit) noexcept;

    /// Releases what is unlocked, in address order. False at the first overwritten header.
    [[nodiscard]] bool release_unlocked() noexcept;
    /// Compares every header with the index and merges what is free.
    [[nodiscard]] Soundness check_and_merge() noexcept;
    /// Copies everything into a larger arena and rebases all owners.
    [[nodiscard]] Growth move_to(void* base, uint64_t total_bytes) noexcept;

    /// The used block whose data is at `data`; the one that `handle` owns and points to; the one that contains
    /// `address`, data or header. Or k_no_unit.
    [[nodiscard]] Unit block_with_data(const void* data) const noexcept;
    [[nodiscard]] Unit block_of(void** handle) const noexcept;
    [[nodiscard]] Unit block_containing(const void* address) const noexcept;

    // Lock counts and stamps of used blocks. Each answers the count that it changed, or would have.
    uint32_t add_lock(Unit unit, uint64_t stamp) noexcept;
    uint32_t drop_lock(Unit unit, uint64_t stamp) noexcept;
    uint32_t renew(Unit unit, uint64_t stamp) noexcept;
    uint32_t add_exclusive_lock(Unit unit) noexcept;
    uint32_t drop_exclusive_lock(Unit unit) noexcept;

private:
    friend class HeapChecker;

    [[nodiscard]] bool is_intact(Unit unit) const noexcept;
    [[nodiscard]] bool front_is_possible(Unit last) const noexcept;
    [[nodiscard]] bool merge_following(Unit unit) noexcept;
    [[nodiscard]] bool merge_runs_through(Unit last) noexcept;
    [[nodiscard]] Space compact(Unit run, Unit needed) noexcept;
    void move_block_down(Unit from, Unit run) noexcept;
    void free_block(Unit unit) noexcept;
    void rebase_into(const Arena& grown, HeapIndex& index) const noexcept;

    Arena arena_;
    HeapIndex index_;
    bool is_lost_ = false;
};

}  // namespace vell
