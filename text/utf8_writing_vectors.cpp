// Writing UTF-8 by vectors, four characters at a time. Compiled for every level of vector instructions that the
// compiler knows; the best that the processor has is chosen at the first call.
//
// Each character's bytes are put together in its own 32 bits, the last one lowest; a table tells, by the four lengths,
// how to line them up.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/utf8_writing_vectors.cpp"
#include <hwy/foreach_target.h>
// Behind foreach_target.h on purpose.
#include <hwy/highway.h>

#include "text/code_points.h"
#include "text/unicode_vectors.h"
#include "text/vector_tables.h"

HWY_BEFORE_NAMESPACE();
namespace vell::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_SCALAR

TextProgress utf16_to_utf8(const uint8_t*, size_t, size_t, uint8_t*, size_t) {
    return {0, 0};
}
TextProgress utf32_to_utf8(const uint8_t*, size_t, size_t, uint8_t*, size_t) {
    return {0, 0};
}
size_t units_before_end(const uint8_t* text, size_t limit) {
    size_t count = 0;
    while (count < limit && load_unit(text, count) != 0)
        ++count;
    return count;
}

#else

namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::FixedTag<uint8_t, 16>;
using Units = hn::FixedTag<uint16_t, 8>;
using Words = hn::FixedTag<uint32_t, 4>;
using SignedWords = hn::FixedTag<int32_t, 4>;

HWY_INLINE hn::Vec<Units> load_units(const uint8_t* text) {
    return hn::BitCast(Units(), hn::LoadU(Bytes(), text));
}

HWY_INLINE hn::Vec<Words> load_words(const uint8_t* text) {
    return hn::BitCast(Words(), hn::LoadU(Bytes(), text));
}

/// The last `count` bytes before `end`, zeros behind them. 16 bytes before `end` are read.
HWY_INLINE hn::Vec<Bytes> last_bytes(const uint8_t* end, size_t count) {
    const Bytes d;
    return hn::TableLookupBytes(hn::LoadU(d, end - 16), hn::LoadU(d, k_last_bytes + 16 - count));
}

template <class D, class V>
HWY_INLINE bool is_zero(D d, V v) {
    return hn::AllTrue(d, hn::Eq(v, hn::Zero(d)));
}

/// All ones where a code point is above `limit`.
HWY_INLINE hn::Vec<Words> above(hn::Vec<Words> cps, int32_t limit) {
    const SignedWords d;
    return hn::BitCast(Words(), hn::VecFromMask(d, hn::Gt(hn::BitCast(d, cps), hn::Set(d, limit))));
}

/// Writes four code points of at most 0x1FFFFF; 16 bytes are stored. @return  bytes that they take.
HWY_INLINE size_t encode_four(hn::Vec<Words> cps, uint8_t* out) {
    const Words d;
    const Bytes bytes;
    const auto takes_two = above(cps, 0x7F), takes_three = above(cps, 0x7FF), takes_four = above(cps, 0xFFFF);
    const auto spread =
        hn::Or(hn::Or(hn::And(cps, hn::Set(d, 0x3F)), hn::ShiftLeft<2>(hn::And(cps, hn::Set(d, 0xFC0)))),
               hn::Or(hn::ShiftLeft<4>(hn::And(cps, hn::Set(d, 0x3F000))),
                      hn::ShiftLeft<6>(hn::And(cps, hn::Set(d, 0x1C0000)))));
    const auto marks =
        hn::Xor(hn::Xor(hn::And(takes_two, hn::Set(d, 0xC080)), hn::And(takes_three, hn::Set(d, 0xC080 ^ 0xE08080))),
                hn::And(takes_four, hn::Set(d, 0xE08080u ^ 0xF0808080u)));
    const auto sequences = hn::IfVecThenElse(takes_two, hn::Or(spread, marks), cps);

    // The lengths less 1, first as bytes of one number, then as two bits each.
    alignas(16) static constexpr uint8_t k_first_bytes[16] = {0,    4,    8,    12,   0x80, 0x80, 0x80, 0x80,
                                                              0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
    const auto lengths = hn::Sub(hn::Zero(d), hn::Add(hn::Add(takes_two, takes_three), takes_four));
    const uint32_t packed =
        hn::GetLane(hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(bytes, lengths), hn::Load(bytes, k_first_bytes))));
    const uint32_t index = (packed * 0x01041040u) >> 24;
    const auto order = hn::Load(bytes, k_sequence_orders[index].from.data());
    hn::StoreU(hn::TableLookupBytes(hn::BitCast(bytes, sequences), order), bytes, out);
    return 4 + ((packed * 0x01010101u) >> 24);
}

