// One level of XXH3: the package's code, compiled for the vectors that the including source file is compiled for.
// Everything in here is local to that file, so that nothing of one level can be linked into another.

#include "platform/xxh3_kernels.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace vell {
namespace {

Hash128 plain(XXH128_hash_t hash) {
    return {hash.low64, hash.high64};
}

constexpr Xxh3Kernels k_xxh3_level = {
    .sum_64 = XXH3_64bits,
    .sum_64_with_seed = XXH3_64bits_withSeed,
    .sum_64_with_secret = XXH3_64bits_withSecret,
    .sum_128 = [](const void* input, size_t bytes) { return plain(XXH3_128bits(input, bytes)); },
    .sum_128_with_seed = [](const void* input, size_t bytes,
                            uint64_t seed) { return plain(XXH3_128bits_withSeed(input, bytes, seed)); },
    .sum_128_with_secret =
        [](const void* input, size_t bytes, const void* secret, size_t secret_bytes) {
            return plain(XXH3_128bits_withSecret(input, bytes, secret, secret_bytes));
        },
    .update = [](void* state, const void* input,
                 size_t bytes) { XXH3_64bits_update(static_cast<XXH3_state_t*>(state), input, bytes); },
    .digest_64 = [](const void* state) { return XXH3_64bits_digest(static_cast<const XXH3_state_t*>(state)); },
    .digest_128 = [](const void* state) { return plain(XXH3_128bits_digest(static_cast<const XXH3_state_t*>(state))); },
};

}  // namespace
}  // namespace vell
