// XXH3 compiled for AVX-512 (platform/CMakeLists.txt sets the compiler's options).

#include "platform/x86_64/xxh3_levels.h"
#include "platform/xxh3_level.h"

static_assert(XXH_VECTOR == XXH_AVX512, "this file's compiler options are missing");

namespace vell {

const Xxh3Kernels k_xxh3_avx512 = k_xxh3_level;

}  // namespace vell