/// Writes eight code points of at most 0x7FF; 16 bytes are stored. @return  bytes that they take.
HWY_INLINE size_t encode_eight(hn::Vec<Units> cps, uint8_t* out) {
    const Units d;
    const Bytes bytes;
    const hn::RebindToSigned<Units> signed_d;
    const auto takes_two = hn::Gt(hn::BitCast(signed_d, cps), hn::Set(signed_d, 0x7F));
    const auto spread = hn::Or(hn::ShiftRight<6>(cps), hn::ShiftLeft<8>(hn::And(cps, hn::Set(d, 0x3F))));
    const auto pairs = hn::Or(spread, hn::Set(d, 0x80C0));
    const auto sequences = hn::IfVecThenElse(hn::BitCast(d, hn::VecFromMask(signed_d, takes_two)), pairs, cps);
    alignas(8) uint8_t twos[8];
    hn::StoreMaskBits(signed_d, takes_two, twos);
    const auto order = hn::Load(bytes, k_pair_orders[twos[0]].from.data());
    hn::StoreU(hn::TableLookupBytes(hn::BitCast(bytes, sequences), order), bytes, out);
    return 8 + hwy::PopCount(uint64_t{twos[0]});
}

/// Stores the lower bytes of 16 units below 0x100.
HWY_INLINE void narrow_units(hn::Vec<Units> first, hn::Vec<Units> second, uint8_t* out) {
    alignas(16) static constexpr uint8_t k_order[16] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
    const Bytes d;
    const auto both = hn::BitCast(d, hn::Or(first, hn::ShiftLeft<8>(second)));
    hn::StoreU(hn::TableLookupBytes(both, hn::Load(d, k_order)), d, out);
}

/// Eight code points of at most 0x1FFFFF.
HWY_INLINE size_t encode_two_fours(hn::Vec<Words> lower, hn::Vec<Words> upper, uint8_t* out) {
    const Words d;
    const Units units;
    if (is_zero(d, hn::AndNot(hn::Set(d, 0x7FF), hn::Or(lower, upper))))
        return encode_eight(hn::ConcatEven(units, hn::BitCast(units, upper), hn::BitCast(units, lower)), out);
    const size_t made = encode_four(lower, out);
    return made + encode_four(upper, out + made);
}

TextProgress utf32_to_utf8(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) {
    alignas(16) static constexpr uint8_t k_order[16] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
    const Words d;
    const Bytes bytes;
    size_t at = from;
    size_t made = 0;
    while (to - at >= 16 && room - made >= 64) {
        const auto first = load_words(text + 4 * at), second = load_words(text + 4 * at + 16);
        const auto third = load_words(text + 4 * at + 32), fourth = load_words(text + 4 * at + 48);
        const auto any = hn::Or(hn::Or(first, second), hn::Or(third, fourth));
        if (is_zero(d, hn::AndNot(hn::Set(d, 0x7F), any))) {
            const auto all = hn::Or(hn::Or(first, hn::ShiftLeft<8>(second)),
                                    hn::Or(hn::ShiftLeft<16>(third), hn::ShiftLeft<24>(fourth)));
            hn::StoreU(hn::TableLookupBytes(hn::BitCast(bytes, all), hn::Load(bytes, k_order)), bytes, out + made);
            made += 16;
        } else {
            if (!is_zero(d, hn::AndNot(hn::Set(d, 0x1FFFFF), any))) break;
            made += encode_two_fours(first, second, out + made);
            made += encode_two_fours(third, fourth, out + made);
        }
        at += 16;
    }
    for (; to - at >= 4 && room - made >= 16; at += 4) {
        const auto cps = load_words(text + 4 * at);
        if (!is_zero(d, hn::AndNot(hn::Set(d, 0x1FFFFF), cps))) break;
        made += encode_four(cps, out + made);
    }
    // What is left is written as if zeros followed, which are then taken back.
    const size_t left = to - at;
    if (left > 0 && left < 4 && to >= 4 && room - made >= 16) {
        const auto cps = hn::BitCast(d, last_bytes(text + 4 * to, 4 * left));
        if (is_zero(d, hn::AndNot(hn::Set(d, 0x1FFFFF), cps)))
            return {to - from, made + encode_four(cps, out + made) - (4 - left)};
    }
    return {at - from, made};
}

