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

/// A path that is put together piece by piece and remembers whether all pieces fitted.
class PathText {
public:
    explicit PathText(char (&out)[k_path_bytes]) noexcept : out_(out) { out_[0] = '\0'; }

    void append(std::string_view piece) noexcept {
        if (piece.size() >= k_path_bytes - length_) {
            fits_ = false;
            return;
        }
        std::memcpy(out_ + length_, piece.data(), piece.size());
        length_ += piece.size();
        out_[length_] = '\0';
    }
    void append_variable(std::string_view name) noexcept {
        char text[k_path_bytes];
        std::snprintf(text, sizeof text, "%.*s", static_cast<int>(name.size()), name.data());
        const char* value = std::getenv(text);
        if (value != nullptr) {
            append(value);
        } else {
            msgdebug("Environment variable '%s' not found", text);
        }
    }
    [[nodiscard]] bool ends_in_slash() const noexcept { return length_ > 0 && out_[length_ - 1] == '/'; }
    [[nodiscard]] bool fits() const noexcept { return fits_; }

private:
    char* out_;
    size_t length_ = 0;
    bool fits_ = true;
};

/// An entry with its "$NAME$"s replaced. A name that nothing closes ends with the entry.
void expand(PathText& path, std::string_view entry) noexcept {
    while (!entry.empty()) {
        const size_t start = entry.find('$');
        path.append(entry.substr(0, start));
        if (start == std::string_view::npos) return;
        entry.remove_prefix(start + 1);
        const size_t end = entry.find('$');
        path.append_variable(entry.substr(0, end));
        if (end == std::string_view::npos) return;
        entry.remove_prefix(end + 1);
    }
}

}  // namespace

bool find_in_list(const char* list, const char* name, char (&out)[k_path_bytes]) noexcept {
    std::string_view rest(list);
    while (!rest.empty()) {
        const size_t end = rest.find('|');
        PathText path(out);
        expand(path, rest.substr(0, end));
        if (!path.ends_in_slash()) path.append("/");
        path.append(name);
        if (path.fits() && file_exists(out)) return true;
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
    char found[vell::k_path_bytes];
    const char* path = name;
    if (!file_exists(name)) {
        if (!vell::find_in_list(vell::app_folders().search_list, name, found)) return 0;
        path = found;
    }
    if (out != nullptr && out != name) std::snprintf(out, vell::k_path_bytes, "%s", path);
    return 1;
}
