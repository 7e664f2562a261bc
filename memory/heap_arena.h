// The arena of a lockable heap: headers tile the memory from the first block to the end marker.
//
//     base                                              end marker
//     [header|data........][header|data..][header|free][header][unused]
//
// Positions and lengths are counted in units, steps of the heap's alignment from the base. Nothing here takes a lock
// or writes to the log.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "vellcore/lockable_heap.h"

namespace vell {

/// A position in an arena, or a length, in steps of the alignment.
using Unit = uint64_t;
inline constexpr Unit k_no_unit = ~Unit{0};

/// mheap_mblk as it lies in the arena, where alignments that are no multiple of 8 put it at odd addresses.
struct __attribute__((packed, may_alias)) BlockHeader {
    uint64_t state;
    void** owner;
    void* data;
    uint64_t size;
    uint32_t lock_count;
    uint32_t exclusive_count;
    uint64_t stamp;
    mheap_discard_callback discard;
    uint32_t flags;
    uint32_t padding;

    [[nodiscard]] bool is_free() const noexcept { return state == 0; }
    [[nodiscard]] bool is_locked() const noexcept { return lock_count != 0 || exclusive_count != 0; }
};
static_assert(sizeof(BlockHeader) == sizeof(mheap_mblk) &&
              offsetof(BlockHeader, stamp) == offsetof(mheap_mblk, stamp) &&
              offsetof(BlockHeader, flags) == offsetof(mheap_mblk, flags));

inline constexpr uint64_t k_state_used = 1;
inline constexpr uint32_t k_release_pending = 1;  // of BlockHeader::flags

/// 64 rounded up to a multiple of the alignment; an alignment that divides 64 gets a step more.
constexpr uint64_t header_size_for(uint64_t alignment) noexcept {
    return alignment < 64 ? 64 + alignment - 64 % alignment : alignment;
}

/// Where the blocks of a heap lie. A plain value: copying it copies no memory.
class Arena {
public:
    Arena() noexcept = default;
    /// `total_bytes` is a multiple of the alignment and holds more than two headers; `end` is where the end marker is.
    Arena(void* base, uint64_t total_bytes, uint64_t alignment, Unit end) noexcept
        : base_(static_cast<std::byte*>(base)),
          alignment_(alignment),
          header_size_(header_size_for(alignment)),
          total_bytes_(total_bytes),
          end_(end),
          shift_(std::has_single_bit(alignment) ? std::countr_zero(alignment) : -1) {}

    [[nodiscard]] uint64_t header_size() const noexcept { return header_size_; }
    [[nodiscard]] uint64_t total_bytes() const noexcept { return total_bytes_; }
    [[nodiscard]] Unit end() const noexcept { return end_; }

    [[nodiscard]] uint64_t bytes(Unit units) const noexcept { return units * alignment_; }
    [[nodiscard]] Unit units(uint64_t bytes) const noexcept {
        return shift_ >= 0 ? bytes >> shift_ : bytes / alignment_;
    }
    /// Bytes rounded up to whole units; k_no_unit when the sum does not fit 64 bits.
    [[nodiscard]] Unit units_for_block(uint64_t data_bytes) const noexcept;

    [[nodiscard]] std::byte* address(Unit unit) const noexcept { return base_ + bytes(unit); }
    [[nodiscard]] BlockHeader& header(Unit unit) const noexcept {
        return *reinterpret_cast<BlockHeader*>(address(unit));
    }
    [[nodiscard]] void* data(Unit unit) const noexcept { return address(unit) + header_size_; }

    /// The unit that contains an address strictly between the base and the end marker, else k_no_unit.
    [[nodiscard]] Unit unit_containing(const void* inside) const noexcept;
    /// The unit whose header would stand right before `data`, else k_no_unit. Says nothing about what is there.
    [[nodiscard]] Unit unit_before_data(const void* data) const noexcept;

    /// False for a size that no block at `unit` can have: below a header, no multiple of the alignment, or leading
    /// past the end marker.
    [[nodiscard]] bool has_possible_size(Unit unit) const noexcept;

    /// Writes a fresh header: everything 0 but the size.
    void write_free_header(Unit unit, Unit length) const noexcept;
    void write_end_marker() const noexcept;

private:
    std::byte* base_ = nullptr;
    uint64_t alignment_ = 1;
    uint64_t header_size_ = 0;
    uint64_t total_bytes_ = 0;
    Unit end_ = 0;
    int shift_ = 0;  // log2 of the alignment; -1 when that is no power of two
};

}  // namespace vell
