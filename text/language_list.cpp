#include "text/language_list.h"

#include <algorithm>

namespace vell {
namespace {

constexpr int64_t k_largest_code = 65535;  // a number above it has no place in the table of codes

/// The digits at the line's start, at most INT32_MAX.
int64_t leading_number(std::string_view line) noexcept {
    int64_t number = 0;
    for (const char c : line) {
        if (c < '0' || c > '9') break;
        number = std::min<int64_t>(number * 10 + (c - '0'), INT32_MAX);
    }
    return number;
}

}  // namespace

const char* LanguageList::keep(std::string_view text) {
    return texts_.emplace_back(text).c_str();
}

void LanguageList::add_line(std::string_view line) {
    if (line.empty() || line.front() == '#') return;
    ++lines_;
    const int64_t number = leading_number(line);
    if (number <= k_largest_code && codes_.size() <= static_cast<size_t>(number))
        codes_.resize(static_cast<size_t>(number) + 1);
    const size_t first = line.find(':');
    const size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
    if (second == std::string_view::npos) return;
    const std::string_view code = line.substr(second + 1, line.find(':', second + 1) - second - 1);
    vl_lang_enum_item item{};
    item.value = static_cast<int32_t>(number);
    item.name = keep(line.substr(first + 1, second - first - 1));
    item.identifier = keep(code);
    item.description = keep(number != 0 ? code : std::string_view());
    // Number 0 is the user's own language: its code is empty, which is what vl_lang_set takes for that.
    if (number <= k_largest_code && (number != 0 || !code.empty()))
        codes_[static_cast<size_t>(number)] = item.description;
    menu_.push_back(item);
}

void LanguageList::finish() {
    vl_lang_enum_item terminator{};
    terminator.name = terminator.description = "";
    menu_.push_back(terminator);
    menu_.resize(lines_ + 1);
}

const char* LanguageList::code(uint32_t number) const noexcept {
    return number < codes_.size() ? codes_[number] : nullptr;
}

}  // namespace vell
