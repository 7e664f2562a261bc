// The XDG base directories and the locale variables of the environment.

#include "platform/known_folders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace vell {
namespace {

bool join(char* path, size_t capacity, const char* folder, const char* rest) noexcept {
    const int length = std::snprintf(path, capacity, "%s%s", folder, rest);
    if (length <= 0 || static_cast<size_t>(length) >= capacity) return false;
    for (size_t end = static_cast<size_t>(length); end > 1 && path[end - 1] == '/';)
        path[--end] = '\0';
    return true;
}

/// The variable's value when it is an absolute path: the base directories must not be relative.
const char* absolute_folder(const char* variable) noexcept {
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? value : nullptr;
}

}  // namespace

bool home_folder(const char* below, char* path, size_t capacity) noexcept {
    if (const char* home = absolute_folder("HOME")) return join(path, capacity, home, below);
    char text[4096];
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, text, sizeof text, &found) != 0 || found == nullptr) return false;
    return found->pw_dir != nullptr && found->pw_dir[0] == '/' && join(path, capacity, found->pw_dir, below);
}

bool application_support_folder(char* path, size_t capacity) noexcept {
    if (const char* folder = absolute_folder("XDG_DATA_HOME")) return join(path, capacity, folder, "");
    return home_folder("/.local/share", path, capacity);
}

bool application_folder(char* path, size_t capacity) noexcept {
    const char* folders = std::getenv("XDG_DATA_DIRS");
    std::string_view rest = folders != nullptr && *folders != '\0' ? folders : "/usr/local/share:/usr/share";
    while (!rest.empty()) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(rest.size(), folder.size() + 1));
        if (folder.empty() || folder.front() != '/') continue;
        const std::string_view below = folder.back() == '/' ? "applications" : "/applications";
        if (folder.size() + below.size() >= capacity) continue;
        folder.copy(path, folder.size());
        below.copy(path + folder.size(), below.size());
        path[folder.size() + below.size()] = '\0';
        struct stat facts {};
        if (stat(path, &facts) == 0 && S_ISDIR(facts.st_mode)) return true;
    }
    return join(path, capacity, "/usr/share/applications", "");
}

bool temporary_folder(char* path, size_t capacity) noexcept {
    const char* folder = std::getenv("TMPDIR");
    if (folder == nullptr || *folder == '\0') folder = "/tmp";
    const size_t length = std::strlen(folder);
    if (length >= capacity) return false;
    std::memcpy(path, folder, length + 1);
    return true;
}

bool user_locale(char* identifier, size_t capacity) noexcept {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') continue;
        // "de_AT.UTF-8@euro": the encoding and the variant are not part of the identifier.
        const size_t length = strcspn(value, ".@");
        if (length == 0 || length >= capacity) return false;
        std::memcpy(identifier, value, length);
        identifier[length] = '\0';
        return std::strcmp(identifier, "C") != 0 && std::strcmp(identifier, "POSIX") != 0;
    }
    return false;
}

}  // namespace vell
