// A process is in one group of the unified hierarchy ("0::/a/b") and, on older systems, in one group of each
// controller's own hierarchy ("4:memory:/a/b"). Inside a container the path may be that of the host, which is not
// visible here: the walk up then ends at the mount's root, which is the container's own group.

#include "platform/linux/control_group.h"

#include <algorithm>
#include <cstdio>
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

/// Reads one number, or two, of the file `name` in a group's folder. @return  how many were read.
int read_numbers(const char* folder, const char* name, long long& first, long long& second) noexcept {
    char path[k_path_bytes];
    char text[64];
    const int length = std::snprintf(path, sizeof path, "%s/%s", folder, name);
    if (length <= 0 || static_cast<size_t>(length) >= sizeof path) return 0;
    if (read_small_line(path, text, sizeof text) == 0) return 0;
    return std::max(std::sscanf(text, "%lld %lld", &first, &second), 0);
}

uint64_t bytes_limit(const char* folder, const char* name) noexcept {
    long long bytes = 0;
    long long unused = 0;
    return read_numbers(folder, name, bytes, unused) > 0 && bytes >= 0 ? static_cast<uint64_t>(bytes) : k_no_limit;
}

uint64_t thousandths(long long quota_us, long long period_us) noexcept {
    if (quota_us <= 0 || period_us <= 0) return k_no_limit;
    return std::max<uint64_t>(static_cast<uint64_t>(quota_us) * 1000 / static_cast<uint64_t>(period_us), 1);
}

/// A limit and how the folders of the two kinds of hierarchy tell it.
struct LimitKind {
    const char* controller;                    ///< also the folder of the controller's own hierarchy
    uint64_t (*unified)(const char* folder);   ///< the limit in a folder of the unified hierarchy
    uint64_t (*separate)(const char* folder);  ///< in one of the controller's own
};

constexpr LimitKind k_memory = {
    "memory",
    [](const char* folder) { return bytes_limit(folder, "memory.max"); },
    [](const char* folder) { return bytes_limit(folder, "memory.limit_in_bytes"); },
};

constexpr LimitKind k_processor = {
    "cpu",
    [](const char* folder) {
        long long quota_us = 0;
        long long period_us = 0;
        return read_numbers(folder, "cpu.max", quota_us, period_us) == 2 ? thousandths(quota_us, period_us)
                                                                         : k_no_limit;
    },
    [](const char* folder) {
        long long quota_us = 0;
        long long period_us = 0;
        long long unused = 0;
        if (read_numbers(folder, "cpu.cfs_quota_us", quota_us, unused) == 0) return k_no_limit;
        if (read_numbers(folder, "cpu.cfs_period_us", period_us, unused) == 0) return k_no_limit;
        return thousandths(quota_us, period_us);
    },
};

/// The smallest limit from the group at `path` up to the root of its hierarchy.
uint64_t smallest_on_the_way_up(const char* hierarchy, std::string_view path,
                                uint64_t (*limit_of)(const char* folder)) noexcept {
    uint64_t limit = k_no_limit;
    while (true) {
        while (!path.empty() && path.back() == '/')
            path.remove_suffix(1);
        char folder[k_path_bytes];
        const int length =
            std::snprintf(folder, sizeof folder, "%s%.*s", hierarchy, static_cast<int>(path.size()), path.data());
        if (length > 0 && static_cast<size_t>(length) < sizeof folder) limit = std::min(limit, limit_of(folder));
        if (path.empty()) return limit;
        const size_t parent = path.rfind('/');
        path = path.substr(0, parent == std::string_view::npos ? 0 : parent);
    }
}

uint64_t limit_of_groups(const LimitKind& kind, const char* root, std::string_view memberships) noexcept {
    uint64_t limit = k_no_limit;
    while (!memberships.empty()) {
        const size_t end = std::min(memberships.find('\n'), memberships.size());
        const Membership group = parse_membership(memberships.substr(0, end));
        memberships.remove_prefix(std::min(end + 1, memberships.size()));
        // A path that leaves its mount ("/..") says nothing about the groups that are visible below it.
        const std::string_view path = group.path.find("/..") == std::string_view::npos ? group.path : "";
        if (names_controller(group.controllers, kind.controller)) {
            char hierarchy[k_path_bytes];
            std::snprintf(hierarchy, sizeof hierarchy, "%s/%s", root, kind.controller);
            limit = std::min(limit, smallest_on_the_way_up(hierarchy, path, kind.separate));
        } else if (group.controllers.empty() && !group.path.empty()) {
            limit = std::min(limit, smallest_on_the_way_up(root, path, kind.unified));
        }
    }
    return limit;
}

}  // namespace

uint64_t control_group_memory_limit(const char* root, const char* membership) noexcept {
    return limit_of_groups(k_memory, root, membership);
}

uint64_t control_group_processor_limit(const char* root, const char* membership) noexcept {
    return limit_of_groups(k_processor, root, membership);
}

}  // namespace vell
