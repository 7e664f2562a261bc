// The index beside a heap's arena.

#include "memory/heap_index.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "memory/raw_memory.h"

namespace vell {
namespace {

constexpr uint64_t k_cache_line = 64;  // bytes

uint64_t lowest_bit(uint64_t word) noexcept {
    return static_cast<uint64_t>(std::countr_zero(word));
}

}  // namespace

bool HeapIndex::create(const Arena& arena) noexcept {
    // One more than the end marker's, always empty: looking on from the last unit of a cell needs no test.
    const uint64_t cells = arena.end() / k_cell + 2;
    const uint64_t set_words = CellSet::words_for(cells);
    const uint64_t tree_words = MaxTree::words_for(cells);
    const uint64_t words = cells * (sizeof(Cell) / 8) + 2 * tree_words + k_neighbour_kinds * set_words;
    memory_ = raw_memory.allocate_zeroed(words * 8 + k_cache_line);
    if (memory_ == nullptr) return false;

    // The cells and the trees' groups of eight lie on cache lines.
    const auto start = (reinterpret_cast<uintptr_t>(memory_) + k_cache_line - 1) / k_cache_line * k_cache_line;
    auto* word = reinterpret_cast<uint64_t*>(start);
    longest_run_.attach(word, cells);
    oldest_idle_.attach(word + tree_words, cells);
    cells_ = reinterpret_cast<Cell*>(word + 2 * tree_words);
    word = reinterpret_cast<uint64_t*>(cells_ + cells);
    for (CellSet& set : cells_with_) {
        set.attach(word, cells);
        word += set_words;
    }
    arena_ = arena;
    cell_count_ = cells;
    return true;
}

void HeapIndex::release() noexcept {
    if (memory_ != nullptr) raw_memory.release(memory_);
    memory_ = nullptr;
}

void HeapIndex::swap(HeapIndex& other) noexcept {
    std::swap(arena_, other.arena_);
    std::swap(memory_, other.memory_);
    std::swap(cells_, other.cells_);
    std::swap(cell_count_, other.cell_count_);
    std::swap(fragments_, other.fragments_);
    std::swap(cells_with_, other.cells_with_);
    std::swap(longest_run_, other.longest_run_);
    std::swap(oldest_idle_, other.oldest_idle_);
    free_bytes_.store(other.free_bytes_.exchange(free_bytes()));
    idle_bytes_.store(other.idle_bytes_.exchange(idle_bytes()));
}

// --- Bits -------------------------------------------------------------------------------------------------------

void HeapIndex::insert(Kind kind, Unit unit) noexcept {
    uint64_t& starts = cells_[unit / k_cell].starts[kind];
    if (starts == 0 && kind != k_idle) cells_with_[kind].insert(unit / k_cell);
    starts |= bit(unit);
}

void HeapIndex::erase(Kind kind, Unit unit) noexcept {
    uint64_t& starts = cells_[unit / k_cell].starts[kind];
    starts &= ~bit(unit);
    if (starts == 0 && kind != k_idle) cells_with_[kind].erase(unit / k_cell);
}

Unit HeapIndex::next_beyond(Kind kind, uint64_t cell) const noexcept {
    // The cell after it first: blocks are rarely far apart.
    if (++cell == cell_count_) return k_no_unit;
    if (cells_[cell].starts[kind] == 0) cell = cells_with_[kind].next(cell);
    return cell == CellSet::k_none ? k_no_unit : cell * k_cell + lowest_bit(cells_[cell].starts[kind]);
}

Unit HeapIndex::previous_beyond(Kind kind, uint64_t cell) const noexcept {
    if (cell-- == 0) return k_no_unit;
    if (cells_[cell].starts[kind] == 0) cell = cells_with_[kind].previous(cell);
    if (cell == CellSet::k_none) return k_no_unit;
    return cell * k_cell + k_cell - 1 - static_cast<uint64_t>(std::countl_zero(cells_[cell].starts[kind]));
}

// --- Questions --------------------------------------------------------------------------------------------------

Unit HeapIndex::used_block_at(Unit unit) const noexcept {
    const Unit used = previous(k_used, unit);
    if (used == k_no_unit) return k_no_unit;
    // Free space behind a used block begins with a run.
    const Unit run = previous(k_run, unit);
    return run == k_no_unit || run < used ? used : k_no_unit;
}

Unit HeapIndex::length_of(Unit unit) const noexcept {
    const Unit free_behind = is_used(unit) ? next(k_run, unit + 1) : next_fragment(unit + 1);
    return std::min(next(k_used, unit + 1), free_behind) - unit;
}

Unit HeapIndex::run_ending_at(Unit unit) const noexcept {
    if (unit == 0) return k_no_unit;
    const Unit used = previous(k_used, unit - 1);
    const Unit run = previous(k_run, unit - 1);
    return run != k_no_unit && (used == k_no_unit || used < run) ? run : k_no_unit;
}

Unit HeapIndex::first_fit(Unit length) const noexcept {
    const uint64_t cell = longest_run_.first_at_least(length);
    if (cell == MaxTree::k_none) return k_no_unit;
    // The last of them is as long as the tournament says when no other is.
    uint64_t runs = cells_[cell].starts[k_run];
    Unit run = cell * k_cell + lowest_bit(runs);
    while ((runs &= runs - 1) != 0 && length_of_run(run) < length)
        run = cell * k_cell + lowest_bit(runs);
    return run;
}

Unit HeapIndex::oldest_idle() const noexcept {
    const uint64_t oldest_age = oldest_idle_.max();
    if (oldest_age == 0) return k_no_unit;
    const uint64_t cell = oldest_idle_.first_at_least(oldest_age);
    Unit oldest = k_no_unit;
    for (uint64_t idle = cells_[cell].starts[k_idle]; idle != 0; idle &= idle - 1) {
        const Unit unit = cell * k_cell + lowest_bit(idle);
        if (oldest == k_no_unit || arena_.header(unit).stamp < arena_.header(oldest).stamp) oldest = unit;
    }
    return oldest;
}

uint64_t HeapIndex::longest_run_in(uint64_t cell) const noexcept {
    uint64_t longest = 0;
    for (uint64_t runs = cells_[cell].starts[k_run]; runs != 0; runs &= runs - 1)
        longest = std::max(longest, length_of_run(cell * k_cell + lowest_bit(runs)));
    return longest;
}

uint64_t HeapIndex::oldest_age_in(uint64_t cell) const noexcept {
    uint64_t oldest_age = 0;
    for (uint64_t idle = cells_[cell].starts[k_idle]; idle != 0; idle &= idle - 1)
        oldest_age = std::max(oldest_age, ~arena_.header(cell * k_cell + lowest_bit(idle)).stamp);
    return oldest_age;
}

// --- Changes ----------------------------------------------------------------------------------------------------

void HeapIndex::add_free(int64_t units) noexcept {
    // Written under the heap's mutex only, so that load and store need not be one step.
    free_bytes_.store(free_bytes() + arena_.bytes(static_cast<uint64_t>(units)), std::memory_order_relaxed);
}

void HeapIndex::append_free(Unit unit, Unit length) noexcept {
    insert_free(unit, run_ending_at(unit) == k_no_unit);
    add_free(static_cast<int64_t>(length));
}

void HeapIndex::append_used(Unit unit, bool is_idle) noexcept {
    insert(k_used, unit);
    if (is_idle) enter_idle(unit);
}

void HeapIndex::finish(Unit unit) noexcept {
    insert(k_used, unit);  // A run ends here as at any used block.
    for (Unit run = next(k_run, 0); run != k_no_unit; run = next(k_run, (run / k_cell + 1) * k_cell))
        refresh_longest(run / k_cell);
}

void HeapIndex::take(Unit unit, Unit length) noexcept {
    const Unit end = end_of_run(unit);
    const Unit rest = unit + length;
    if (has(k_run, unit)) {
        erase(k_run, unit);
        insert(k_used, unit);
    } else {
        const Unit run = run_at(unit);
        erase_fragment(unit);
        insert(k_used, unit);
        refresh_longest(run / k_cell);
    }
    if (rest < end) {
        insert(k_run, rest);
        if (rest / k_cell != unit / k_cell) refresh_longest(rest / k_cell);
    }
    refresh_longest(unit / k_cell);
    add_free(-static_cast<int64_t>(length));
}

void HeapIndex::make_fragment_of_run_at(Unit unit) noexcept {
    if (!has(k_run, unit)) return;
    erase(k_run, unit);
    insert_fragment(unit);
}

void HeapIndex::give_back(Unit unit, Unit length) noexcept {
    const Unit run_before = run_ending_at(unit);
    const Unit behind = unit + length;
    erase(k_used, unit);
    insert_free(unit, run_before == k_no_unit);
    make_fragment_of_run_at(behind);
    const Unit run = run_before == k_no_unit ? unit : run_before;
    if (behind / k_cell != run / k_cell) refresh_longest(behind / k_cell);
    refresh_longest(run / k_cell);
    add_free(static_cast<int64_t>(length));
}

void HeapIndex::enter_idle(Unit unit) noexcept {
    insert(k_idle, unit);
    refresh_oldest(unit / k_cell);
    idle_bytes_.store(idle_bytes() + arena_.header(unit).size, std::memory_order_relaxed);
}

void HeapIndex::leave_idle(Unit unit) noexcept {
    erase(k_idle, unit);
    refresh_oldest(unit / k_cell);
    idle_bytes_.store(idle_bytes() - arena_.header(unit).size, std::memory_order_relaxed);
}

void HeapIndex::move_down(Unit from, Unit run) noexcept {
    const Unit length = length_of(from);
    const Unit behind = from + length;
    const Unit rest = run + length;
    erase(k_idle, from);
    erase(k_used, from);
    erase(k_run, run);
    insert(k_used, run);
    insert(k_idle, run);
    make_fragment_of_run_at(behind);
    insert(k_run, rest);
    for (const Unit changed : {run, from, rest, behind}) {
        refresh_longest(changed / k_cell);
        refresh_oldest(changed / k_cell);
    }
}

}  // namespace vell
