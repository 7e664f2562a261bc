// The levels of XXH3 for x86-64 processors, one source file each.
#pragma once

#include "platform/xxh3_kernels.h"

namespace vell {

extern const Xxh3Kernels k_xxh3_sse2;
extern const Xxh3Kernels k_xxh3_avx2;
extern const Xxh3Kernels k_xxh3_avx512;

}  // namespace vell
