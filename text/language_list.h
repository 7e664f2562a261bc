// The file that lists the languages on offer.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "vellcore/language.h"

namespace vell {

/// The menu of languages with its texts.
class LanguageList {
public:
    /// Takes in one line of the file.
    void add_line(std::string_view line);
    /// Puts the terminator behind the items; lines that were no items leave zeros behind it.
    void finish();

    [[nodiscard]] vl_lang_enum_item* menu() noexcept { return menu_.data(); }
    /// The code of a language's number, which vl_lang_set takes; null where the file has no such number.
    [[nodiscard]] const char* code(uint32_t number) const noexcept;

private:
    const char* keep(std::string_view text);

    std::deque<std::string> texts_;  // their addresses stay
    std::vector<vl_lang_enum_item> menu_;
    std::vector<const char*> codes_;
    size_t lines_ = 0;  // that were counted as items
};

}  // namespace vell
