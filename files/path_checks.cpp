// What is at a path.

#include "files/path_checks.h"

#include <sys/stat.h>

#include <cstring>

#include "vellcore/file_operations.h"

namespace vell {
namespace {

/// The file type bits of what is at `path`; 0 when it cannot be examined.
mode_t file_type(const char* path) noexcept {
    struct stat facts {};
    return path != nullptr && stat(path, &facts) == 0 ? facts.st_mode & S_IFMT : 0;
}

}  // namespace

bool is_folder(const char* path) noexcept {
    return file_type(path) == S_IFDIR;
}

}  // namespace vell

bool file_exists(const char* path) noexcept {
    return vell::file_type(path) == S_IFREG;
}

bool file_is_directory(const char* path) noexcept {
    return vell::is_folder(path) && !file_is_bundle(path);
}

bool file_is_bundle(const char* path) noexcept {
    constexpr char k_bundle[] = ".app";
    constexpr size_t k_length = sizeof k_bundle - 1;
    const size_t length = path != nullptr ? strlen(path) : 0;
    return length >= k_length && memcmp(path + length - k_length, k_bundle, k_length) == 0;
}
