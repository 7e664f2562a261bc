// VlBidi on texts whose order is known: visual text, cursor maps, selections, and what survives a new text.

#include "vellcore/bidirectional_text.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "text/bidi_impl.h"

namespace {

using Runs = std::vector<std::pair<int, int>>;

std::unique_ptr<VlBidi> bidi_of(const char* text, VlBidiDir dir = VL_BIDI_LTR) {
    std::unique_ptr<VlBidi> bidi(VlBidi::Create());
    bidi->SetBaseDir(dir);
    bidi->SetLogicalText(text);
    return bidi;
}

Runs selected_runs(VlBidi& bidi) {
    Runs runs;
    int start = -7, end = -7;
    while (bidi.GetNextVisualSelection(start, end))
        runs.emplace_back(start, end);
    return runs;
}

TEST(Bidi, ShowsTextsInVisualOrder) {
    const struct {
        const char* label;
        VlBidiDir dir;
        const char* logical;
        const char* visual;
    } rows[] = {
        {"Hebrew", VL_BIDI_LTR, "אבג", "גבא"},
        {"Hebrew between Latin", VL_BIDI_LTR, "ab אבג cd", "ab גבא cd"},
        {"the same, right to left", VL_BIDI_RTL, "ab אבג cd", "cd גבא ab"},
        {"numbers keep their order", VL_BIDI_RTL, "אב 123", "123 בא"},
        {"brackets are mirrored", VL_BIDI_RTL, "א(ב)", "(ב)א"},
        {"lines are reordered one by one", VL_BIDI_LTR, "אב\nגד\n\nab", "בא\nדג\n\nab"},
        {"Arabic letters take their forms, and a ligature leaves a filler", VL_BIDI_LTR, "سلام",
         "\xEF\xBB\xA1\xEF\xBB\xBC\xEF\xBB\xBF\xEF\xBA\xB3"},
        {"marks for direction stay", VL_BIDI_RTL, "א\u200Fב", "ב\u200Fא"},
    };
    for (const auto& row : rows) {
        const auto bidi = bidi_of(row.logical, row.dir);
        EXPECT_TRUE(bidi->NeedsReorder()) << row.label;
        EXPECT_STREQ(bidi->GetVisualText(), row.visual) << row.label;
    }
}

TEST(Bidi, LeavesAloneWhatNeedsNoReordering) {
    const char* plain = "plain text\nof two lines";
    const auto bidi = bidi_of(plain);
    EXPECT_FALSE(bidi->NeedsReorder());
    EXPECT_EQ(bidi->GetVisualText(), plain) << "the very pointer";
    for (const auto& [pos, expected] : {std::pair(-5, 0), {0, 0}, {7, 7}, {23, 23}, {99, 23}}) {
        EXPECT_EQ(bidi->CursorPosLog2Vis(pos), expected);
        EXPECT_EQ(bidi->CursorPosVis2Log(pos), expected);
    }
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        bidi->SetLogicalText(nothing);
        EXPECT_FALSE(bidi->NeedsReorder());
        EXPECT_EQ(bidi->GetVisualText(), nothing);
        EXPECT_EQ(bidi->CursorPosLog2Vis(-5), -5);
        EXPECT_EQ(bidi->CursorPosVis2Log(9), 9);
    }
}

TEST(Bidi, MapsCursorsBothWays) {
    const struct {
        const char* logical;
        VlBidiDir dir;
        std::vector<int> to_visual;
        std::vector<int> to_logical;
    } rows[] = {
        // Left to right, the cursor before the text stands where its first letter begins: on the right.
        {"אבג", VL_BIDI_LTR, {3, 2, 1, 0}, {3, 2, 1, 0}},
        {"אבג", VL_BIDI_RTL, {3, 2, 1, 0}, {3, 2, 1, 0}},
        {"abאב", VL_BIDI_LTR, {0, 1, 2, 3, 2}, {0, 1, 2, 3, 2}},
        {"abאב", VL_BIDI_RTL, {2, 3, 4, 1, 0}, {4, 3, 0, 1, 2}},
        {"א\nב", VL_BIDI_RTL, {1, 0, 1, 2}, {1, 0, 3, 2}},
    };
    for (const auto& row : rows) {
        const auto bidi = bidi_of(row.logical, row.dir);
        std::vector<int> to_visual, to_logical;
        for (int pos = 0; pos < static_cast<int>(row.to_visual.size()); ++pos) {
            to_visual.push_back(bidi->CursorPosLog2Vis(pos));
            to_logical.push_back(bidi->CursorPosVis2Log(pos));
        }
        EXPECT_EQ(to_visual, row.to_visual) << row.logical << " " << row.dir;
        EXPECT_EQ(to_logical, row.to_logical) << row.logical << " " << row.dir;
        EXPECT_EQ(bidi->CursorPosLog2Vis(-1), row.to_visual.front());
        EXPECT_EQ(bidi->CursorPosLog2Vis(99), row.to_visual.back());
    }
}

