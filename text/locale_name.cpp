// The parts of a locale name.

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "vellcore/language.h"
#include "vellcore/text_helpers.h"

namespace vell {
namespace {

void put(char** result, std::string_view text) noexcept {
    if (result != nullptr) *result = vl_strdupn(text.data(), text.size());
}

void put_nothing(char** result) noexcept {
    if (result != nullptr) *result = nullptr;
}

}  // namespace
}  // namespace vell

void vl_locale_explode(const char* name, char** language, char** country, char** modifier, char** language_country,
                       char** language_modifier) noexcept {
    for (char** result : {language, country, modifier, language_country, language_modifier})
        vell::put_nothing(result);
    if (name == nullptr) return;
    const std::string_view whole(name);
    const size_t at = whole.find('@');
    const std::string_view before = whole.substr(0, at);
    const size_t underscore = before.find('_');
    const bool has_country = underscore != std::string_view::npos;
    const std::string_view plain_language = before.substr(0, underscore);
    vell::put(language, plain_language);
    if (has_country) {
        vell::put(country, before.substr(underscore + 1));
        vell::put(language_country, before);
    }
    if (at == std::string_view::npos) return;
    vell::put(modifier, whole.substr(at + 1));
    if (language_modifier == nullptr) return;
    char* text = vl_strdupn(plain_language.data(), plain_language.size());
    *language_modifier = text != nullptr ? vl_strdupcat(text, name + at) : nullptr;
    std::free(text);
}
