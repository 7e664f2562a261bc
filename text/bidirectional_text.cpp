// VlBidi's questions. How a text is processed is in bidi_processing.cpp.

#include "vellcore/bidirectional_text.h"

#include <algorithm>
#include <new>

#include "text/bidi_impl.h"

VlBidi* VlBidi::Create() noexcept {
    return new (std::nothrow) VlBidiImpl;
}

VlBidi* VlBidi::Create(const char* text) noexcept {
    VlBidi* bidi = Create();
    if (bidi != nullptr) bidi->SetLogicalText(text);
    return bidi;
}

// Kept: the storage goes without the destructor.
void VlBidi::Destroy(VlBidi* bidi) noexcept {
    ::operator delete(static_cast<VlBidiImpl*>(bidi));
}

void VlBidiImpl::SetBaseDir(VlBidiDir dir) noexcept {
    base_direction = dir;
}

VlBidiDir VlBidiImpl::GetBaseDir() const noexcept {
    return base_direction;
}

void VlBidiImpl::SetLogicalText(const char* text) noexcept {
    logical_text = text;
    is_processed = 0;
}

const char* VlBidiImpl::GetVisualText() noexcept {
    return is_reordered() ? visual_text : logical_text;
}

bool VlBidiImpl::NeedsReorder() noexcept {
    return is_reordered();
}

int VlBidiImpl::CursorPosLog2Vis(int pos) noexcept {
    if (!process()) return pos;
    const int position = std::clamp(pos, 0, length);
    if (highest_level < 1) return position;
    if (position == 0) return to_visual[0] + (is_right_to_left(0) ? 1 : 0);
    const int before = position - 1;
    return to_visual[before] + (is_right_to_left(before) ? 0 : 1);
}

int VlBidiImpl::CursorPosVis2Log(int pos) noexcept {
    if (!process()) return pos;
    const int position = std::clamp(pos, 0, length);
    if (highest_level < 1) return position;
    const bool is_at_line_feed = position < length && visual[position] == '\n';
    const bool looks_right = base_direction != VL_BIDI_LTR ? position < length && !is_at_line_feed : position == 0;
    if (looks_right) {
        const int32_t right = to_logical[position];
        return right + (is_right_to_left(right) ? 1 : 0);
    }
    if (position == 0) return 0;
    const int32_t left = to_logical[position - 1];
    return left + (is_right_to_left(left) ? 0 : 1);
}

int VlBidiImpl::SetLogicalSelection(int start, int end) noexcept {
    if (start == end || start < 0 || end < 0) {
        selection_cursor = -1;
        return -1;
    }
    if (is_reordered()) mark_selection(start, end);
    selection_start = start;
    selection_end = end;
    selection_cursor = 0;
    return 0;
}

void VlBidiImpl::mark_selection(int start, int end) noexcept {
    std::fill_n(selected, capacity, 0U);
    for (int32_t i = start; i < std::min(end, length); ++i)
        if (to_visual[i] >= 0) selected[to_visual[i]] = 1;
}

bool VlBidiImpl::GetNextVisualSelection(int& start, int& end) noexcept {
    if (selection_cursor < 0) return false;
    if (!is_reordered()) {
        start = selection_start;
        end = selection_end;
        selection_cursor = -1;
        return true;
    }
    // The text may have become shorter since the selection was made.
    const uint32_t* const marks = selected;
    const uint32_t* const stop = marks + length;
    const uint32_t* const first = std::find(marks + std::min(selection_cursor, length), stop, 1U);
    if (first == stop) {
        selection_cursor = -1;
        return false;
    }
    start = static_cast<int>(first - marks);
    end = selection_cursor = static_cast<int>(std::find(first, stop, 0U) - marks);
    return true;
}
