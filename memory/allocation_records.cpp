// Open addressing with linear probing, at most three quarters full. A removal moves later entries of its run back, so
// that runs hold no gaps and need no marks: Knuth, The Art of Computer Programming, volume 3, 6.4, algorithm R.

#include "memory/allocation_records.h"

#include <bit>

#include "memory/raw_memory.h"

namespace vell {
namespace {

constexpr uint32_t k_first_places = 32;
constexpr uint32_t k_max_places = uint32_t{1} << 31;

}  // namespace

uint32_t AllocationRecords::home_of(void* address) const noexcept {
    // Allocations are multiples of 65536. The multiplier is 2^64 over the golden ratio: steps of one distance, which
    // consecutive allocations take, spread over the whole table (Knuth, same chapter).
    const uint64_t spread = (reinterpret_cast<uintptr_t>(address) >> 16) * 0x9E3779B97F4A7C15U;
    return static_cast<uint32_t>(spread >> (64 - std::countr_zero(places_)));
}

AllocationRecords::Entry* AllocationRecords::newest(void* address) const noexcept {
    if (places_ == 0) return nullptr;
    Entry* found = nullptr;
    for (uint32_t place = home_of(address); table_[place].age != 0; place = after(place)) {
        Entry& entry = table_[place];
        if (entry.record.address == address && (found == nullptr || entry.age > found->age)) found = &entry;
    }
    return found;
}

void AllocationRecords::put(const Entry& entry) noexcept {
    uint32_t place = home_of(entry.record.address);
    while (table_[place].age != 0)
        place = after(place);
    table_[place] = entry;
}

bool AllocationRecords::grow() noexcept {
    if (places_ >= k_max_places) return false;
    const uint32_t old_places = places_;
    const uint32_t new_places = old_places != 0 ? old_places * 2 : k_first_places;
    auto* grown = static_cast<Entry*>(raw_memory.allocate_zeroed(size_t{new_places} * sizeof(Entry)));
    if (grown == nullptr) return false;
    Entry* old = table_;
    table_ = grown;
    places_ = new_places;
    for (uint32_t place = 0; place < old_places; ++place)
        if (old[place].age != 0) put(old[place]);
    raw_memory.release(old);
    return true;
}

bool AllocationRecords::add(const spm_record& record) noexcept {
    const bool is_full = uint64_t{count_} * 4 >= uint64_t{places_} * 3;
    if (is_full && !grow()) return false;
    put({record, ++last_age_});
    ++count_;
    return true;
}

/// Fills a free place with the next entry of its run that would not be found across it, and the place of that entry in
/// turn.
void AllocationRecords::close_gap(uint32_t gap) noexcept {
    for (uint32_t place = after(gap); table_[place].age != 0; place = after(place)) {
        const uint32_t home = home_of(table_[place].record.address);
        const bool is_home_after_gap = ((place - home) & (places_ - 1)) < ((place - gap) & (places_ - 1));
        if (is_home_after_gap) continue;
        table_[gap] = table_[place];
        gap = place;
    }
    table_[gap] = {};
}

bool AllocationRecords::take(void* address, spm_record& record) noexcept {
    Entry* found = newest(address);
    if (found == nullptr) return false;
    record = found->record;
    close_gap(static_cast<uint32_t>(found - table_));
    --count_;
    return true;
}

void AllocationRecords::release() noexcept {
    raw_memory.release(table_);
    table_ = nullptr;
    places_ = count_ = 0;
}

}  // namespace vell
