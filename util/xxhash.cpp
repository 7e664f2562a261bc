// The xxHash family under its own names. XXH32, XXH64 and short messages are the package's code, compiled in here;
// long messages and streams of XXH3 go to the level of vectors that the processor has.
//
// The library is linked so that its own calls reach these functions, whatever a host loads under the same names.

#include <atomic>
#include <cstring>

#include "platform/xxh3_kernels.h"
#include "util/xxhash_package.h"

namespace vell {
namespace {

static_assert(sizeof(PackageState32) == 48 && sizeof(PackageState64) == 88 && sizeof(PackageState3) == 576 &&
                  sizeof(XXH128_hash_t) == 16,
              "hosts know the sizes");

constexpr size_t k_short_bytes = 240;   // up to here no vectors are used (XXH3_MIDSIZE_MAX)
constexpr size_t k_secret_bytes = 192;  // of the default secret and of every generated one
constexpr size_t k_segment_bytes = 16;  // of a secret that is made

PackageState32* inner(XXH32_state_t* state) {
    return reinterpret_cast<PackageState32*>(state);
}
const PackageState32* inner(const XXH32_state_t* state) {
    return reinterpret_cast<const PackageState32*>(state);
}
PackageState64* inner(XXH64_state_t* state) {
    return reinterpret_cast<PackageState64*>(state);
}
const PackageState64* inner(const XXH64_state_t* state) {
    return reinterpret_cast<const PackageState64*>(state);
}
PackageState3* inner(XXH3_state_t* state) {
    return reinterpret_cast<PackageState3*>(state);
}
const PackageState3* inner(const XXH3_state_t* state) {
    return reinterpret_cast<const PackageState3*>(state);
}

XXH_errorcode outer(int package_code) {
    return package_code == 0 ? XXH_OK : XXH_ERROR;
}
XXH128_hash_t outer(PackageHash128 hash) {
    return {hash.low64, hash.high64};
}
XXH128_hash_t outer(Hash128 hash) {
    return {hash.low, hash.high};
}
PackageHash128 inner(XXH128_hash_t hash) {
    return {hash.low64, hash.high64};
}

/// Null is an empty message.
size_t readable(const void* input, size_t length) {
    return input != nullptr ? length : 0;
}

/// The best level of this processor, found by the first call that asks.
const Xxh3Kernels& kernels() {
    static constinit std::atomic<const Xxh3Kernels*> chosen{nullptr};
    const Xxh3Kernels* level = chosen.load(std::memory_order_relaxed);
    if (level == nullptr) {
        level = *xxh3_levels();
        chosen.store(level, std::memory_order_relaxed);
    }
    return *level;
}

XXH_errorcode update(XXH3_state_t* state, const void* input, size_t bytes) {
    if (state == nullptr || input == nullptr) return XXH_ERROR;
    kernels().update(state, input, bytes);
    return XXH_OK;
}

}  // namespace
}  // namespace vell

using vell::inner;
using vell::kernels;
using vell::outer;
using vell::readable;

unsigned XXH_versionNumber(void) {
    return 800;
}

// --- 32 bits ----------------------------------------------------------------------------------------------------

XXH32_hash_t XXH32(const void* input, size_t length, XXH32_hash_t seed) {
    return XXH_INLINE_XXH32(input, readable(input, length), seed);
}
XXH32_state_t* XXH32_createState(void) {
    return reinterpret_cast<XXH32_state_t*>(XXH_INLINE_XXH32_createState());
}
XXH_errorcode XXH32_freeState(XXH32_state_t* state) {
    return outer(XXH_INLINE_XXH32_freeState(inner(state)));
}
void XXH32_copyState(XXH32_state_t* to, const XXH32_state_t* from) {
    XXH_INLINE_XXH32_copyState(inner(to), inner(from));
}
XXH_errorcode XXH32_reset(XXH32_state_t* state, XXH32_hash_t seed) {
    return outer(XXH_INLINE_XXH32_reset(inner(state), seed));
}
XXH_errorcode XXH32_update(XXH32_state_t* state, const void* input, size_t length) {
    if (input == nullptr) return XXH_ERROR;
    return outer(XXH_INLINE_XXH32_update(inner(state), input, length));
}
XXH32_hash_t XXH32_digest(const XXH32_state_t* state) {
    return XXH_INLINE_XXH32_digest(inner(state));
}
void XXH32_canonicalFromHash(XXH32_canonical_t* to, XXH32_hash_t hash) {
    XXH_INLINE_XXH32_canonicalFromHash(reinterpret_cast<vell::PackageCanonical32*>(to), hash);
}
XXH32_hash_t XXH32_hashFromCanonical(const XXH32_canonical_t* from) {
    return XXH_INLINE_XXH32_hashFromCanonical(reinterpret_cast<const vell::PackageCanonical32*>(from));
}

