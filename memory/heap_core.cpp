// Taking, releasing, finding and locking single blocks.

#include "memory/heap_core.h"

#include "platform/lock.h"

namespace vell {

void write_handle(void** handle, void* value) noexcept {
    std::atomic_ref<void*>(*handle).store(value, std::memory_order_release);
}

void* read_handle(void** handle) noexcept {
    return std::atomic_ref<void*>(*handle).load(std::memory_order_acquire);
}

bool HeapCore::create(void* base, uint64_t total_bytes, uint64_t alignment) noexcept {
    const Unit end = (total_bytes - header_size_for(alignment)) / alignment;
    const Arena arena(base, total_bytes, alignment, end);
    if (!index_.create(arena)) return false;
    arena_ = arena;
    arena_.write_free_header(0, end);
    arena_.write_end_marker();
    index_.append_free(0, end);
    index_.finish(end);
    return true;
}

bool HeapCore::is_intact(Unit unit) const noexcept {
    const BlockHeader& block = header(unit);
    return block.size == arena_.bytes(index_.length_of(unit)) && block.is_free() == index_.is_free(unit);
}

/// `unit` is known to be intact.
bool HeapCore::merge_following(Unit unit) noexcept {
    const Unit end = index_.end_of_run(unit);
    for (Unit next = index_.next_fragment(unit + 1); next < end; next = index_.next_fragment(next + 1)) {
        if (!is_intact(next)) return false;
        header(unit).size += header(next).size;
        index_.absorb(next);
    }
    return true;
}

void HeapCore::take(Unit unit, Unit needed, void** owner, uint64_t stamp) noexcept {
    BlockHeader& block = header(unit);
    const Unit length = arena_.units(block.size);
    if (block.size > arena_.bytes(needed) + arena_.header_size()) {
        arena_.write_free_header(unit + needed, length - needed);
        block.size = arena_.bytes(needed);
    } else {
        needed = length;  // What is left could not hold a block: it stays inside this one.
    }
    block.state = k_state_used;
    block.owner = owner;
    block.data = arena_.data(unit);
    block.lock_count = 1;
    block.exclusive_count = 0;
    block.stamp = stamp;
    index_.take(unit, needed);
    write_handle(owner, arena_.data(unit));
}

/// The callback may look at the heap: the block is in use until it has run.
void HeapCore::free_block(Unit unit) noexcept {
    BlockHeader& block = header(unit);
    if (block.discard != nullptr) {
        const CancelShield shield;
        block.discard(arena_.data(unit));
    }
    block.discard = nullptr;
    if (index_.is_idle(unit)) index_.leave_idle(unit);
    if (block.owner != nullptr) write_handle(block.owner, nullptr);
    block.flags = 0;
    block.state = 0;
    block.owner = nullptr;
    block.data = nullptr;
    // A count left on free space would keep it from being used for ever.
    block.lock_count = 0;
    block.exclusive_count = 0;
    index_.give_back(unit, arena_.units(block.size));
}

bool HeapCore::release(Unit unit) noexcept {
    if (!is_intact(unit)) return false;
    if (index_.is_used(unit)) free_block(unit);
    return merge_following(unit);
}

Unit HeapCore::block_with_data(const void* data) const noexcept {
    const Unit unit = is_lost_ ? k_no_unit : arena_.unit_before_data(data);
    return unit != k_no_unit && index_.is_used(unit) && header(unit).data == data ? unit : k_no_unit;
}

Unit HeapCore::block_of(void** handle) const noexcept {
    const Unit unit = block_with_data(read_handle(handle));
    return unit != k_no_unit && header(unit).owner == handle ? unit : k_no_unit;
}

Unit HeapCore::block_containing(const void* address) const noexcept {
    const Unit unit = is_lost_ ? k_no_unit : arena_.unit_containing(address);
    return unit == k_no_unit ? k_no_unit : index_.used_block_at(unit);
}

uint32_t HeapCore::add_lock(Unit unit, uint64_t stamp) noexcept {
    if (index_.is_idle(unit)) index_.leave_idle(unit);
    header(unit).stamp = stamp;
    return ++header(unit).lock_count;
}

uint32_t HeapCore::drop_lock(Unit unit, uint64_t stamp) noexcept {
    BlockHeader& block = header(unit);
    --block.lock_count;
    block.stamp = stamp;
    if (!block.is_locked()) index_.enter_idle(unit);
    return block.lock_count;
}

uint32_t HeapCore::renew(Unit unit, uint64_t stamp) noexcept {
    header(unit).stamp = stamp;
    if (index_.is_idle(unit)) index_.restamp_idle(unit);
    return header(unit).lock_count;
}

uint32_t HeapCore::add_exclusive_lock(Unit unit) noexcept {
    if (index_.is_idle(unit)) index_.leave_idle(unit);
    return ++header(unit).exclusive_count;
}

uint32_t HeapCore::drop_exclusive_lock(Unit unit) noexcept {
    BlockHeader& block = header(unit);
    --block.exclusive_count;
    if (!block.is_locked()) index_.enter_idle(unit);  // With its old stamp: it is as old as before.
    return block.exclusive_count;
}

}  // namespace vell
