// The live system allocations, found by address in constant time.
#pragma once

#include <cstdint>

#include "vellcore/heap_set.h"

namespace vell {

/// A table of records. Nothing is written to the log and no lock is taken: the owner guards it.
///
/// An address that its user freed with a_free stays on record, and the system may hand it out once more. Of two records
/// of one address the newest counts.
class AllocationRecords {
public:
    constexpr AllocationRecords() noexcept = default;
    ~AllocationRecords() { release(); }
    AllocationRecords(const AllocationRecords&) = delete;
    AllocationRecords& operator=(const AllocationRecords&) = delete;

    /// False, with nothing changed, when memory is short.
    [[nodiscard]] bool add(const spm_record& record) noexcept;
    [[nodiscard]] bool has(void* address) const noexcept { return newest(address) != nullptr; }
    /// Removes the newest record of an address. False when there is none.
    bool take(void* address, spm_record& record) noexcept;

    [[nodiscard]] uint32_t count() const noexcept { return count_; }
    /// Forgets all records and frees the table.
    void release() noexcept;

private:
    struct Entry {
        spm_record record;
        uint64_t age;  // rises with every record; 0 for a free place
    };
    [[nodiscard]] uint32_t home_of(void* address) const noexcept;
    [[nodiscard]] uint32_t after(uint32_t place) const noexcept { return (place + 1) & (places_ - 1); }
    [[nodiscard]] Entry* newest(void* address) const noexcept;
    void put(const Entry& entry) noexcept;
    void close_gap(uint32_t gap) noexcept;
    bool grow() noexcept;

    Entry* table_ = nullptr;
    uint32_t places_ = 0;  // a power of two, or 0
    uint32_t count_ = 0;
    uint64_t last_age_ = 0;
};

}  // namespace vell
