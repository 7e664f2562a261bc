// Hidden are names with a dot in front, and names that stand in the folder's file ".hidden", one on each line, as the
// file managers of this system take it.

#include "platform/hidden_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/small_file.h"
#include "platform/lock.h"

namespace vell {
namespace {

constexpr size_t k_list_bytes_at_most = 1 << 20;

/// The folder's list; empty when it has none.
std::string read_list(int folder) noexcept {
    const CancelShield shield;
    std::string text;
    // Not waiting for a writer, should somebody have put a pipe there.
    const int file = openat(folder, ".hidden", O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return text;
    struct stat facts {};
    if (fstat(file, &facts) == 0 && S_ISREG(facts.st_mode)) read_whole_file(file, k_list_bytes_at_most, text);
    close(file);
    return text;
}

}  // namespace

HiddenNames::HiddenNames(int folder) noexcept : text_(read_list(folder)) {
    try {
        for (std::string_view rest = text_; !rest.empty();) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            if (!line.empty()) names_.push_back(line);
            rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        }
        std::sort(names_.begin(), names_.end());
    } catch (const std::bad_alloc&) {
        names_.clear();
    }
}

bool HiddenNames::hides(std::string_view name) const noexcept {
    if (name.empty() || name == "." || name == "..") return false;
    return name.front() == '.' || std::binary_search(names_.begin(), names_.end(), name);
}

bool is_hidden_item(const char* path) noexcept {
    std::string_view rest = path;
    while (rest.size() > 1 && rest.back() == '/')
        rest.remove_suffix(1);
    const size_t slash = rest.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? rest : rest.substr(slash + 1);
    char folder[4096] = ".";
    if (slash != std::string_view::npos) {
        const size_t length = std::max<size_t>(slash, 1);
        if (length >= sizeof folder) return false;
        folder[rest.copy(folder, length)] = '\0';
    }
    const CancelShield shield;
    struct stat facts {};
    if (name.empty() || lstat(path, &facts) != 0) return false;
    const int descriptor = open(folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return false;
    const bool is_hidden = HiddenNames(descriptor).hides(name);
    close(descriptor);
    return is_hidden;
}

}  // namespace vell
