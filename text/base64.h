// The fast part of base64 decoding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

/// How far a fast decoder got.
struct Base64Progress {
    size_t characters;  // taken from the text, a multiple of 4
    size_t bytes;       // stored: 3 for every 4 characters
};

/// Decodes whole vectors of characters while they are all of the alphabet and their bytes fit. It stops at the first
/// vector that is not, which may be the first.
[[nodiscard]] Base64Progress decode_base64_vectors(const char* text, size_t length, uint8_t* out,
                                                   size_t capacity) noexcept;

}  // namespace vell
