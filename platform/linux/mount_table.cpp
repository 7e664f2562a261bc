// The kernel numbers mounts and lists them in /proc/self/mountinfo. The number of a path's mount is right for bind
// mounts, over-mounts and subvolumes, where comparing paths or device numbers is not. In a chroot whose root is no
// mount the number is not listed; the device numbers decide then.

#include "platform/mount_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "platform/linux/small_file.h"
#include "platform/lock.h"

namespace vell {
namespace {

constexpr size_t k_table_bytes_at_most = 16 << 20;
constexpr size_t k_mount_point_field = 4;  // of a line, counted from 0; the number is field 0

std::string_view take_until(std::string_view& rest, char end) noexcept {
    const std::string_view taken = rest.substr(0, rest.find(end));
    rest.remove_prefix(taken.size() < rest.size() ? taken.size() + 1 : rest.size());
    return taken;
}

bool is_octal(char digit) noexcept {
    return digit >= '0' && digit <= '7';
}

/// Blanks, line ends and backslashes are written as "\" and three octal digits.
bool decode(std::string_view text, char* out, size_t capacity) noexcept {
    size_t length = 0;
    for (size_t at = 0; at < text.size(); ++length) {
        if (length + 1 >= capacity) return false;
        if (text[at] == '\\' && at + 3 < text.size() && is_octal(text[at + 1]) && is_octal(text[at + 2]) &&
            is_octal(text[at + 3])) {
            out[length] = static_cast<char>((text[at + 1] - '0') * 64 + (text[at + 2] - '0') * 8 + text[at + 3] - '0');
            at += 4;
        } else {
            out[length] = text[at++];
        }
        if (out[length] == '\0') return false;  // no path has one
    }
    if (length == 0 || capacity == 0) return false;
    out[length] = '\0';
    return true;
}

bool find_by_mount_id(const char* path, char* out, size_t capacity) noexcept {
    struct statx facts {};
    if (statx(AT_FDCWD, path, 0, STATX_MNT_ID, &facts) != 0 || (facts.stx_mask & STATX_MNT_ID) == 0) return false;
    const CancelShield shield;
    std::string table;
    const int file = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool is_read = read_whole_file(file, k_table_bytes_at_most, table);
    close(file);
    return is_read && find_in_mount_table(table, facts.stx_mnt_id, out, capacity);
}

/// Goes up from `path` as long as the device stays the same.
bool find_by_device(const char* path, char* out, size_t capacity) noexcept {
    char folder[PATH_MAX];
    struct stat facts {};
    if (realpath(path, folder) == nullptr || stat(folder, &facts) != 0) return false;
    const dev_t device = facts.st_dev;
    size_t length = std::strlen(folder);
    while (length > 1) {
        const size_t slash = std::string_view(folder, length).rfind('/');
        const size_t above = slash > 0 ? slash : 1;
        const char kept = std::exchange(folder[above], '\0');
        const bool is_same = stat(folder, &facts) == 0 && facts.st_dev == device;
        if (!is_same) {
            folder[above] = kept;
            break;
        }
        length = above;
    }
    if (length >= capacity) return false;
    std::memcpy(out, folder, length + 1);
    return true;
}

}  // namespace

bool find_in_mount_table(std::string_view table, uint64_t mount_id, char* out, size_t capacity) noexcept {
    while (!table.empty()) {
        std::string_view line = take_until(table, '\n');
        const std::string_view number = take_until(line, ' ');
        uint64_t id = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), id);
        if (error != std::errc() || end != number.data() + number.size() || id != mount_id) continue;
        for (size_t field = 1; field < k_mount_point_field; ++field)
            take_until(line, ' ');
        return decode(take_until(line, ' '), out, capacity);
    }
    return false;
}

bool mount_point_of(const char* path, char* out, size_t capacity) noexcept {
    return find_by_mount_id(path, out, capacity) || find_by_device(path, out, capacity);
}

}  // namespace vell
