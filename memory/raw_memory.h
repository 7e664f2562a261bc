// Where the memory folder gets its memory from.
#pragma once

#include <cstddef>

namespace vell {

/// The system's allocator as the memory folder calls it. A test can put refusals in its place.
struct RawMemory {
    void* (*allocate)(size_t bytes) noexcept;
    void* (*allocate_zeroed)(size_t bytes) noexcept;
    void (*release)(void* block) noexcept;       // of either
    void* (*map_zeroed)(size_t bytes) noexcept;  // whole pages, zero when first touched; null when there are none
    void (*unmap)(void* memory, size_t bytes) noexcept;
};
extern RawMemory raw_memory;

}  // namespace vell
