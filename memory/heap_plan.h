// How large the four named heaps are: arithmetic only, nothing is allocated and nothing is read.
#pragma once

#include <cstdint>

namespace vell {

/// Of the four heaps, bytes.
struct HeapSizes {
    uint64_t frame = 0;
    uint64_t proxy = 0;
    uint64_t audio = 0;
    uint64_t image = 0;
};

/// What the heaps get on a machine with `available` bytes to plan on, where one block is at most `max_block` bytes
/// (0 = not known).
/// Kept: below 576 MiB of available memory the frame heap's size wraps to nearly 2^64; it is halved until it can be
/// had.
[[nodiscard]] HeapSizes default_heap_sizes(uint64_t available, uint64_t max_block) noexcept;

/// Applies a line of memory.cfg, such as "frame_heap_size=1024" (MiB). False for a line that sets nothing.
bool apply_config_line(const char* line, HeapSizes& sizes) noexcept;

/// Every size at least what the heap needs to be of use.
[[nodiscard]] HeapSizes with_minimums(HeapSizes sizes) noexcept;

/// What a heap is made with when its planned size cannot be had.
inline constexpr uint64_t k_least_proxy = 128 << 20;
inline constexpr uint64_t k_least_audio = 128 << 20;
inline constexpr uint64_t k_least_image = 32 << 20;
inline constexpr uint64_t k_least_frame = 256 << 20;

/// The alignment of the frame heap: the page size, doubled until it is at least 8192.
[[nodiscard]] int32_t frame_alignment(int32_t page_size) noexcept;

/// False when a frame heap that could not be had with `size` bytes is not tried with half of it.
[[nodiscard]] constexpr bool may_halve(uint64_t size) noexcept {
    constexpr uint64_t k_not_halved_below = 536870914;
    return size >= k_not_halved_below;
}

}  // namespace vell
