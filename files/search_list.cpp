// Finding a file along the search list.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "files/app_folders.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

bool append_variable(PathText& path, std::string_view name) noexcept {
    char text[k_path_bytes];
    std::snprintf(text, sizeof text, "%.*s", static_cast<int>(name.size()), name.data());
    const char* value = std::getenv(text);
    if (value != nullptr) return path.append(value);
    msgdebug("Environment variable '%s' not found", text);
    return true;
}

/// Appends an entry with its "$NAME$"s replaced. A name that nothing closes ends with the entry. False when it does not
/// fit.
bool append_expanded(PathText& path, std::string_view entry) noexcept {
    while (!entry.empty()) {
        const size_t start = entry.find('$');
        if (!path.append(entry.substr(0, start))) return false;
        if (start == std::string_view::npos) return true;
        entry.remove_prefix(start + 1);
        const size_t end = entry.find('$');
        if (!append_variable(path, entry.substr(0, end))) return false;
        if (end == std::string_view::npos) return true;
        entry.remove_prefix(end + 1);
    }
    return true;
}

}  // namespace

bool find_in_list(const char* list, const char* name, PathText& out) noexcept {
    std::string_view rest(list);
    while (!rest.empty()) {
        const size_t end = rest.find('|');
        out.cut(0);
        const bool fits =
            append_expanded(out, rest.substr(0, end)) && (out.ends_in('/') || out.append("/")) && out.append(name);
        if (fits && file_exists(out.text())) return true;
        if (end == std::string_view::npos) return false;
        rest.remove_prefix(end + 1);
    }
    return false;
}

}  // namespace vell

int32_t file_find(const char* name, char* out) noexcept {
    if (name == nullptr || *name == '\0') {
        msgerror("Can't search for NULL file...");
        return 0;
    }
    vell::PathText found;
    if (!found.append(name)) return 0;
    if (!file_exists(name) && !vell::find_in_list(vell::app_folders().search_list, name, found)) return 0;
    if (out != nullptr && out != name) memcpy(out, found.text(), found.length() + 1);
    return 1;
}
