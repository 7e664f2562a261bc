// Reading UTF-8 by vectors. Compiled for every level of vector instructions that the compiler knows; the best that the
// processor has is chosen at the first call.
//
// All steps are of 16 bytes, whatever characters lie in them: a character is made where its last byte lies, out of that
// byte and the ones before it, of which there are vectors shifted by one, two and three bytes. The bytes that end
// nothing are then squeezed out. A byte ends a character when the next one does not continue it; so each step checks
// the bytes up to the one behind its own, and what it makes is well-formed to its end.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "text/utf8_vectors.cpp"
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

TextProgress count_utf8(const uint8_t*, size_t, size_t) {
    return {0, 0};
}
TextProgress utf8_to_utf16(const uint8_t*, size_t, size_t, uint8_t*, size_t) {
    return {0, 0};
}
TextProgress utf8_to_utf32(const uint8_t*, size_t, size_t, uint8_t*, size_t) {
    return {0, 0};
}

#else

namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::FixedTag<uint8_t, 16>;
using WideBytes = hn::CappedTag<uint8_t, 32>;
using Units = hn::FixedTag<uint16_t, 8>;
using Vector = hn::Vec<Bytes>;

constexpr size_t k_step = 16;

/// Nonzero where `byte` cannot stand behind the three bytes before it. Surrogates can be encoded here.
///
/// After Keiser and Lemire, "Validating UTF-8 In Less Than One Instruction Per Byte" (SPE 51, 2021): the halves of two
/// neighbours select sets of faults, and a fault in all three sets is one.
HWY_INLINE Vector faults(Vector byte, Vector before1, Vector before2, Vector before3) {
    const Bytes d;
    constexpr uint8_t k_too_short = 1 << 0;   // lead byte, but nothing continues it
    constexpr uint8_t k_too_long = 1 << 1;    // ASCII continued
    constexpr uint8_t k_overlong3 = 1 << 2;   // E0 80-9F
    constexpr uint8_t k_too_large = 1 << 3;   // F4 90-BF, F5-FF 90-BF
    constexpr uint8_t k_overlong2 = 1 << 5;   // C0, C1
    constexpr uint8_t k_large_or_4 = 1 << 6;  // F5-FF 80-8F; F0 80-8F
    constexpr uint8_t k_two_behind = 1 << 7;  // two that continue: right behind E0-FF only
    constexpr uint8_t k_any = k_too_short | k_too_long | k_two_behind;
    constexpr uint8_t k_large = k_any | k_too_large | k_large_or_4;
    constexpr uint8_t k_second = k_too_long | k_overlong2 | k_two_behind;
    alignas(16) static constexpr uint8_t k_before_high[16] = {k_too_long,
                                                              k_too_long,
                                                              k_too_long,
                                                              k_too_long,
                                                              k_too_long,
                                                              k_too_long,
                                                              k_too_long,
                                                              k_too_long,
                                                              k_two_behind,
                                                              k_two_behind,
                                                              k_two_behind,
                                                              k_two_behind,
                                                              k_too_short | k_overlong2,
                                                              k_too_short,
                                                              k_too_short | k_overlong3,
                                                              k_too_short | k_too_large | k_large_or_4};
    alignas(16) static constexpr uint8_t k_before_low[16] = {k_any | k_overlong3 | k_overlong2 | k_large_or_4,
                                                             k_any | k_overlong2,
                                                             k_any,
                                                             k_any,
                                                             k_any | k_too_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large,
                                                             k_large};
    alignas(16) static constexpr uint8_t k_byte_high[16] = {k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_second | k_overlong3 | k_large_or_4,
                                                            k_second | k_overlong3 | k_too_large,
                                                            k_second | k_too_large,
                                                            k_second | k_too_large,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short,
                                                            k_too_short};
    const Vector found =
        hn::And(hn::And(hn::TableLookupBytes(hn::Load(d, k_before_high), hn::ShiftRight<4>(before1)),
                        hn::TableLookupBytes(hn::Load(d, k_before_low), hn::And(before1, hn::Set(d, 0x0F)))),
                hn::TableLookupBytes(hn::Load(d, k_byte_high), hn::ShiftRight<4>(byte)));
    // The upper bit where a third or fourth byte has to stand; the differences reach 0x80 from E0 and F0 on.
    const Vector has_to_continue =
        hn::Or(hn::SaturatedSub(before2, hn::Set(d, 0x60)), hn::SaturatedSub(before3, hn::Set(d, 0x70)));
    return hn::Xor(hn::And(has_to_continue, hn::Set(d, 0x80)), found);
}

