// The operations that go over all blocks of a heap: releasing what is unlocked, checking, moving to a larger arena.

#include <cstring>

#include "memory/heap_core.h"

namespace vell {

bool HeapCore::release_unlocked() noexcept {
    for (Unit unit = 0; unit != arena_.end();) {
        if (!is_intact(unit)) return false;
        const Unit length = index_.length_of(unit);
        if (index_.is_idle(unit)) free_block(unit);
        if (index_.is_fragment(unit)) {
            header(index_.run_at(unit)).size += arena_.bytes(length);
            index_.absorb(unit);
        }
        unit += length;
    }
    return true;
}

HeapCore::Soundness HeapCore::check_and_merge() noexcept {
    for (Unit unit = 0; unit != arena_.end();) {
        if (header(unit).size == 0) return Soundness::zero_size;
        if (!is_intact(unit)) return Soundness::overwritten;
        const Unit length = index_.length_of(unit);
        if (index_.is_fragment(unit)) {
            header(index_.run_at(unit)).size += arena_.bytes(length);
            index_.absorb(unit);
        }
        unit += length;
    }
    return Soundness::sound;
}

HeapCore::Growth HeapCore::move_to(void* base, uint64_t total_bytes) noexcept {
    for (Unit unit = 0; unit != arena_.end(); unit += index_.length_of(unit))
        if (!is_intact(unit)) return Growth::overwritten;

    // Kept: one header's worth of the added space stays unused behind the end marker. Less than two headers would
    // leave no room for a block, so then all of it stays unused.
    const uint64_t growth = total_bytes - arena_.total_bytes();
    const Unit added = growth < 2 * arena_.header_size() ? 0 : arena_.units(growth - arena_.header_size());
    const Arena grown(base, total_bytes, arena_.bytes(1), arena_.end() + added);
    HeapIndex index;
    if (!index.create(grown)) return Growth::no_memory;

    std::memcpy(base, arena_.address(0), arena_.total_bytes());
    rebase_into(grown, index);
    if (added != 0) {
        grown.write_free_header(arena_.end(), added);
        grown.write_end_marker();
        index.append_free(arena_.end(), added);
    }
    index.finish(grown.end());
    index_.swap(index);
    arena_ = grown;
    return Growth::done;
}

void HeapCore::rebase_into(const Arena& grown, HeapIndex& index) const noexcept {
    for (Unit unit = 0; unit != arena_.end(); unit += index_.length_of(unit)) {
        const Unit length = index_.length_of(unit);
        if (index_.is_free(unit)) {
            index.append_free(unit, length);
            continue;
        }
        BlockHeader& block = grown.header(unit);
        block.data = grown.data(unit);
        if (block.owner != nullptr) write_handle(block.owner, block.data);
        index.append_used(unit, index_.is_idle(unit));
    }
}

}  // namespace vell