HWY_INLINE hn::Vec<Words> lower_words(hn::Vec<Units> low, hn::Vec<Units> high) {
    return hn::BitCast(Words(), hn::InterleaveLower(Units(), low, high));
}

HWY_INLINE hn::Vec<Words> upper_words(hn::Vec<Units> low, hn::Vec<Units> high) {
    return hn::BitCast(Words(), hn::InterleaveUpper(Units(), low, high));
}

/// Four units, and those behind each: the code point where a pair begins, else the unit.
HWY_INLINE hn::Vec<Words> join_pairs(hn::Vec<Words> units, hn::Vec<Words> next, hn::Vec<Words> begins_pair) {
    const Words d;
    const auto pairs = hn::Sub(hn::Add(hn::ShiftLeft<10>(units), next), hn::Set(d, 0x360DC00));
    return hn::IfVecThenElse(begins_pair, pairs, units);
}

/// Writes up to four code points, those whose bit is set in `kept`.
HWY_INLINE size_t encode_kept(hn::Vec<Words> cps, uint32_t kept, uint8_t* out) {
    const Bytes d;
    const uint32_t bits = kept & 0x0F;
    const auto order = hn::Load(d, k_squeezed_words[bits].from.data());
    const auto squeezed = hn::TableLookupBytes(hn::BitCast(d, cps), order);
    const size_t left_off = 4 - hwy::PopCount(uint64_t{bits});  // zeros at the end, written as a byte each
    return encode_four(hn::BitCast(Words(), squeezed), out) - left_off;
}

/// 8 units, of which the last may begin a pair that ends behind them, and which do not start within a pair.
/// @return  bytes written; 0 for a pair that stands for zero. `taken` receives 8 or 9.
HWY_INLINE size_t encode_with_pairs(const uint8_t* text, uint8_t* out, size_t& taken) {
    const Units d;
    const auto units = load_units(text), next = load_units(text + 2);
    const auto kind = hn::Set(d, 0xFC00);
    const auto is_high = hn::Eq(hn::And(units, kind), hn::Set(d, 0xD800));
    const auto has_low = hn::Eq(hn::And(next, kind), hn::Set(d, 0xDC00));
    const auto begins_pair = hn::And(hn::VecFromMask(d, is_high), hn::VecFromMask(d, has_low));
    alignas(8) uint8_t bits[8];
    hn::StoreMaskBits(d, hn::MaskFromVec(begins_pair), bits);
    const uint32_t second_of_pair = uint32_t{bits[0]} << 1;
    const uint32_t kept = ~second_of_pair & 0xFF;
    taken = 8 + (second_of_pair >> 8);

    const auto zero = hn::Zero(d);
    const auto lower =
        join_pairs(lower_words(units, zero), lower_words(next, zero), lower_words(begins_pair, begins_pair));
    const auto upper =
        join_pairs(upper_words(units, zero), upper_words(next, zero), upper_words(begins_pair, begins_pair));
    const Words words;
    alignas(8) uint8_t zeros[16];
    hn::StoreMaskBits(words, hn::Eq(lower, hn::Zero(words)), zeros);
    hn::StoreMaskBits(words, hn::Eq(upper, hn::Zero(words)), zeros + 8);
    if (((zeros[0] | zeros[8] << 4) & static_cast<int>(kept)) != 0) return 0;
    const size_t made = encode_kept(lower, kept, out);
    return made + encode_kept(upper, kept >> 4, out + made);
}