TEST(Bidi, ANewDirectionTouchesOnlyTheVisualCursorUntilTheNextText) {
    const auto bidi = bidi_of("abאב");
    const std::string before = bidi->GetVisualText();
    EXPECT_EQ(bidi->CursorPosVis2Log(2), 2) << "behind b";
    bidi->SetBaseDir(VL_BIDI_RTL);
    EXPECT_EQ(bidi->GetBaseDir(), VL_BIDI_RTL);
    EXPECT_EQ(bidi->GetVisualText(), before);
    EXPECT_EQ(bidi->CursorPosVis2Log(2), 4) << "before the last letter";
    bidi->SetLogicalText("abאב");
    EXPECT_NE(bidi->GetVisualText(), before);
}

TEST(Bidi, HandsSelectionsOutInVisualRuns) {
    const auto bidi = bidi_of("abאבגcd");  // shown as ab גבא cd
    EXPECT_TRUE(selected_runs(*bidi).empty());
    const struct {
        int start, end, result;
        Runs runs;
    } rows[] = {{1, 3, 0, {{1, 2}, {4, 5}}},
                {0, 7, 0, {{0, 7}}},
                {3, 6, 0, {{2, 4}, {5, 6}}},
                {5, 99, 0, {{5, 7}}},
                {2, 2, -1, {}},
                {-1, 3, -1, {}},
                {3, 1, 0, {}},
                {50, 60, 0, {}}};
    for (const auto& row : rows) {
        EXPECT_EQ(bidi->SetLogicalSelection(row.start, row.end), row.result);
        EXPECT_EQ(selected_runs(*bidi), row.runs) << row.start << " to " << row.end;
        EXPECT_TRUE(selected_runs(*bidi).empty()) << "handed out once";
    }
    const auto plain = bidi_of("plain");
    EXPECT_EQ(plain->SetLogicalSelection(4, 1), 0);
    EXPECT_EQ(selected_runs(*plain), (Runs{{4, 1}})) << "as it was set";
}

TEST(Bidi, ASelectionOutlivesItsTextWithoutHarm) {
    const std::string hebrew = "אבגדהוזחט";
    const auto bidi = bidi_of(hebrew.c_str());
    EXPECT_EQ(bidi->SetLogicalSelection(0, 9), 0);
    int start = 0, end = 0;
    EXPECT_TRUE(bidi->GetNextVisualSelection(start, end));
    bidi->SetLogicalSelection(0, 9);
    bidi->SetLogicalText("אב");
    EXPECT_EQ(selected_runs(*bidi), (Runs{{0, 2}}));
    std::string longer;
    for (int i = 0; i < 100; ++i)
        longer += hebrew;
    bidi->SetLogicalSelection(0, 2);
    bidi->SetLogicalText(longer.c_str());
    EXPECT_TRUE(selected_runs(*bidi).empty()) << "the arrays are new";
}

TEST(Bidi, GrowsToTheTextAndKeepsItsRoom) {
    VlBidiImpl bidi;
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "א";
    const struct {
        size_t letters;
        int capacity;
    } rows[] = {{1, 128}, {128, 128}, {129, 129}, {300, 300}, {5, 300}};
    for (const auto& row : rows) {
        const std::string part = text.substr(0, 2 * row.letters);
        bidi.SetLogicalText(part.c_str());
        EXPECT_STREQ(bidi.GetVisualText(), part.c_str());
        EXPECT_EQ(bidi.capacity, row.capacity);
    }
}

TEST(Bidi, DestroyFreesTheObjectAndNotItsArrays) {
    VlBidi::Destroy(nullptr);
    auto* bidi = static_cast<VlBidiImpl*>(VlBidi::Create("אבג"));
    const std::string visual = bidi->GetVisualText();
    char* const text = bidi->visual_text;
    uint32_t* const words[] = {bidi->logical, bidi->visual, bidi->types, bidi->selected};
    int8_t* const levels = bidi->levels;
    uint8_t* const joining = bidi->joining;
    int32_t* const maps[] = {bidi->to_visual, bidi->to_logical};
    VlBidi::Destroy(bidi);
    EXPECT_EQ(text, visual);
    // What stays for ever in a host is freed here, so that a leak of anything else shows.
    delete[] text;
    delete[] levels;
    delete[] joining;
    for (const uint32_t* array : words)
        delete[] array;
    for (const int32_t* array : maps)
        delete[] array;
}

}  // namespace
