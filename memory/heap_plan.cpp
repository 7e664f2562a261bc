// The sizes of the named heaps.

#include "memory/heap_plan.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace vell {
namespace {

constexpr uint64_t k_mib = 1 << 20;
constexpr uint64_t k_gib = 1 << 30;
constexpr uint64_t k_large_machine = 2197815296;  // available bytes: from here on the smaller heaps are larger
constexpr uint64_t k_sparing_from = 8589934594;   // from here on three quarters of what is above 4 GiB are left

/// The most that one block may take: a multiple of 4 MiB.
uint64_t largest_block(uint64_t available, uint64_t max_block) noexcept {
    constexpr uint64_t k_whole_4_mib = 0x7FFFFFFFFFC00000;
    const uint64_t block = max_block != 0 ? max_block : static_cast<uint64_t>(static_cast<double>(available) * 0.75);
    return std::min(block, 2 * available / 3) & k_whole_4_mib;
}

uint64_t fair_share(uint64_t available) noexcept {
    if (available < k_sparing_from) return available / 2;
    // In single precision, as the sizes that hosts know came about.
    return 4 * k_gib + static_cast<uint64_t>(static_cast<float>(available - 4 * k_gib) * 0.25F);
}

uint64_t at_least(uint64_t size, uint64_t least) noexcept {
    return size <= least ? least : size;
}

}  // namespace

HeapSizes default_heap_sizes(uint64_t available, uint64_t max_block) noexcept {
    const uint64_t budget = std::min(fair_share(available), largest_block(available, max_block));
    const bool is_large = available >= k_large_machine;
    HeapSizes sizes;
    sizes.proxy = sizes.audio = (is_large ? 256 : 128) * k_mib;
    sizes.image = (is_large ? 64 : 32) * k_mib;
    sizes.frame = (budget - sizes.proxy - sizes.audio - sizes.image) / k_mib * k_mib;
    return sizes;
}

bool apply_config_line(const char* line, HeapSizes& sizes) noexcept {
    struct Key {
        const char* text;
        uint64_t HeapSizes::*size;
    };
    static constexpr size_t k_key_length = 16;
    static constexpr Key k_keys[] = {{"frame_heap_size=", &HeapSizes::frame},
                                     {"proxy_heap_size=", &HeapSizes::proxy},
                                     {"audio_heap_size=", &HeapSizes::audio},
                                     {"image_heap_size=", &HeapSizes::image}};
    for (const Key& key : k_keys) {
        if (std::strncmp(line, key.text, k_key_length) != 0) continue;
        const char* number = line + k_key_length;
        char* end = nullptr;
        const uint64_t mib = std::strtoull(number, &end, 10);
        if (end == number) return false;
        sizes.*key.size = mib * k_mib;
        return true;
    }
    return false;
}

HeapSizes with_minimums(HeapSizes sizes) noexcept {
    sizes.frame = at_least(sizes.frame, k_least_frame);
    sizes.proxy = at_least(sizes.proxy, k_least_proxy);
    sizes.audio = at_least(sizes.audio, k_least_audio);
    sizes.image = at_least(sizes.image, k_least_image);
    return sizes;
}

int32_t frame_alignment(int32_t page_size) noexcept {
    constexpr int32_t k_least = 8192;
    int32_t alignment = page_size;
    while (alignment < k_least)
        alignment *= 2;
    return alignment;
}

}  // namespace vell
