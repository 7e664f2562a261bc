// Volumes and free space. No state.

#include "vellcore/volumes.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>

#include "files/app_folders.h"
#include "platform/mount_table.h"

namespace vell {
namespace {

constexpr size_t k_designation_bytes = 32;

/// The mount point of `path` or of the nearest folder above it; `path` is cut on the way.
bool find_volume(char* path, char* mount_point, size_t capacity) noexcept {
    while (!mount_point_of(path, mount_point, capacity)) {
        char* slash = std::strrchr(path, '/');
        if (slash == nullptr || std::strcmp(path, "/") == 0) return false;
        slash[slash == path ? 1 : 0] = '\0';
    }
    return true;
}

/// Writes `value` with `decimals` digits and a unit; never by the C library, whose point depends on the locale.
void designate(char* out, double value, int decimals, const char (&unit)[4]) noexcept {
    constexpr size_t k_unit_bytes = 4;  // a blank, two letters, the terminator
    char* const end = out + k_designation_bytes - k_unit_bytes;
    std::memcpy(std::to_chars(out, end, value, std::chars_format::fixed, decimals).ptr, unit, k_unit_bytes);
}

}  // namespace
}  // namespace vell

bool vl_get_volumepath(const char* path, char* out, unsigned long long length) noexcept {
    if (path == nullptr || out == nullptr || length == 0) return false;
    char work[vell::k_path_bytes];
    const size_t path_length = strnlen(path, sizeof work - 1);
    std::memcpy(work, path, path_length);
    work[path_length] = '\0';
    char mount_point[PATH_MAX];
    if (!vell::find_volume(work, mount_point, sizeof mount_point)) return false;
    const size_t copied = strnlen(mount_point, length - 1);
    std::memcpy(out, mount_point, copied);
    out[copied] = out[length - 1] = '\0';
    return true;
}

unsigned long long vl_freespace(const char* path) noexcept {
    constexpr double k_beyond = 0x1p64;
    struct statvfs facts {};
    int result = -1;
    while (path != nullptr && (result = statvfs(path, &facts)) != 0 && errno == EINTR) {
    }
    if (result != 0) return ~0ULL;
    // Blocks are counted in fragments, which may be smaller than the file system's preferred block.
    const double bytes = static_cast<double>(facts.f_frsize) * static_cast<double>(facts.f_bavail);
    return bytes < k_beyond ? static_cast<unsigned long long>(bytes) : ~0ULL;
}

bool vl_byte_size_designation(unsigned long long bytes, char* out) noexcept {
    if (out == nullptr) return false;
    constexpr double k_step = 1024, k_mib = 1048576;
    const auto value = static_cast<double>(bytes);
    const double mib = value / k_mib, gib = mib / k_step;
    if (value <= k_mib) {
        vell::designate(out, value / k_step, 0, " Kb");
    } else if (mib <= k_step) {
        vell::designate(out, mib, 0, " Mb");
    } else if (gib <= k_step) {
        vell::designate(out, gib, 1, " Gb");
    } else {
        vell::designate(out, gib / k_step, 2, " Tb");
    }
    return true;
}

int vl_get_volumeinfo(const char*, unsigned int*, unsigned int*) noexcept {
    return 0;
}
bool vl_localpath(const char*) noexcept {
    return true;
}
void vl_set_systemdisk(int) noexcept {}
int cfg_sys_internals() noexcept {
    return 0;
}
bool is_removable_drive(const char*) noexcept {
    return false;
}
bool is_remote_network_drive(const char*) noexcept {
    return false;
}
