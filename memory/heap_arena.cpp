// The pointer arithmetic of the arena.

#include "memory/heap_arena.h"

#include <cstring>

namespace vell {

Unit Arena::units_for_block(uint64_t data_bytes) const noexcept {
    const uint64_t overhead = header_size_ + alignment_ - 1;
    return data_bytes > UINT64_MAX - overhead ? k_no_unit : units(data_bytes + overhead);
}

Unit Arena::unit_containing(const void* inside) const noexcept {
    const auto position = reinterpret_cast<uintptr_t>(inside);
    const auto base = reinterpret_cast<uintptr_t>(base_);
    if (position <= base || position - base >= bytes(end_)) return k_no_unit;
    return units(position - base);
}

Unit Arena::unit_before_data(const void* data) const noexcept {
    const auto position = reinterpret_cast<uintptr_t>(data);
    const auto first_data = reinterpret_cast<uintptr_t>(base_) + header_size_;
    if (position < first_data) return k_no_unit;
    const uint64_t offset = position - first_data;
    const Unit unit = units(offset);
    return unit < end_ && bytes(unit) == offset ? unit : k_no_unit;
}

bool Arena::has_possible_size(Unit unit) const noexcept {
    const uint64_t size = header(unit).size;
    return size >= header_size_ && size <= bytes(end_ - unit) && bytes(units(size)) == size;
}

void Arena::write_free_header(Unit unit, Unit length) const noexcept {
    std::memset(address(unit), 0, sizeof(BlockHeader));
    header(unit).size = bytes(length);
}

void Arena::write_end_marker() const noexcept {
    std::memset(address(end_), 0, sizeof(BlockHeader));
}

}  // namespace vell