HWY_INLINE bool is_zero(Vector v) {
    const Bytes d;
    return hn::AllTrue(d, hn::Eq(v, hn::Zero(d)));
}

template <class D>
HWY_INLINE bool is_ascii(D /*d*/, hn::Vec<D> v) {
    const hn::RebindToSigned<D> signed_d;
    return hn::AllFalse(signed_d, hn::Lt(hn::BitCast(signed_d, v), hn::Zero(signed_d)));
}

/// 255 for every byte that continues a sequence.
HWY_INLINE Vector continuations(Vector v) {
    const hn::RebindToSigned<Bytes> signed_d;
    const auto bytes = hn::BitCast(signed_d, v);
    return hn::BitCast(Bytes(), hn::VecFromMask(signed_d, hn::Lt(bytes, hn::Set(signed_d, -64))));
}

HWY_INLINE Vector at_least(Vector v, uint8_t limit) {
    const Bytes d;
    return hn::VecFromMask(d, hn::Eq(hn::Max(v, hn::Set(d, limit)), v));
}

// --- Steps ---

/// 16 bytes, and the same moved by one back and by one to three on.
struct Window {
    Vector next, byte, before1, before2, before3;
};

HWY_INLINE Window window_inside(const uint8_t* text) {
    const Bytes d;
    return {hn::LoadU(d, text + 1), hn::LoadU(d, text), hn::LoadU(d, text - 1), hn::LoadU(d, text - 2),
            hn::LoadU(d, text - 3)};
}

/// Where a character begins: what lies before is of no concern, and may not be there.
HWY_INLINE Window window_at_start(Vector byte, Vector next) {
    return {next, byte, hn::ShiftLeftBytes<1>(byte), hn::ShiftLeftBytes<2>(byte), hn::ShiftLeftBytes<3>(byte)};
}

HWY_INLINE Window window_behind(Vector earlier, Vector byte) {
    const Bytes d;
    return {hn::ShiftRightBytes<1>(d, byte), byte, hn::CombineShiftRightBytes<15>(d, byte, earlier),
            hn::CombineShiftRightBytes<14>(d, byte, earlier), hn::CombineShiftRightBytes<13>(d, byte, earlier)};
}

/// The last `count` bytes before `end`, zeros behind them. Up to 16 bytes before `end` are read.
HWY_INLINE Vector last_bytes(const uint8_t* end, size_t count) {
    const Bytes d;
    return hn::TableLookupBytes(hn::LoadU(d, end - k_step), hn::LoadU(d, k_last_bytes + k_step - count));
}

/// What is made of a window: the planes of the characters that end there.
struct Step {
    Vector byte, before1, before2, before3;
    Vector is_second;  // 255 where a byte continues
    Vector low, high;  // bits 0 to 7, and 8 to 15, of a character
    Vector ends;       // 255 where a character ends
};

/// False when something up to the byte behind the window is malformed.
HWY_INLINE bool is_sound(const Window& window) {
    return is_zero(faults(window.next, window.byte, window.before1, window.before2));
}

HWY_INLINE Step make_characters(const Window& window) {
    const Bytes d;
    Step step{window.byte, window.before1, window.before2, window.before3, continuations(window.byte), {}, {}, {}};
    const auto is_third = hn::And(step.is_second, continuations(step.before1));
    const auto middle = hn::And(step.is_second, hn::And(step.before1, hn::Set(d, 0x3F)));
    const auto top = hn::And(is_third, step.before2);
    step.low = hn::Or(hn::And(step.byte, hn::Set(d, 0x7F)), hn::ShiftLeft<6>(middle));
    step.high = hn::Or(hn::ShiftRight<2>(middle), hn::ShiftLeft<4>(top));
    step.ends = hn::Not(continuations(window.next));
    return step;
}

