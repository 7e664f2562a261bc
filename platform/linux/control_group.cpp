// A process is in one group of the unified hierarchy ("0::/a/b") and, on older systems, in one group of each
// controller's own hierarchy ("4:memory:/a/b"). Inside a container the path may be that of the host, which is not
// visible here: the walk up then ends at the mount's root, which is the container's own group.

#include "platform/linux/control_group.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/linux/small_file.h"

namespace vell {
namespace {

constexpr size_t k_path_bytes = 4096;

/// One line of /proc/self/cgroup: "number:controllers:path".
struct Membership {
    std::string_view controllers;
    std::string_view path;
};

Membership parse_membership(std::string_view line) noexcept {
    const size_t first = line.find(':');
    const size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
    if (second == std::string_view::npos) return {};
    return {line.substr(first + 1, second - first - 1), line.substr(second + 1)};
}

bool names_controller(std::string_view list, std::string_view wanted) noexcept {
    while (!list.empty()) {
        const size_t comma = std::min(list.find(','), list.size());
        if (list.substr(0, comma) == wanted) return true;
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return false;
}

uint64_t read_limit(const char* path) noexcept {
    char text[32];
    if (read_small_line(path, text, sizeof text) == 0 || text[0] < '0' || text[0] > '9') return k_no_limit;
    errno = 0;
    const unsigned long long value = std::strtoull(text, nullptr, 10);
    return errno == 0 ? value : k_no_limit;
}

/// The smallest limit in `file` from the group at `path` up to the root of its hierarchy.
uint64_t smallest_limit(const char* root, const char* hierarchy, std::string_view path, const char* file) noexcept {
    uint64_t limit = k_no_limit;
    while (true) {
        while (!path.empty() && path.back() == '/')
            path.remove_suffix(1);
        char name[k_path_bytes];
        const int length = std::snprintf(name, sizeof name, "%s%s%.*s/%s", root, hierarchy,
                                         static_cast<int>(path.size()), path.data(), file);
        if (length > 0 && static_cast<size_t>(length) < sizeof name) limit = std::min(limit, read_limit(name));
        if (path.empty()) return limit;
        path = path.substr(0, path.rfind('/') == std::string_view::npos ? 0 : path.rfind('/'));
    }
}

}  // namespace

uint64_t control_group_memory_limit(const char* root, const char* membership) noexcept {
    uint64_t limit = k_no_limit;
    std::string_view rest(membership);
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const Membership group = parse_membership(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        // A path that leaves its mount ("/..") says nothing about the groups that are visible below it.
        const std::string_view path = group.path.find("/..") == std::string_view::npos ? group.path : "";
        if (names_controller(group.controllers, "memory")) {
            limit = std::min(limit, smallest_limit(root, "/memory", path, "memory.limit_in_bytes"));
        } else if (group.controllers.empty() && !group.path.empty()) {
            limit = std::min(limit, smallest_limit(root, "", path, "memory.max"));
        }
    }
    return limit;
}

}  // namespace vell
