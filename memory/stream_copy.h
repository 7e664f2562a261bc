// Copying one share of a large block.
#pragma once

#include <cstdint>

namespace vell {

/// Copies `length` bytes between ranges that do not overlap. Long copies go past the caches, since a frame is larger
/// than they are and its destination is not read back at once.
void stream_copy(void* destination, const void* source, uint64_t length) noexcept;

}  // namespace vell
