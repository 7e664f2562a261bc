// Base64 decoding, 16 characters to 12 bytes at a time. Compiled for every level of vector instructions that the
// compiler knows; the best that the processor has is chosen at the first call.
//
// After Mula and Lemire, "Faster Base64 Encoding and Decoding Using AVX2 Instructions" (ACM TOW 12, 2018): a
// character's class is looked up by its two halves, and its value is the character plus an offset of its upper half.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/base64_vector.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.h on purpose.
#include <hwy/highway.h>

#include "text/base64.h"

HWY_BEFORE_NAMESPACE();
namespace vell::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_SCALAR

Base64Progress decode_vectors(const char*, size_t, uint8_t*, size_t) {
    return {0, 0};
}

#else

namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::FixedTag<uint8_t, 16>;
using Words = hn::FixedTag<uint32_t, 4>;
using Vector = hn::Vec<Bytes>;

constexpr size_t k_characters = 16;
constexpr size_t k_stored = 12;

/// The values of 16 characters, 0 to 63. False when one is not of the alphabet.
HWY_INLINE bool look_up(Vector text, Vector& values) {
    // A bit in common for a lower and an upper half means: no such character.
    alignas(16) static constexpr uint8_t k_lower[16] = {0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                        0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A};
    alignas(16) static constexpr uint8_t k_upper[16] = {0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                        0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10};
    // What is added to a character, by its upper half; "/" uses the entry before its own.
    alignas(16) static constexpr uint8_t k_offsets[16] = {0, 16, 19, 4, 191, 191, 185, 185, 0, 0, 0, 0, 0, 0, 0, 0};
    const Bytes d;
    const Vector low_half = hn::And(text, hn::Set(d, 0x0F));
    const Vector high_half = hn::ShiftRight<4>(text);
    const Vector problems = hn::And(hn::TableLookupBytes(hn::Load(d, k_lower), low_half),
                                    hn::TableLookupBytes(hn::Load(d, k_upper), high_half));
    const Vector is_slash = hn::VecFromMask(d, hn::Eq(text, hn::Set(d, '/')));  // 255, which counts as -1
    values = hn::Add(text, hn::TableLookupBytes(hn::Load(d, k_offsets), hn::Add(is_slash, high_half)));
    return hn::AllTrue(d, hn::Eq(problems, hn::Zero(d)));
}

/// Packs 16 values into 12 bytes at the vector's start.
HWY_INLINE Vector pack(Vector values) {
    alignas(16) static constexpr uint8_t k_order[16] = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 3, 3, 3, 3};
    const Bytes d;
    const Words words;
    // Of each four values a, b, c, d (a in the lowest byte): a << 18 | b << 12 | c << 6 | d.
    const auto quads = hn::BitCast(words, values);
    const auto even = hn::And(quads, hn::Set(words, 0x00FF00FF));
    const auto odd = hn::And(hn::ShiftRight<8>(quads), hn::Set(words, 0x00FF00FF));
    const auto pairs = hn::Or(hn::ShiftLeft<6>(even), odd);  // a << 6 | b, and c << 6 | d in the upper half
    const auto triples = hn::Or(hn::ShiftLeft<12>(hn::And(pairs, hn::Set(words, 0xFFFF))), hn::ShiftRight<16>(pairs));
    return hn::TableLookupBytes(hn::BitCast(d, triples), hn::Load(d, k_order));
}

Base64Progress decode_vectors(const char* text, size_t length, uint8_t* out, size_t capacity) {
    const Bytes d;
    const auto* characters = reinterpret_cast<const uint8_t*>(text);
    size_t taken = 0;
    size_t stored = 0;
    while (length - taken >= 2 * k_characters && capacity - stored >= 2 * k_stored) {
        Vector first, second;
        const bool is_first_plain = look_up(hn::LoadU(d, characters + taken), first);
        const bool is_second_plain = look_up(hn::LoadU(d, characters + taken + k_characters), second);
        if (!is_first_plain || !is_second_plain) break;
        hn::StoreU(pack(first), d, out + stored);  // its last 4 bytes are overwritten by the next
        alignas(16) uint8_t packed[16];
        hn::Store(pack(second), d, packed);
        __builtin_memcpy(out + stored + k_stored, packed, k_stored);
        taken += 2 * k_characters;
        stored += 2 * k_stored;
    }
    return {taken, stored};
}

#endif

}  // namespace
}  // namespace vell::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vell {

HWY_EXPORT(decode_vectors);

Base64Progress decode_base64_vectors(const char* text, size_t length, uint8_t* out, size_t capacity) noexcept {
    return HWY_DYNAMIC_DISPATCH(decode_vectors)(text, length, out, capacity);
}

}  // namespace vell
#endif
