// The catalogs are the library's: "<folder>/<language>/LC_MESSAGES/gantry.mo". An English user's start opens none.

#include "ui/translation.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <vector>

#include "ui/format_directives.h"
#include "vellcore/language.h"

namespace tool {
namespace {

/// "sr_RS.UTF-8@latin" is "sr_RS" and "@latin".
struct LocaleName {
    std::string place;
    std::string modifier;
    [[nodiscard]] std::string language() const { return place.substr(0, place.find('_')); }
    [[nodiscard]] std::string code() const { return place + modifier; }
};

LocaleName parse_locale_name(std::string_view text) {
    const size_t at = std::min(text.find('@'), text.size());
    const std::string_view before = text.substr(0, at);
    return {std::string(before.substr(0, before.find('.'))), std::string(text.substr(at))};
}

std::string_view environment_text(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr ? value : "";
}

/// The user's languages, the favourite first.
std::vector<LocaleName> wanted_languages() {
    std::string_view locale;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (locale.empty()) locale = environment_text(variable);
    }
    const LocaleName own = parse_locale_name(locale);
    if (own.place.empty() || own.place == "C" || own.place == "POSIX") return {};
    std::vector<LocaleName> wanted;
    std::string_view list = environment_text("LANGUAGE");
    while (!list.empty()) {
        const size_t end = std::min(list.find(':'), list.size());
        if (end > 0) wanted.push_back(parse_locale_name(list.substr(0, end)));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    wanted.push_back(own);
    return wanted;
}

/// True when one of the languages on offer is the wanted one, perhaps of another country. A language that is offered in
/// one script only is none for readers of the other.
bool is_on_offer(const LocaleName& wanted) {
    const vl_lang_enum_item* item = vl_RNA_lang_enum_properties();
    for (; item != nullptr && item->identifier != nullptr; ++item) {
        const LocaleName offered = parse_locale_name(item->identifier);
        const bool has_script = offered.modifier.empty() || offered.modifier == wanted.modifier;
        if (offered.language() == wanted.language() && has_script) return true;
    }
    return false;
}

bool is_english(const LocaleName& name) {
    return name.language() == "en";
}

}  // namespace

std::string locale_folder(const std::string& program) {
    std::error_code error;
    const std::filesystem::path file = std::filesystem::canonical(program, error);
    if (error) return "";
    for (const char* below : {"locale", VELL_LOCALE_FROM_PROGRAM}) {
        const std::filesystem::path folder = (file.parent_path() / below).lexically_normal();
        if (std::filesystem::is_regular_file(folder / "languages", error)) return folder.string();
    }
    return "";
}

void choose_language(const std::string& program) {
    const std::vector<LocaleName> wanted = wanted_languages();
    if (wanted.empty() || is_english(wanted.front())) return;
    const std::string folder = locale_folder(program);
    if (folder.empty() || !vl_lang_init_from(folder.c_str())) return;
    for (const LocaleName& name : wanted) {
        if (is_english(name)) return;
        if (is_on_offer(name)) return vl_lang_set(name.code().c_str());
    }
}

const char* tr(const char* context, const char* text) {
    const char* translation = vl_pgettext(context, text);
    // A catalog is a file like any other: what it says is not trusted to be a format for our arguments.
    const bool is_format = std::strchr(text, '%') != nullptr;
    return is_format && translation != text && !take_same_arguments(text, translation) ? text : translation;
}

std::string formatted(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace tool
