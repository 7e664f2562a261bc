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