/// Goes through a text by steps. A sink takes what it can of ASCII, and whole windows.
template <class Sink>
HWY_INLINE TextProgress walk_steps(const uint8_t* text, size_t from, size_t to, Sink& sink) {
    const Bytes d;
    size_t at = from;
    bool is_inside = false;  // behind a window that has checked the byte at `at`
    while (to - at >= k_step && sink.has_room()) {
        const auto byte = hn::LoadU(d, text + at);
        if (is_ascii(d, byte)) {
            at += sink.take_ascii(text + at, to - at);
            is_inside = false;
            continue;
        }
        if (!is_inside && is_continuation(text[at])) break;
        const Window window = is_inside ? window_inside(text + at) : window_at_start(byte, hn::LoadU(d, text + at + 1));
        if (!is_sound(window)) break;
        sink.take_window(window);
        at += k_step;
        is_inside = true;
    }
    // What is left of the text is walked as if zeros followed, which are then taken back.
    const size_t left = to - at;
    if (left > 0 && left < k_step && to >= k_step && sink.has_room() && (is_inside || !is_continuation(text[at]))) {
        const auto byte = last_bytes(text + to, left);
        const Window window = is_inside ? window_behind(hn::LoadU(d, text + at - k_step), byte)
                                        : window_at_start(byte, hn::ShiftRightBytes<1>(d, byte));
        if (is_sound(window)) {
            sink.take_window(window);
            sink.made -= k_step - left;
            return {to - from, sink.made};
        }
    }
    if (!is_inside) return {at - from, sink.made};
    const size_t stop = at;
    while (is_continuation(text[at]))
        --at;
    sink.take_back(stop - at);
    return {at - from, sink.made};
}

// --- Counting ---

struct Counter {
    HWY_INLINE bool has_room() const { return true; }
    HWY_INLINE void take_back(size_t) {}

    HWY_INLINE size_t take_ascii(const uint8_t* text, size_t bytes) {
        const WideBytes d;
        const size_t step = 2 * hn::Lanes(d);
        size_t taken = k_step;
        while (bytes - taken >= step &&
               is_ascii(d, hn::Or(hn::LoadU(d, text + taken), hn::LoadU(d, text + taken + hn::Lanes(d)))))
            taken += step;
        made += taken;
        return taken;
    }

    HWY_INLINE void take_window(const Window& window) {
        made += k_step - hn::CountTrue(Bytes(), hn::MaskFromVec(continuations(window.next)));
    }

    size_t made = 0;
};

TextProgress count_utf8(const uint8_t* text, size_t from, size_t to) {
    Counter counter;
    return walk_steps(text, from, to, counter);
}

// --- Converting ---

/// Which of a window's 16 units are kept, 8 and 8, the first in the lowest bit.
struct Kept {
    explicit HWY_INLINE Kept(Vector where) {
        const Bytes d;
        alignas(8) uint8_t bits[8];
        hn::StoreMaskBits(d, hn::MaskFromVec(where), bits);
        lower = bits[0];
        upper = bits[1];
    }
    uint32_t lower, upper;
};

HWY_INLINE hn::Vec<Units> squeeze(hn::Vec<Units> units, uint32_t kept) {
    const Bytes d;
    const auto order = hn::Load(d, k_squeezed_units[kept].from.data());
    return hn::BitCast(Units(), hn::TableLookupBytes(hn::BitCast(d, units), order));
}

HWY_INLINE size_t count_of(uint32_t kept) {
    return hwy::PopCount(uint64_t{kept});
}

HWY_INLINE void store_units(hn::Vec<Units> units, uint8_t* out) {
    const Bytes d;
    hn::StoreU(hn::BitCast(d, units), d, out);
}

HWY_INLINE hn::Vec<Units> lower_units(Vector low, Vector high) {
    return hn::BitCast(Units(), hn::InterleaveLower(Bytes(), low, high));
}

HWY_INLINE hn::Vec<Units> upper_units(Vector low, Vector high) {
    return hn::BitCast(Units(), hn::InterleaveUpper(Bytes(), low, high));
}

HWY_INLINE bool has_four_bytes(const Window& window) {
    return !is_zero(hn::SaturatedSub(hn::Max(window.byte, window.before3), hn::Set(Bytes(), 0xEF)));
}

/// Puts the pairs of four-byte characters into the planes: the first unit where the third byte lies.
HWY_INLINE void make_pairs(Step& step) {
    const Bytes d;
    const auto is_first = at_least(step.before2, 0xF0);
    const auto is_last = at_least(step.before3, 0xF0);
    const auto first_low =
        hn::Or(hn::ShiftLeft<2>(step.before1), hn::And(hn::ShiftRight<4>(step.byte), hn::Set(d, 0x03)));
    const auto first_high = hn::Add(hn::And(step.before2, hn::Set(d, 0x07)), hn::Set(d, 0xD8));
    const auto last_high = hn::Or(hn::And(step.high, hn::Set(d, 0x03)), hn::Set(d, 0xDC));
    step.low = hn::IfVecThenElse(is_first, first_low, step.low);
    step.high = hn::IfVecThenElse(is_first, first_high, hn::IfVecThenElse(is_last, last_high, step.high));
    step.ends = hn::Or(step.ends, is_first);
}

