// Old copies of a file: base.1.ext is the youngest.

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "platform/posix/file_calls.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr int32_t k_most_copies = 9999;

/// A path cut in front of and behind the last "." of its name.
struct SplitPath {
    int base_length;
    const char* extension;  ///< behind the "."; empty when there is none
};

SplitPath split(const char* path) noexcept {
    const char* slash = strrchr(path, '/');
    const char* dot = strrchr(slash != nullptr ? slash : path, '.');
    if (dot == nullptr) dot = path + strlen(path);
    return {static_cast<int>(dot - path), *dot == '.' ? dot + 1 : dot};
}

/// The path of copy `number`; copy 0 is the file itself. False when it is too long for any file.
bool name_copy(char (&out)[PATH_MAX], const char* path, const SplitPath& parts, int32_t number) noexcept {
    const int length =
        number == 0 ? std::snprintf(out, sizeof out, "%s", path)
                    : std::snprintf(out, sizeof out, "%.*s.%d.%s", parts.base_length, path, number, parts.extension);
    return length > 0 && static_cast<size_t>(length) < sizeof out;
}

/// Renames a copy. file_move refuses a destination without a folder, which a log in the current folder is.
bool rename_copy(const char* older, const char* newer) noexcept {
    if (strchr(newer, '/') == nullptr) return file_calls.rename(older, newer) == 0;
    return file_move(older, newer, /*overwrite*/ true) == 0;
}

/// Moves one copy to the next number. @return true when it was moved.
bool shift_copy(const char* older, const char* newer) noexcept {
    if (!file_exists(older)) return false;
    if (file_exists(newer) && file_delete(newer) != 0) {
        msgerror("F-BK: Failed to remove...(%s)", _errormsg());
        msgcont("File: '%s'", newer);
    }
    if (rename_copy(older, newer)) return true;
    msgerror("F-BK: Failed to rename...(%s)", _errormsg());
    msgcont("File: '%s'", older);
    return false;
}

}  // namespace
}  // namespace vell

int32_t file_backup(const char* path, int32_t keep) noexcept {
    if (path == nullptr || *path == '\0' || strlen(path) >= PATH_MAX) return 0;
    const vell::SplitPath parts = vell::split(path);
    int32_t moved = 0;
    for (int32_t number = std::min(keep, vell::k_most_copies) - 1; number >= 0; --number) {
        char older[PATH_MAX];
        char newer[PATH_MAX];
        if (!vell::name_copy(older, path, parts, number) || !vell::name_copy(newer, path, parts, number + 1)) continue;
        if (vell::shift_copy(older, newer)) ++moved;
    }
    return moved;
}