HWY_INLINE bool has_surrogates(hn::Vec<Units> units) {
    const Units d;
    return !hn::AllFalse(d, hn::Eq(hn::And(units, hn::Set(d, 0xF800)), hn::Set(d, 0xD800)));
}

/// Eight units without surrogates.
HWY_INLINE size_t encode_units(hn::Vec<Units> units, uint8_t* out) {
    const Units d;
    if (is_zero(d, hn::And(units, hn::Set(d, 0xF800)))) return encode_eight(units, out);
    const size_t made = encode_four(lower_words(units, hn::Zero(d)), out);
    return made + encode_four(upper_words(units, hn::Zero(d)), out + made);
}

TextProgress utf16_to_utf8(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) {
    const Units d;
    size_t at = from;
    size_t made = 0;
    while (to - at >= 8 && room - made >= 32) {
        const auto units = load_units(text + 2 * at);
        if (to - at >= 16 && is_zero(d, hn::AndNot(hn::Set(d, 0x7F), units))) {
            const auto more = load_units(text + 2 * at + 16);
            if (is_zero(d, hn::AndNot(hn::Set(d, 0x7F), more))) {
                narrow_units(units, more, out + made);
                made += 16;
                at += 16;
                continue;
            }
        }
        if (!has_surrogates(units)) {
            made += encode_units(units, out + made);
            at += 8;
            continue;
        }
        size_t taken = 0;
        const size_t bytes = encode_with_pairs(text + 2 * at, out + made, taken);
        if (bytes == 0) break;
        made += bytes;
        at += taken;
    }
    // What is left is written as if zeros followed, which are then taken back.
    const size_t left = to - at;
    if (left > 0 && left < 8 && to >= 8 && room - made >= 32) {
        const auto units = hn::BitCast(d, last_bytes(text + 2 * to, 2 * left));
        if (!has_surrogates(units)) return {to - from, made + encode_units(units, out + made) - (8 - left)};
    }
    return {at - from, made};
}

/// Reading to the end of a vector that holds the terminator is not an access to what lies behind the text: nothing is
/// made of it, and the vector lies in the terminator's page. The sanitizers cannot know.
__attribute__((no_sanitize("address", "thread"))) size_t units_before_end(const uint8_t* text, size_t limit) {
    constexpr uintptr_t k_smallest_page = 4096;
    constexpr size_t k_step = 16;
    const Units d;
    size_t count = 0;
    while (limit - count >= k_step) {
        const uint8_t* at = text + 2 * count;
        if (reinterpret_cast<uintptr_t>(at) % k_smallest_page > k_smallest_page - 2 * k_step) {
            for (const size_t end = count + k_step; count < end; ++count)
                if (load_unit(text, count) == 0) return count;
            continue;
        }
        const auto first = load_units(at), second = load_units(at + k_step);
        if (!hn::AllFalse(d, hn::Eq(hn::Min(first, second), hn::Zero(d)))) {
            const intptr_t zero = hn::FindFirstTrue(d, hn::Eq(first, hn::Zero(d)));
            if (zero >= 0) return count + static_cast<size_t>(zero);
            return count + 8 + static_cast<size_t>(hn::FindFirstTrue(d, hn::Eq(second, hn::Zero(d))));
        }
        count += k_step;
    }
    while (count < limit && load_unit(text, count) != 0)
        ++count;
    return count;
}

#endif

}  // namespace
}  // namespace vell::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vell {

HWY_EXPORT(utf16_to_utf8);
HWY_EXPORT(utf32_to_utf8);
HWY_EXPORT(units_before_end);

TextProgress utf16_to_utf8_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) noexcept {
    return HWY_DYNAMIC_DISPATCH(utf16_to_utf8)(text, from, to, out, room);
}

TextProgress utf32_to_utf8_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) noexcept {
    return HWY_DYNAMIC_DISPATCH(utf32_to_utf8)(text, from, to, out, room);
}

size_t utf16_units_before_end(const uint8_t* text, size_t limit) noexcept {
    return HWY_DYNAMIC_DISPATCH(units_before_end)(text, limit);
}

}  // namespace vell
#endif