struct Utf16Writer {
    HWY_INLINE bool has_room() const { return room - made >= k_step; }

    /// The first unit of a pair was made where the third byte lies.
    HWY_INLINE void take_back(size_t bytes) { made -= bytes == 3 ? 1 : 0; }

    HWY_INLINE size_t take_ascii(const uint8_t* text, size_t) {
        const Bytes d;
        const auto bytes = hn::LoadU(d, text);
        store_units(lower_units(bytes, hn::Zero(d)), out + 2 * made);
        store_units(upper_units(bytes, hn::Zero(d)), out + 2 * made + 16);
        made += k_step;
        return k_step;
    }

    HWY_INLINE void take_window(const Window& window) {
        Step step = make_characters(window);
        if (has_four_bytes(window)) make_pairs(step);
        const Kept kept(step.ends);
        store_units(squeeze(lower_units(step.low, step.high), kept.lower), out + 2 * made);
        made += count_of(kept.lower);
        store_units(squeeze(upper_units(step.low, step.high), kept.upper), out + 2 * made);
        made += count_of(kept.upper);
    }

    uint8_t* out;
    size_t room;
    size_t made = 0;
};

TextProgress utf8_to_utf16(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) {
    Utf16Writer writer{out, room};
    return walk_steps(text, from, to, writer);
}

struct Utf32Writer {
    HWY_INLINE bool has_room() const { return room - made >= k_step; }
    HWY_INLINE void take_back(size_t) {}

    HWY_INLINE size_t take_ascii(const uint8_t* text, size_t) {
        const Bytes d;
        const auto bytes = hn::LoadU(d, text);
        store(lower_units(bytes, hn::Zero(d)), hn::Zero(Units()), 8);
        store(upper_units(bytes, hn::Zero(d)), hn::Zero(Units()), 8);
        return k_step;
    }

    HWY_INLINE void take_window(const Window& window) {
        const Bytes d;
        const Step step = make_characters(window);
        const Kept kept(step.ends);
        auto lower_plane = hn::Zero(Units()), upper_plane = hn::Zero(Units());  // bits 16 to 20
        if (has_four_bytes(window)) {
            const auto bits = hn::Or(hn::ShiftLeft<2>(hn::And(step.before3, hn::Set(d, 0x07))),
                                     hn::And(hn::ShiftRight<4>(step.before2), hn::Set(d, 0x03)));
            const auto plane = hn::And(at_least(step.before3, 0xF0), bits);
            lower_plane = squeeze(lower_units(plane, hn::Zero(d)), kept.lower);
            upper_plane = squeeze(upper_units(plane, hn::Zero(d)), kept.upper);
        }
        store(squeeze(lower_units(step.low, step.high), kept.lower), lower_plane, count_of(kept.lower));
        store(squeeze(upper_units(step.low, step.high), kept.upper), upper_plane, count_of(kept.upper));
    }

    /// Stores 8 characters out of their lower and upper 16 bits, and counts the first `count`.
    HWY_INLINE void store(hn::Vec<Units> low, hn::Vec<Units> high, size_t count) {
        const Units d;
        store_units(hn::InterleaveLower(d, low, high), out + 4 * made);
        store_units(hn::InterleaveUpper(d, low, high), out + 4 * made + 16);
        made += count;
    }

    uint8_t* out;
    size_t room;
    size_t made = 0;
};

TextProgress utf8_to_utf32(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) {
    Utf32Writer writer{out, room};
    return walk_steps(text, from, to, writer);
}

#endif

}  // namespace
}  // namespace vell::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vell {

HWY_EXPORT(count_utf8);
HWY_EXPORT(utf8_to_utf16);
HWY_EXPORT(utf8_to_utf32);

TextProgress count_utf8_vectors(const uint8_t* text, size_t from, size_t to) noexcept {
    return HWY_DYNAMIC_DISPATCH(count_utf8)(text, from, to);
}

TextProgress utf8_to_utf16_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) noexcept {
    return HWY_DYNAMIC_DISPATCH(utf8_to_utf16)(text, from, to, out, room);
}

TextProgress utf8_to_utf32_vectors(const uint8_t* text, size_t from, size_t to, uint8_t* out, size_t room) noexcept {
    return HWY_DYNAMIC_DISPATCH(utf8_to_utf32)(text, from, to, out, room);
}

}  // namespace vell
#endif
