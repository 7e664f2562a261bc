// What VlBidi::Create makes.
#pragma once

#include <cstdint>

#include "vellcore/bidirectional_text.h"

/// Hosts that look into the object know the order of its fields. The arrays have room for `capacity` code points, those
/// of code points for a terminator more.
class VlBidiImpl final : public VlBidi {
public:
    VlBidiImpl() noexcept = default;
    ~VlBidiImpl() override { free_arrays(); }
    VlBidiImpl(const VlBidiImpl&) = delete;
    VlBidiImpl& operator=(const VlBidiImpl&) = delete;

    void SetBaseDir(VlBidiDir dir) noexcept override;
    [[nodiscard]] VlBidiDir GetBaseDir() const noexcept override;
    void SetLogicalText(const char* text) noexcept override;
    [[nodiscard]] const char* GetVisualText() noexcept override;
    [[nodiscard]] bool NeedsReorder() noexcept override;
    [[nodiscard]] int CursorPosLog2Vis(int pos) noexcept override;
    [[nodiscard]] int CursorPosVis2Log(int pos) noexcept override;
    int SetLogicalSelection(int start, int end) noexcept override;
    [[nodiscard]] bool GetNextVisualSelection(int& start, int& end) noexcept override;

    VlBidiDir base_direction = VL_BIDI_LTR;
    const char* logical_text = nullptr;  // the caller's
    char* visual_text = nullptr;         // UTF-8, capacity * 4 + 1 bytes
    int32_t length = 0;                  // code points of the logical text
    int32_t capacity = 0;                // code points
    uint32_t* logical = nullptr;         // code points
    uint32_t* visual = nullptr;          // code points, shaped, mirrored and reordered
    uint32_t* types = nullptr;           // bidirectional types
    int8_t* levels = nullptr;            // embedding levels; odd is right to left
    uint8_t* joining = nullptr;          // how Arabic letters join
    int32_t* to_visual = nullptr;        // visual index by logical one, -1 for none
    int32_t* to_logical = nullptr;       // logical index by visual one
    uint32_t* selected = nullptr;        // by visual index, 1 when selected
    int32_t highest_level = -1;
    uint8_t is_processed = 0;
    uint8_t is_ordered = 0;         // the result of processing
    int32_t selection_cursor = -1;  // visual index where the next selected run is looked for; -1: none is pending
    int32_t selection_start = 0;    // logical, as set
    int32_t selection_end = 0;

private:
    bool process() noexcept;
    bool process_text() noexcept;
    [[nodiscard]] bool ensure_capacity(int32_t wanted) noexcept;
    void free_arrays() noexcept;
    [[nodiscard]] bool find_levels(uint32_t paragraph) noexcept;
    void shape() noexcept;
    [[nodiscard]] bool reorder_lines(uint32_t paragraph) noexcept;
    void invert_map() noexcept;
    void mark_selection(int start, int end) noexcept;
    [[nodiscard]] bool is_reordered() noexcept { return process() && highest_level >= 1; }
    [[nodiscard]] bool is_right_to_left(int32_t logical_index) const noexcept {
        return (levels[logical_index] & 1) != 0;
    }
};
