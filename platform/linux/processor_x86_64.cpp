// The processor identification instruction: features from leaf 1, the brand from the extended leaves.

#include <cpuid.h>

#include <cstring>

#include "platform/processor.h"
#include "vellcore/system_info.h"

namespace vell {
namespace {

struct FeatureBit {
    uint32_t feature;
    uint32_t bit;
};
constexpr FeatureBit k_edx_bits[] = {{VL_CPU_MMX, 23}, {VL_CPU_SSE, 25}, {VL_CPU_SSE2, 26}};
constexpr FeatureBit k_ecx_bits[] = {{VL_CPU_SSE3, 0},   {VL_CPU_SSSE3, 9}, {VL_CPU_SSE41, 19},
                                     {VL_CPU_SSE42, 20}, {VL_CPU_AVX, 28},  {VL_CPU_FMA, 12}};

template <size_t N>
uint32_t collect(const FeatureBit (&bits)[N], uint32_t word) noexcept {
    uint32_t features = 0;
    for (const FeatureBit& entry : bits) {
        if ((word >> entry.bit & 1) != 0) features |= entry.feature;
    }
    return features;
}

}  // namespace

uint32_t processor_features() noexcept {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return 0;
    return collect(k_edx_bits, edx) | collect(k_ecx_bits, ecx);
}

bool processor_brand(char* text, size_t capacity) noexcept {
    constexpr unsigned k_first_leaf = 0x80000002, k_last_leaf = 0x80000004;
    constexpr size_t k_piece_bytes = 16;
    char brand[3 * k_piece_bytes + 1] = {};
    const auto highest_leaf = static_cast<unsigned>(__get_cpuid_max(0x80000000, nullptr));
    if (capacity < sizeof brand || highest_leaf < k_last_leaf) return false;
    for (unsigned leaf = k_first_leaf; leaf <= k_last_leaf; ++leaf) {
        unsigned words[4] = {};
        __get_cpuid(leaf, &words[0], &words[1], &words[2], &words[3]);
        char piece[k_piece_bytes + 1] = {};
        std::memcpy(piece, words, k_piece_bytes);
        std::strncpy(brand + (leaf - k_first_leaf) * k_piece_bytes, piece, k_piece_bytes);
    }
    std::memcpy(text, brand, sizeof brand);
    return true;
}

bool is_arm64_build() noexcept {
    return false;
}

}  // namespace vell
