// Names with their comparison prepared, so that sorting compares bytes instead of walking through names.
#pragma once

#include <cstdint>

#include "files/growing_array.h"

namespace vell {

struct SortKey {
    uint64_t head;             ///< the key's bytes behind what all keys share, the first one highest
    const unsigned char* key;  ///< see sort_keys.cpp
    const char* name;          ///< not the key's own
    uint64_t extension;        ///< see sort_keys.cpp
    uint32_t key_bytes;
    int32_t index;  ///< for the reader: where the name came from
};

class SortKeys {
public:
    /// Makes a key for each of `count` names, which have to stay. False when memory is short.
    [[nodiscard]] bool make(const char* (*name_at)(const void* names, int32_t index), const void* names,
                            int32_t count) noexcept;

    [[nodiscard]] GrowingArray<SortKey>& keys() noexcept { return keys_; }

private:
    void share_heads() noexcept;

    GrowingArray<SortKey> keys_;
    GrowingArray<unsigned char> bytes_;
};

/// The sign of file_namecmp of the two names.
[[nodiscard]] int file_order(const SortKey& a, const SortKey& b) noexcept;

}  // namespace vell
