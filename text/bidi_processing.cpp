// How VlBidi has FriBidi process a text: levels (UAX #9), Arabic shapes, and the order of each line.

#include <fribidi.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>
#include <new>
#include <numeric>

#include "text/bidi_impl.h"
#include "vellcore/unicode_text.h"

namespace vell {
namespace {

constexpr FriBidiFlags k_flags = FRIBIDI_FLAGS_DEFAULT | FRIBIDI_FLAGS_ARABIC;
constexpr int32_t k_smallest_capacity = 128;         // code points
constexpr int32_t k_longest_text = INT_MAX / 4 - 1;  // code points: their UTF-8 has a length that is an int
constexpr uint32_t k_line_feed = '\n';

std::atomic<bool> pairs_brackets{false};

template <class T>
T* new_array(int32_t count) noexcept {
    return new (std::nothrow) T[static_cast<size_t>(count)]();
}

/// Embedding levels with brackets paired. The result is FriBidi's: the highest level plus 1, or 0.
int levels_with_brackets(const uint32_t* text, const uint32_t* types, int32_t length, FriBidiParType* direction,
                         int8_t* levels) noexcept {
    const std::unique_ptr<FriBidiBracketType[]> brackets(new_array<FriBidiBracketType>(length));
    if (brackets == nullptr) return 0;
    fribidi_get_bracket_types(text, length, types, brackets.get());
    return fribidi_get_par_embedding_levels_ex(types, brackets.get(), length, direction, levels);
}

/// The same as brackets were treated before Unicode 6.3.
int levels_without_brackets(const uint32_t* types, int32_t length, FriBidiParType* direction, int8_t* levels) noexcept {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return fribidi_get_par_embedding_levels(types, length, direction, levels);
#pragma GCC diagnostic pop
}

}  // namespace
}  // namespace vell

void VlBidi::SetPairedBrackets(bool paired) noexcept {
    vell::pairs_brackets.store(paired, std::memory_order_relaxed);
}

bool VlBidiImpl::process() noexcept {
    if (is_processed == 0) {
        is_processed = 1;
        highest_level = -1;
        is_ordered = process_text() ? 1 : 0;
    }
    return is_ordered != 0;
}

bool VlBidiImpl::process_text() noexcept {
    length = 0;
    const size_t code_points = logical_text != nullptr ? vl_utf8_strlen(logical_text) : 0;
    if (code_points == 0 || code_points > static_cast<size_t>(vell::k_longest_text)) return false;
    if (!ensure_capacity(static_cast<int32_t>(code_points))) return false;
    length = static_cast<int32_t>(code_points);
    vl_utf8_to_utf32(logical_text, logical, code_points + 1);
    const uint32_t paragraph = base_direction != VL_BIDI_LTR ? FRIBIDI_PAR_RTL : FRIBIDI_PAR_LTR;
    if (!find_levels(paragraph)) return false;
    if (highest_level < 1) return true;
    shape();
    if (!reorder_lines(paragraph)) return false;
    invert_map();
    vl_utf32_to_utf8(visual, visual_text, static_cast<size_t>(length) * 4 + 1);
    return true;
}

bool VlBidiImpl::ensure_capacity(int32_t wanted) noexcept {
    if (capacity >= wanted) return true;
    free_arrays();
    const int32_t room = std::max(wanted, vell::k_smallest_capacity);
    visual_text = vell::new_array<char>(room * 4 + 1);
    logical = vell::new_array<uint32_t>(room + 1);
    visual = vell::new_array<uint32_t>(room + 1);
    types = vell::new_array<uint32_t>(room);
    levels = vell::new_array<int8_t>(room);
    joining = vell::new_array<uint8_t>(room);
    to_visual = vell::new_array<int32_t>(room);
    to_logical = vell::new_array<int32_t>(room);
    selected = vell::new_array<uint32_t>(room);
    const bool has_all = visual_text != nullptr && logical != nullptr && visual != nullptr && types != nullptr &&
                         levels != nullptr && joining != nullptr && to_visual != nullptr && to_logical != nullptr &&
                         selected != nullptr;
    if (has_all) {
        capacity = room;
    } else {
        free_arrays();
    }
    return has_all;
}

void VlBidiImpl::free_arrays() noexcept {
    const auto free_array = [](auto*& array) {
        delete[] array;
        array = nullptr;
    };
    free_array(visual_text);
    free_array(logical);
    free_array(visual);
    free_array(types);
    free_array(levels);
    free_array(joining);
    free_array(to_visual);
    free_array(to_logical);
    free_array(selected);
    capacity = 0;
}

bool VlBidiImpl::find_levels(uint32_t paragraph) noexcept {
    fribidi_get_bidi_types(logical, length, types);
    // Line feeds would end the paragraph.
    for (int32_t i = 0; i < length; ++i)
        if (logical[i] == vell::k_line_feed) types[i] = paragraph;
    FriBidiParType direction = paragraph;
    const int result = vell::pairs_brackets.load(std::memory_order_relaxed)
                           ? vell::levels_with_brackets(logical, types, length, &direction, levels)
                           : vell::levels_without_brackets(types, length, &direction, levels);
    highest_level = result - 1;
    return result >= 1;
}

void VlBidiImpl::shape() noexcept {
    std::copy_n(logical, length + 1, visual);
    fribidi_get_joining_types(logical, length, joining);
    fribidi_join_arabic(types, length, levels, joining);
    fribidi_shape(vell::k_flags, levels, length, joining, visual);
}

bool VlBidiImpl::reorder_lines(uint32_t paragraph) noexcept {
    std::iota(to_logical, to_logical + length, 0);
    for (int32_t begin = 0; begin < length;) {
        const auto end =
            static_cast<int32_t>(std::find(logical + begin, logical + length, vell::k_line_feed) - logical);
        if (end > begin && fribidi_reorder_line(vell::k_flags, types + begin, end - begin, /*off*/ 0, paragraph,
                                                levels + begin, visual + begin, to_logical + begin) == 0)
            return false;
        begin = end + 1;
    }
    return true;
}

void VlBidiImpl::invert_map() noexcept {
    std::fill_n(to_visual, length, -1);
    for (int32_t i = 0; i < length; ++i)
        to_visual[to_logical[i]] = i;
}
