#pragma once
// VlBidi: text that mixes left-to-right and right-to-left scripts, as it is to be shown.
//
// Text is kept and edited in logical order, the order in which it is typed and read. VlBidi gives its visual order from
// left to right, with mirrored brackets and Arabic letter forms, and maps cursor positions and selections between the
// two. It follows the Unicode Bidirectional Algorithm (UAX #9) as GNU FriBidi implements it.
//
// Positions count code points from 0; a cursor position p is the place before character p. Lines end at line feeds and
// are reordered one by one.

#include "export.h"

/// The base direction of a paragraph. Any value but 0 is right to left.
enum VlBidiDir { VL_BIDI_LTR = 0, VL_BIDI_RTL = 1 };

/// One text. It belongs to one thread at a time; nothing is computed before the first question after a new text.
///
/// Processing can fail: for a null or empty text, and short of memory. The text is then shown as it is, and positions
/// map to themselves.
class VELL_API VlBidi {
public:
    /// Sets the base direction, left to right at first. Kept: a text that was processed already stays in its order
    /// until the next SetLogicalText; only CursorPosVis2Log looks at the new direction at once.
    virtual void SetBaseDir(VlBidiDir dir) noexcept = 0;
    [[nodiscard]] virtual VlBidiDir GetBaseDir() const noexcept = 0;

    /// Sets the text, UTF-8. It is not copied: it must stay as it is while this object is asked about it. Null is
    /// accepted.
    virtual void SetLogicalText(const char* text) noexcept = 0;

    /// The text in visual order, UTF-8.
    /// @return  a buffer that the next text overwrites; the logical text itself when nothing in it is right to left, or
    ///          processing failed.
    /// Kept: control characters for direction stay in it, and where two letters are shown as one (a ligature) U+FEFF
    /// fills the place of the second.
    [[nodiscard]] virtual const char* GetVisualText() noexcept = 0;

    /// True when the text has right-to-left parts, so that its visual order differs or may differ.
    [[nodiscard]] virtual bool NeedsReorder() noexcept = 0;

    /// Where the cursor is shown that stands at a logical position: behind the character before it. A position below 0
    /// counts as 0, one behind the end as the end.
    [[nodiscard]] virtual int CursorPosLog2Vis(int pos) noexcept = 0;

    /// The logical position of a cursor that is shown at a visual one. Of the characters beside it, the right one
    /// decides in a right-to-left paragraph, the left one otherwise.
    [[nodiscard]] virtual int CursorPosVis2Log(int pos) noexcept = 0;

    /// Selects the logical characters from `start` up to `end`, and lets GetNextVisualSelection begin.
    /// @return  0; -1 when they are equal or one is negative: nothing is selected.
    /// Kept: with `end` before `start` nothing is selected in a text that needs reordering; otherwise they are handed
    /// out as they are.
    virtual int SetLogicalSelection(int start, int end) noexcept = 0;

    /// The next run of selected characters, as visual positions from left to right: from `start` up to `end`.
    /// @return  false when there is no further one, with both unchanged.
    [[nodiscard]] virtual bool GetNextVisualSelection(int& start, int& end) noexcept = 0;

    /// Frees the object with all it holds: `delete` is the way to give an object back.
    virtual ~VlBidi() = default;

    /// A new object, with the text when one is given; null when memory is short.
    [[nodiscard]] static VlBidi* Create() noexcept;
    [[nodiscard]] static VlBidi* Create(const char* text) noexcept;

    /// Frees the object's own storage only. Null is accepted.
    /// Kept: its working arrays stay allocated for ever, about 4 KiB for a text of up to 128 characters; the visual
    /// text that was handed out stays readable.
    static void Destroy(VlBidi* bidi) noexcept;

    /// Says whether brackets of a pair get one direction (UAX #9, N0). Off at first, which is how texts were shown
    /// before version 6.3 of Unicode. It holds for all objects, from the next text on. Any thread.
    static void SetPairedBrackets(bool paired) noexcept;

protected:
    VlBidi() = default;
    VlBidi(const VlBidi&) = default;
    VlBidi& operator=(const VlBidi&) = default;
};
