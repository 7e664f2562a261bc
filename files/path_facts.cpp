// Sizes and times of what is at a path. Symbolic links are followed.

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/calendar_time.h"
#include "platform/posix/file_calls.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/file_operations.h"

namespace vell {
namespace {

bool examine(const char* path, struct stat& facts) noexcept {
    return path != nullptr && stat(path, &facts) == 0;
}

/// True when a text of `length` bytes, as snprintf and strftime tell it, was written whole.
bool fits(int length, int32_t size) noexcept {
    return length > 0 && length < size;
}

bool write_local(int64_t seconds, char* out, int32_t size) noexcept {
    std::tm local{};
    if (!local_fields(static_cast<time_t>(seconds), local)) return false;
    const int year = (local.tm_year % 100 + 100) % 100;
    return fits(std::snprintf(out, static_cast<size_t>(size), "%2d-%02d-%02d %2d:%02d", local.tm_mday, local.tm_mon + 1,
                              year, local.tm_hour, local.tm_min),
                size);
}

bool write_local_date(time_t seconds, char* out, int32_t size) noexcept {
    std::tm local{};
    if (!local_fields(seconds, local)) return false;
    return fits(std::snprintf(out, static_cast<size_t>(size), "%d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1,
                              local.tm_mday),
                size);
}

bool write_utc(time_t seconds, char* out, int32_t size) noexcept {
    std::tm utc{};
    if (!utc_fields(seconds, utc)) return false;
    return std::strftime(out, static_cast<size_t>(size), "%Y-%m-%dT%H:%M:%SZ", &utc) > 0;
}

/// What the text functions leave behind when they fail.
bool cleared(char* out) noexcept {
    *out = '\0';
    return false;
}

}  // namespace
}  // namespace vell

bool file_is_hidden(const char* folder, const char* name) noexcept {
    if (folder == nullptr || *folder == '\0' || name == nullptr) return false;
    char path[PATH_MAX];
    const char* between = folder[strlen(folder) - 1] == '/' ? "" : "/";
    const int length = std::snprintf(path, sizeof path, "%s%s%s", folder, between, name);
    return length > 0 && static_cast<size_t>(length) < sizeof path && cocoa_file_is_hidden(path);
}

bool file_in_use(const char* path) noexcept {
    if (path == nullptr) return true;
    const int file = vell::file_calls.open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0);
    if (file < 0) return true;
    vell::file_calls.close(file);
    return false;
}

uint64_t file_size(const char* path) noexcept {
    struct stat facts {};
    return vell::examine(path, facts) && S_ISREG(facts.st_mode) ? static_cast<uint64_t>(facts.st_size) : 0;
}

int64_t file_get_modified_ts(const char* path) noexcept {
    struct stat facts {};
    return vell::examine(path, facts) ? facts.st_mtime : 0;
}

bool file_set_modified_ts(const char* path, int64_t seconds) noexcept {
    if (path == nullptr) return false;
    const timespec time{static_cast<time_t>(seconds), 0};
    const timespec both[2] = {time, time};
    return utimensat(AT_FDCWD, path, both, 0) == 0;
}

void file_ts_2_txt(int64_t seconds, char* out, int32_t size) noexcept {
    if (out == nullptr || size < 1) return;
    if (!vell::write_local(seconds, out, size)) *out = '\0';
}

bool file_get_local_datetime_str(const char* path, char* out, int32_t size) noexcept {
    if (out == nullptr || size < 1) return false;
    struct stat facts {};
    return (vell::examine(path, facts) && vell::write_local(facts.st_mtime, out, size)) || vell::cleared(out);
}

bool file_get_mod_date_str(const char* path, char* out, int32_t size, bool utc) noexcept {
    if (out == nullptr || size < 1) return false;
    struct stat facts {};
    const auto write = utc ? vell::write_utc : vell::write_local_date;
    return (vell::examine(path, facts) && write(facts.st_mtime, out, size)) || vell::cleared(out);
}