// --- 64 bits ----------------------------------------------------------------------------------------------------

XXH64_hash_t XXH64(const void* input, size_t length, XXH64_hash_t seed) {
    return XXH_INLINE_XXH64(input, readable(input, length), seed);
}
XXH64_state_t* XXH64_createState(void) {
    return reinterpret_cast<XXH64_state_t*>(XXH_INLINE_XXH64_createState());
}
XXH_errorcode XXH64_freeState(XXH64_state_t* state) {
    return outer(XXH_INLINE_XXH64_freeState(inner(state)));
}
void XXH64_copyState(XXH64_state_t* to, const XXH64_state_t* from) {
    XXH_INLINE_XXH64_copyState(inner(to), inner(from));
}
XXH_errorcode XXH64_reset(XXH64_state_t* state, XXH64_hash_t seed) {
    // The package leaves the last word alone, and states are compared whole.
    std::memset(inner(state), 0, sizeof *inner(state));
    return outer(XXH_INLINE_XXH64_reset(inner(state), seed));
}
XXH_errorcode XXH64_update(XXH64_state_t* state, const void* input, size_t length) {
    if (input == nullptr) return XXH_ERROR;
    return outer(XXH_INLINE_XXH64_update(inner(state), input, length));
}
XXH64_hash_t XXH64_digest(const XXH64_state_t* state) {
    return XXH_INLINE_XXH64_digest(inner(state));
}
int XXH64_compareState(const XXH64_state_s* a, const XXH64_state_s* b) {
    if (a == nullptr || b == nullptr) return (a != nullptr ? 1 : 0) - (b != nullptr ? 1 : 0);
    return std::memcmp(a, b, sizeof *inner(a));
}
void XXH64_canonicalFromHash(XXH64_canonical_t* to, XXH64_hash_t hash) {
    XXH_INLINE_XXH64_canonicalFromHash(reinterpret_cast<vell::PackageCanonical64*>(to), hash);
}
XXH64_hash_t XXH64_hashFromCanonical(const XXH64_canonical_t* from) {
    return XXH_INLINE_XXH64_hashFromCanonical(reinterpret_cast<const vell::PackageCanonical64*>(from));
}

XXH64_state_s* vl_XXH64_createState() noexcept {
    return XXH64_createState();
}
int vl_XXH64_freeState(XXH64_state_s* state) noexcept {
    return XXH64_freeState(state);
}
void vl_XXH64_copyState(XXH64_state_s* to, const XXH64_state_s* from) noexcept {
    if (to != nullptr && from != nullptr) XXH64_copyState(to, from);
}
int vl_XXH64_compareState(const XXH64_state_s* a, const XXH64_state_s* b) noexcept {
    return XXH64_compareState(a, b);
}
int vl_XXH64_reset(XXH64_state_s* state, unsigned long long seed) noexcept {
    return state != nullptr ? XXH64_reset(state, seed) : XXH_ERROR;
}
int vl_XXH64_update(XXH64_state_s* state, const void* input, size_t length) noexcept {
    return state != nullptr ? XXH64_update(state, input, length) : XXH_ERROR;
}
unsigned long long vl_XXH64_digest(const XXH64_state_s* state) noexcept {
    return state != nullptr ? XXH64_digest(state) : 0;
}

// --- XXH3, 64 bits ----------------------------------------------------------------------------------------------

XXH64_hash_t XXH3_64bits(const void* input, size_t length) {
    length = readable(input, length);
    return length <= vell::k_short_bytes ? XXH_INLINE_XXH3_64bits(input, length) : kernels().sum_64(input, length);
}
XXH64_hash_t XXH3_64bits_withSeed(const void* input, size_t length, XXH64_hash_t seed) {
    length = readable(input, length);
    if (length <= vell::k_short_bytes) return XXH_INLINE_XXH3_64bits_withSeed(input, length, seed);
    return kernels().sum_64_with_seed(input, length, seed);
}
XXH64_hash_t XXH3_64bits_withSecret(const void* input, size_t length, const void* secret, size_t secret_bytes) {
    length = readable(input, length);
    return kernels().sum_64_with_secret(input, length, secret, secret_bytes);
}
XXH3_state_t* XXH3_createState(void) {
    return reinterpret_cast<XXH3_state_t*>(XXH_INLINE_XXH3_createState());
}
XXH_errorcode XXH3_freeState(XXH3_state_t* state) {
    return outer(XXH_INLINE_XXH3_freeState(inner(state)));
}
void XXH3_copyState(XXH3_state_t* to, const XXH3_state_t* from) {
    XXH_INLINE_XXH3_copyState(inner(to), inner(from));
}
XXH_errorcode XXH3_64bits_reset(XXH3_state_t* state) {
    return outer(XXH_INLINE_XXH3_64bits_reset(inner(state)));
}
XXH_errorcode XXH3_64bits_reset_withSeed(XXH3_state_t* state, XXH64_hash_t seed) {
    return outer(XXH_INLINE_XXH3_64bits_reset_withSeed(inner(state), seed));
}
XXH_errorcode XXH3_64bits_reset_withSecret(XXH3_state_t* state, const void* secret, size_t secret_bytes) {
    return outer(XXH_INLINE_XXH3_64bits_reset_withSecret(inner(state), secret, secret_bytes));
}
XXH_errorcode XXH3_64bits_update(XXH3_state_t* state, const void* input, size_t length) {
    return vell::update(state, input, length);
}
XXH64_hash_t XXH3_64bits_digest(const XXH3_state_t* state) {
    return kernels().digest_64(state);
}

