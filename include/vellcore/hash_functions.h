#pragma once
// Hash functions. A state belongs to one thread at a time; it may be copied at any moment.

#include <cstddef>

#include "export.h"

/// The state of an MD5 sum (RFC 1321), 88 bytes.
struct md5_state_s {
    unsigned int count[2];  ///< message length in bits, low word first
    unsigned int abcd[4];   ///< chaining value
    unsigned char buf[64];  ///< bytes that do not fill a block yet
};
static_assert(sizeof(md5_state_s) == 88 && offsetof(md5_state_s, abcd) == 8 && offsetof(md5_state_s, buf) == 24,
              "hosts know the layout");

/// Starts a sum. Null is ignored, here and below.
VELL_API void vl_md5_init(md5_state_s* state) noexcept;

/// Adds `length` bytes; a length of 0 or less adds nothing.
VELL_API void vl_md5_append(md5_state_s* state, const unsigned char* data, int length) noexcept;

/// Ends the sum and writes its 16 bytes. The state is used up: start the next sum with vl_md5_init.
VELL_API void vl_md5_finish(md5_state_s* state, unsigned char digest[16]) noexcept;

// --- SHA-1 ------------------------------------------------------------------------------------------------------

/// The state of a SHA-1 sum (RFC 3174), 104 bytes.
struct SHA1Context {
    unsigned int Intermediate_Hash[5];  ///< chaining value, in the end the sum: five words, most significant byte first
    unsigned int Length_Low;            ///< message length in bits
    unsigned int Length_High;
    unsigned char Message_Block[64];  ///< bytes that do not fill a block yet
    int Message_Block_Index;          ///< their number
    int Computed;                     ///< not 0: the sum is complete
    int Corrupted;                    ///< not 0: the sum is void
};
static_assert(sizeof(SHA1Context) == 104 && offsetof(SHA1Context, Message_Block) == 28 &&
                  offsetof(SHA1Context, Message_Block_Index) == 92,
              "hosts know the layout");

/// Starts a sum. Null is ignored, here and below.
VELL_API void vl_SHA1Reset(SHA1Context* context) noexcept;

/// Adds `length` bytes. The sum becomes void (Corrupted) when it was complete or void already, or when the message
/// grows beyond 2^64 - 1 bits; a length of 0 changes nothing.
VELL_API void vl_SHA1Input(SHA1Context* context, const unsigned char* data, unsigned int length) noexcept;

/// Completes the sum: it stands in Intermediate_Hash then. A second call changes nothing.
/// @return  1, or 0 for a void sum or null.
VELL_API int vl_SHA1Result(SHA1Context* context) noexcept;

// --- xxHash -----------------------------------------------------------------------------------------------------
//
// XXH32, XXH64, XXH3_64bits and XXH128 (which is XXH3_128bits with a seed) with their states, canonical forms and
// secrets, under the names and with the results of xxHash 0.8.0; XXH_versionNumber answers 800. Fast sums for finding
// damage, not for security. XXH3 runs on the widest vectors that the processor has.
//
// States are made by the createState functions, 48, 88 and 576 bytes long, and freed by the freeState functions; they
// are opaque. A state must be reset before the first update. A sum of null is that of an empty message; an update with
// null adds nothing and answers XXH_ERROR. A digest leaves its state as it was: more may be added.
//
// Where the system has <xxhash.h> these names come from there, so a host may include both headers, in either order. A
// host that wants nothing of the system's defines VELLCORE_OWN_XXHASH_NAMES and gets them from xxhash_names.h.
// A host that links the system's xxHash too gets whichever library comes first under these names; the two agree,
// except in XXH_versionNumber and XXH3_generateSecret. The vl_ functions are always this library's.

#if !defined(XXHASH_H_5627135585666179) && !defined(VELLCORE_OWN_XXHASH_NAMES) && __has_include(<xxhash.h>)
#pragma GCC visibility push(default)
#include <xxhash.h>
#pragma GCC visibility pop
#else
#include "xxhash_names.h"
#endif

#if !defined(XXHASH_H_STATIC_13879238742)  // whose part declares it in the package's header
extern "C" VELL_API XXH128_hash_t XXH128(const void* input, size_t length, XXH64_hash_t seed);
#endif

// A host that compiles xxHash into itself (XXH_INLINE_ALL) has macros of these names; what is declared here means this
// library's all the same.
#pragma push_macro("XXH64_state_s")
#undef XXH64_state_s
#pragma push_macro("XXH3_generateSecret")
#undef XXH3_generateSecret

struct XXH64_state_s;

#define VELL_TEXT_OF_(x) #x
#define VELL_TEXT_OF(x)  VELL_TEXT_OF_(x)

/// Makes a secret for the withSecret functions, always of 192 bytes, out of any bytes. A seed of 0 bytes gives the
/// default secret. C linkage, told by the label: xxHash 0.8.1 declares a function of the same name with four
/// arguments and other results, and both declarations may meet in one source file.
VELL_API void XXH3_generateSecret(void* secret, const void* seed,
                                  size_t seed_bytes) __asm__(VELL_TEXT_OF(__USER_LABEL_PREFIX__) "XXH3_generateSecret");

/// Compares two 64-bit states byte by byte, like memcmp. States that were reset with one seed and fed alike are equal;
/// states fed the same bytes in different pieces may differ although their digests agree. Null comes before any state.
extern "C" VELL_API int XXH64_compareState(const XXH64_state_s* a, const XXH64_state_s* b);

// The 64-bit functions once more. The results are those of the namesakes, 0 for XXH_OK; a null state is answered with
// XXH_ERROR (1), a digest of 0 or not at all.
[[nodiscard]] VELL_API XXH64_state_s* vl_XXH64_createState() noexcept;
VELL_API int vl_XXH64_freeState(XXH64_state_s* state) noexcept;
VELL_API void vl_XXH64_copyState(XXH64_state_s* to, const XXH64_state_s* from) noexcept;
[[nodiscard]] VELL_API int vl_XXH64_compareState(const XXH64_state_s* a, const XXH64_state_s* b) noexcept;
VELL_API int vl_XXH64_reset(XXH64_state_s* state, unsigned long long seed) noexcept;
VELL_API int vl_XXH64_update(XXH64_state_s* state, const void* input, size_t length) noexcept;
[[nodiscard]] VELL_API unsigned long long vl_XXH64_digest(const XXH64_state_s* state) noexcept;

#undef VELL_TEXT_OF
#undef VELL_TEXT_OF_
#pragma pop_macro("XXH3_generateSecret")
#pragma pop_macro("XXH64_state_s")
