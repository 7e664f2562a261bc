// Where lists keep their names.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

/// A name's storage. Short names cost no call of the system's allocator.
struct StoredName {
    char* text;      ///< null when memory is short
    uint32_t round;  ///< which life of the pool it is from: 24 bits, changed by every flush
};

inline constexpr size_t k_pool_item_bytes = 64;

/// Copies a name into a pool item; `length` is below 64.
[[nodiscard]] StoredName store_in_pool(const char* name, size_t length) noexcept;

/// Gives a pool item back. A name from before the last flush is ignored: its memory is gone.
void give_back_to_pool(StoredName name) noexcept;

}  // namespace vell
