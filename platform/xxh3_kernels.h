// XXH3 on the widest vectors of the processor that runs it.
//
// To port: a processor family lists its vector levels, best first, each in a source file that is compiled for it and
// holds platform/xxh3_level.h (see x86_64/). A family whose one level the compiler uses anyway has none to list
// (generic/).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

struct Hash128 {
    uint64_t low;
    uint64_t high;
};

/// What depends on the vectors: sums of long messages, and streams. Functions are those of the package's header
/// compiled for one level; `state` is its XXH3 state. States may pass from level to level.
struct Xxh3Kernels {
    uint64_t (*sum_64)(const void* input, size_t bytes);
    uint64_t (*sum_64_with_seed)(const void* input, size_t bytes, uint64_t seed);
    uint64_t (*sum_64_with_secret)(const void* input, size_t bytes, const void* secret, size_t secret_bytes);
    Hash128 (*sum_128)(const void* input, size_t bytes);
    Hash128 (*sum_128_with_seed)(const void* input, size_t bytes, uint64_t seed);
    Hash128 (*sum_128_with_secret)(const void* input, size_t bytes, const void* secret, size_t secret_bytes);
    void (*update)(void* state, const void* input, size_t bytes);
    uint64_t (*digest_64)(const void* state);
    Hash128 (*digest_128)(const void* state);
};

/// The levels that this processor can run, best first, ended by null. The last one runs everywhere.
[[nodiscard]] const Xxh3Kernels* const* xxh3_levels() noexcept;

}  // namespace vell
