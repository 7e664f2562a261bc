// Which levels of XXH3 this processor and this system can run.

#include "platform/x86_64/xxh3_levels.h"

namespace vell {

const Xxh3Kernels* const* xxh3_levels() noexcept {
    static constexpr const Xxh3Kernels* k_levels[] = {&k_xxh3_avx512, &k_xxh3_avx2, &k_xxh3_sse2, nullptr};
    if (__builtin_cpu_supports("avx512f")) return k_levels;
    return __builtin_cpu_supports("avx2") ? k_levels + 1 : k_levels + 2;
}

}  // namespace vell
