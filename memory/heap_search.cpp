// The search for space. Its results are those of a walk over all blocks from the lowest address on:
//
//   - The walk merges each run of free blocks when it reaches it and stops at the first that is large enough. So the
//     runs up to that one are merged, those behind are not; when none is large enough, all are.
//   - Nothing is moved or discarded when even all unlocked space together would not do.
//   - A discarded block merges with the free blocks behind it only. If that is enough it is used where it is, even
//     when free space lies right before it; otherwise the walk starts again.

#include "memory/heap_core.h"
#include "vellcore/block_memory.h"

namespace vell {
namespace {

constexpr unsigned k_front_blocks = 8;  // checked at each search

/// A stretch of unlocked blocks between locked ones.
struct UnlockedRun {
    Unit first_free = k_no_unit;
    Unit free = 0;
    Unit to_move = 0;  // used blocks; counted only while `free` is below what is needed, also those before first_free
};

/// The unlocked run to compact: more free space than needed, the least to move, the lowest of equals.
/// Kept: a run with exactly the space that is needed does not count.
class BestRun {
public:
    explicit BestRun(Unit needed) noexcept : needed_(needed) {}

    void add_free(Unit unit, Unit length) noexcept {
        if (run_.first_free == k_no_unit) run_.first_free = unit;
        run_.free += length;
    }
    void add_used(Unit length) noexcept {
        if (run_.free < needed_) run_.to_move += length;
    }
    void end_run() noexcept {
        const bool is_better = best_.first_free == k_no_unit || run_.to_move < best_.to_move;
        if (run_.free > needed_ && is_better) best_ = run_;
        run_ = UnlockedRun();
    }
    [[nodiscard]] Unit start() const noexcept { return best_.first_free; }

private:
    Unit needed_;
    UnlockedRun run_;
    UnlockedRun best_;
};

/// Where to start compacting, or k_no_unit. False at an impossible header.
bool find_best_run(const Arena& arena, Unit needed, Unit& start) noexcept {
    BestRun best(needed);
    for (Unit unit = 0; unit != arena.end();) {
        if (!arena.has_possible_size(unit)) return false;
        const BlockHeader& block = arena.header(unit);
        const Unit length = arena.units(block.size);
        if (block.is_locked())
            best.end_run();
        else if (block.is_free())
            best.add_free(unit, length);
        else
            best.add_used(length);
        unit += length;
    }
    best.end_run();
    start = best.start();
    return true;
}

}  // namespace

/// A few headers at the front are looked at in every search, so that a small heap notices overwritten headers as
/// early as a walk over all of them would. They stay in the processor's cache, so this costs next to nothing.
bool HeapCore::front_is_possible(Unit last) const noexcept {
    Unit unit = 0;
    for (unsigned i = 0; i < k_front_blocks && unit < arena_.end() && unit <= last; ++i) {
        if (!arena_.has_possible_size(unit)) return false;
        unit += arena_.units(header(unit).size);
    }
    return true;
}

bool HeapCore::merge_runs_through(Unit last) noexcept {
    for (Unit fragment = index_.next_fragment(0); fragment != k_no_unit; fragment = index_.next_fragment(fragment)) {
        const Unit run = index_.run_at(fragment);
        if (run > last) return true;
        if (!is_intact(run) || !merge_following(run)) return false;
    }
    return true;
}

HeapCore::Space HeapCore::find_space(Unit needed, bool may_move) noexcept {
    constexpr Space k_overwritten{Found::overwritten, k_no_unit};
    for (;;) {
        const Unit fit = index_.first_fit(needed);
        if (!front_is_possible(fit) || !merge_runs_through(fit)) return k_overwritten;
        if (fit != k_no_unit) return is_intact(fit) ? Space{Found::space, fit} : k_overwritten;

        if (arena_.units(index_.free_bytes() + index_.idle_bytes()) < needed) return {Found::too_little, k_no_unit};
        const Unit victim = index_.oldest_idle();
        if (victim == k_no_unit) return {Found::nothing_to_discard, k_no_unit};
        if (may_move) {
            Unit run = k_no_unit;
            if (!find_best_run(arena_, needed, run)) return k_overwritten;
            if (run != k_no_unit) return compact(run, needed);
        }
        if (!release(victim)) return k_overwritten;
        if (index_.length_of(victim) >= needed) return {Found::space, victim};
    }
}

/// Moves the blocks behind a free one down over it, one by one, until the free space that travels up is large enough.
HeapCore::Space HeapCore::compact(Unit run, Unit needed) noexcept {
    for (;;) {
        const Unit from = index_.end_of_run(run);
        if (from == arena_.end() || !index_.is_idle(from)) return {Found::nothing_to_discard, k_no_unit};
        if (!is_intact(run) || !is_intact(from)) return {Found::overwritten, k_no_unit};
        const Unit moved = index_.length_of(from);
        move_block_down(from, run);
        run += moved;
        if (!merge_following(run)) return {Found::overwritten, k_no_unit};
        if (index_.length_of(run) >= needed) return {Found::space, run};
    }
}

void HeapCore::move_block_down(Unit from, Unit run) noexcept {
    const Unit length = index_.length_of(from);
    const Unit gap = from - run;
    memcopy(arena_.address(run), arena_.address(from), arena_.bytes(length));
    // A header left behind in free space would look like a block to a pointer that still names it.
    if (gap > length) arena_.write_free_header(from, 0);
    BlockHeader& moved = header(run);
    moved.data = arena_.data(run);
    // The address and not a difference: whatever a host did to its variable meanwhile, it leads to the block again.
    if (moved.owner != nullptr) write_handle(moved.owner, moved.data);
    arena_.write_free_header(run + length, gap);
    index_.move_down(from, run);
}

}  // namespace vell
