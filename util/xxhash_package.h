// The package's xxHash, compiled into the including file under names that begin with XXH_INLINE_, of which nothing is
// exported or linked. Its types are the Package... types here. The plain names keep meaning what hash_functions.h
// declares.
#pragma once

#include "vellcore/hash_functions.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace vell {

using PackageState32 = XXH32_state_t;
using PackageState64 = XXH64_state_t;
using PackageState3 = XXH3_state_t;
using PackageHash128 = XXH128_hash_t;
using PackageCanonical32 = XXH32_canonical_t;
using PackageCanonical64 = XXH64_canonical_t;
using PackageCanonical128 = XXH128_canonical_t;

}  // namespace vell

#undef XXH_OK
#undef XXH_ERROR
#undef XXH_errorcode
#undef XXH32_canonical_t
#undef XXH64_canonical_t
#undef XXH128_canonical_t
#undef XXH32_state_s
#undef XXH32_state_t
#undef XXH64_state_s
#undef XXH64_state_t
#undef XXH3_state_s
#undef XXH3_state_t
#undef XXH128_hash_t
#undef XXH_versionNumber
#undef XXH32
#undef XXH32_createState
#undef XXH32_freeState
#undef XXH32_reset
#undef XXH32_update
#undef XXH32_digest
#undef XXH32_copyState
#undef XXH32_canonicalFromHash
#undef XXH32_hashFromCanonical
#undef XXH64
#undef XXH64_createState
#undef XXH64_freeState
#undef XXH64_reset
#undef XXH64_update
#undef XXH64_digest
#undef XXH64_copyState
#undef XXH64_canonicalFromHash
#undef XXH64_hashFromCanonical
#undef XXH3_64bits
#undef XXH3_64bits_withSecret
#undef XXH3_64bits_withSeed
#undef XXH3_createState
#undef XXH3_freeState
#undef XXH3_copyState
#undef XXH3_64bits_reset
#undef XXH3_64bits_reset_withSeed
#undef XXH3_64bits_reset_withSecret
#undef XXH3_64bits_update
#undef XXH3_64bits_digest
#undef XXH3_generateSecret
#undef XXH128
#undef XXH3_128bits
#undef XXH3_128bits_withSeed
#undef XXH3_128bits_withSecret
#undef XXH3_128bits_reset
#undef XXH3_128bits_reset_withSeed
#undef XXH3_128bits_reset_withSecret
#undef XXH3_128bits_update
#undef XXH3_128bits_digest
#undef XXH128_isEqual
#undef XXH128_cmp
#undef XXH128_canonicalFromHash
#undef XXH128_hashFromCanonical
