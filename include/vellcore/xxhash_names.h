#pragma once
// The names of xxHash 0.8.0, for hosts built where its package has no header. hash_functions.h includes this file or
// the package's header: one of the two, so that a host may include <xxhash.h> as well, before or after.
//
// What each function does is told in hash_functions.h and in xxHash's own documentation.

#include <cstddef>
#include <cstdint>

#include "export.h"

#if !defined(XXHASH_H_5627135585666179)  // that the package's header sets

extern "C" {

typedef enum { XXH_OK = 0, XXH_ERROR } XXH_errorcode;

VELL_API unsigned XXH_versionNumber(void);

// --- 32 bits ----------------------------------------------------------------------------------------------------

typedef uint32_t XXH32_hash_t;
typedef struct XXH32_state_s XXH32_state_t;
typedef struct {
    unsigned char digest[4];
} XXH32_canonical_t;

VELL_API XXH32_hash_t XXH32(const void* input, size_t length, XXH32_hash_t seed);
VELL_API XXH32_state_t* XXH32_createState(void);
VELL_API XXH_errorcode XXH32_freeState(XXH32_state_t* state);
VELL_API void XXH32_copyState(XXH32_state_t* to, const XXH32_state_t* from);
VELL_API XXH_errorcode XXH32_reset(XXH32_state_t* state, XXH32_hash_t seed);
VELL_API XXH_errorcode XXH32_update(XXH32_state_t* state, const void* input, size_t length);
VELL_API XXH32_hash_t XXH32_digest(const XXH32_state_t* state);
VELL_API void XXH32_canonicalFromHash(XXH32_canonical_t* to, XXH32_hash_t hash);
VELL_API XXH32_hash_t XXH32_hashFromCanonical(const XXH32_canonical_t* from);

// --- 64 bits ----------------------------------------------------------------------------------------------------

typedef uint64_t XXH64_hash_t;
typedef struct XXH64_state_s XXH64_state_t;
typedef struct {
    unsigned char digest[sizeof(XXH64_hash_t)];
} XXH64_canonical_t;

VELL_API XXH64_hash_t XXH64(const void* input, size_t length, XXH64_hash_t seed);
VELL_API XXH64_state_t* XXH64_createState(void);
VELL_API XXH_errorcode XXH64_freeState(XXH64_state_t* state);
VELL_API void XXH64_copyState(XXH64_state_t* to, const XXH64_state_t* from);
VELL_API XXH_errorcode XXH64_reset(XXH64_state_t* state, XXH64_hash_t seed);
VELL_API XXH_errorcode XXH64_update(XXH64_state_t* state, const void* input, size_t length);
VELL_API XXH64_hash_t XXH64_digest(const XXH64_state_t* state);
VELL_API void XXH64_canonicalFromHash(XXH64_canonical_t* to, XXH64_hash_t hash);
VELL_API XXH64_hash_t XXH64_hashFromCanonical(const XXH64_canonical_t* from);

// --- XXH3, 64 bits ----------------------------------------------------------------------------------------------

#define XXH3_SECRET_SIZE_MIN 136

typedef struct XXH3_state_s XXH3_state_t;

VELL_API XXH64_hash_t XXH3_64bits(const void* input, size_t length);
VELL_API XXH64_hash_t XXH3_64bits_withSeed(const void* input, size_t length, XXH64_hash_t seed);
VELL_API XXH64_hash_t XXH3_64bits_withSecret(const void* input, size_t length, const void* secret, size_t secret_bytes);
VELL_API XXH3_state_t* XXH3_createState(void);
VELL_API XXH_errorcode XXH3_freeState(XXH3_state_t* state);
VELL_API void XXH3_copyState(XXH3_state_t* to, const XXH3_state_t* from);
VELL_API XXH_errorcode XXH3_64bits_reset(XXH3_state_t* state);
VELL_API XXH_errorcode XXH3_64bits_reset_withSeed(XXH3_state_t* state, XXH64_hash_t seed);
VELL_API XXH_errorcode XXH3_64bits_reset_withSecret(XXH3_state_t* state, const void* secret, size_t secret_bytes);
VELL_API XXH_errorcode XXH3_64bits_update(XXH3_state_t* state, const void* input, size_t length);
VELL_API XXH64_hash_t XXH3_64bits_digest(const XXH3_state_t* state);

// --- XXH3, 128 bits ---------------------------------------------------------------------------------------------

typedef struct {
    XXH64_hash_t low64;
    XXH64_hash_t high64;
} XXH128_hash_t;
typedef struct {
    unsigned char digest[sizeof(XXH128_hash_t)];
} XXH128_canonical_t;

VELL_API XXH128_hash_t XXH3_128bits(const void* input, size_t length);
VELL_API XXH128_hash_t XXH3_128bits_withSeed(const void* input, size_t length, XXH64_hash_t seed);
VELL_API XXH128_hash_t XXH3_128bits_withSecret(const void* input, size_t length, const void* secret,
                                               size_t secret_bytes);
VELL_API XXH_errorcode XXH3_128bits_reset(XXH3_state_t* state);
VELL_API XXH_errorcode XXH3_128bits_reset_withSeed(XXH3_state_t* state, XXH64_hash_t seed);
VELL_API XXH_errorcode XXH3_128bits_reset_withSecret(XXH3_state_t* state, const void* secret, size_t secret_bytes);
VELL_API XXH_errorcode XXH3_128bits_update(XXH3_state_t* state, const void* input, size_t length);
VELL_API XXH128_hash_t XXH3_128bits_digest(const XXH3_state_t* state);
VELL_API int XXH128_isEqual(XXH128_hash_t a, XXH128_hash_t b);
VELL_API int XXH128_cmp(const void* a, const void* b);
VELL_API void XXH128_canonicalFromHash(XXH128_canonical_t* to, XXH128_hash_t hash);
VELL_API XXH128_hash_t XXH128_hashFromCanonical(const XXH128_canonical_t* from);

}  // extern "C"

#endif