// The secret of xxHash 0.8.0: the seed's own sum, then that sum hashed with each word of the repeated seed.
void XXH3_generateSecret(void* secret, const void* seed, size_t seed_bytes) {
    auto* out = static_cast<unsigned char*>(secret);
    if (seed_bytes == 0) {
        std::memcpy(out, XXH3_kSecret, vell::k_secret_bytes);
        return;
    }
    constexpr size_t k_segments = vell::k_secret_bytes / vell::k_segment_bytes;
    unsigned char words[k_segments][sizeof(uint64_t)];
    for (size_t i = 0; i < sizeof words; ++i)
        words[i / sizeof *words][i % sizeof *words] = static_cast<const unsigned char*>(seed)[i % seed_bytes];
    XXH128_canonical_t sum;
    XXH128_canonicalFromHash(&sum, XXH128(seed, seed_bytes, 0));
    std::memcpy(out, &sum, sizeof sum);
    for (size_t i = 1; i < k_segments; ++i) {
        XXH128_canonical_t segment;
        XXH128_canonicalFromHash(&segment, XXH128(&sum, sizeof sum, XXH_readLE64(words[i]) + i));
        std::memcpy(out + i * vell::k_segment_bytes, &segment, sizeof segment);
    }
}

// --- XXH3, 128 bits ---------------------------------------------------------------------------------------------

XXH128_hash_t XXH3_128bits(const void* input, size_t length) {
    length = readable(input, length);
    if (length <= vell::k_short_bytes) return outer(XXH_INLINE_XXH3_128bits(input, length));
    return outer(kernels().sum_128(input, length));
}
XXH128_hash_t XXH3_128bits_withSeed(const void* input, size_t length, XXH64_hash_t seed) {
    length = readable(input, length);
    if (length <= vell::k_short_bytes) return outer(XXH_INLINE_XXH3_128bits_withSeed(input, length, seed));
    return outer(kernels().sum_128_with_seed(input, length, seed));
}
XXH128_hash_t XXH128(const void* input, size_t length, XXH64_hash_t seed) {
    return XXH3_128bits_withSeed(input, length, seed);
}
XXH128_hash_t XXH3_128bits_withSecret(const void* input, size_t length, const void* secret, size_t secret_bytes) {
    length = readable(input, length);
    return outer(kernels().sum_128_with_secret(input, length, secret, secret_bytes));
}
XXH_errorcode XXH3_128bits_reset(XXH3_state_t* state) {
    return XXH3_64bits_reset(state);
}
XXH_errorcode XXH3_128bits_reset_withSeed(XXH3_state_t* state, XXH64_hash_t seed) {
    return XXH3_64bits_reset_withSeed(state, seed);
}
XXH_errorcode XXH3_128bits_reset_withSecret(XXH3_state_t* state, const void* secret, size_t secret_bytes) {
    return XXH3_64bits_reset_withSecret(state, secret, secret_bytes);
}
XXH_errorcode XXH3_128bits_update(XXH3_state_t* state, const void* input, size_t length) {
    return vell::update(state, input, length);
}
XXH128_hash_t XXH3_128bits_digest(const XXH3_state_t* state) {
    return outer(kernels().digest_128(state));
}
int XXH128_isEqual(XXH128_hash_t a, XXH128_hash_t b) {
    return XXH_INLINE_XXH128_isEqual(inner(a), inner(b));
}
int XXH128_cmp(const void* a, const void* b) {
    return XXH_INLINE_XXH128_cmp(a, b);
}
void XXH128_canonicalFromHash(XXH128_canonical_t* to, XXH128_hash_t hash) {
    XXH_INLINE_XXH128_canonicalFromHash(reinterpret_cast<vell::PackageCanonical128*>(to), inner(hash));
}
XXH128_hash_t XXH128_hashFromCanonical(const XXH128_canonical_t* from) {
    return outer(XXH_INLINE_XXH128_hashFromCanonical(reinterpret_cast<const vell::PackageCanonical128*>(from)));
}
