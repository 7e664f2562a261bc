#include "offload/whole_file.h"

#include <fcntl.h>

#include <cerrno>

#include "offload/descriptor.h"
#include "offload/destination.h"

namespace tool {
namespace {

constexpr mode_t k_file_mode = 0666;
constexpr mode_t k_private = 0600;
constexpr mode_t k_permissions = 0777;

int write_aside(int folder, const char* temporary, std::string_view text, mode_t mode) {
    const Descriptor file(disk_calls.open(folder, temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, k_private));
    if (!file.is_open()) return errno;
    const int error = append_all(file.get(), text);
    if (error != 0) return error;
    disk_calls.set_mode(file.get(), mode);
    return disk_calls.sync(file.get()) == 0 ? 0 : errno;
}

}  // namespace

int read_whole_file_at(int folder, const char* name, std::string& text) {
    const Descriptor file(disk_calls.open(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0));
    return file.is_open() ? read_small_file(file.get(), text) : errno;
}

int write_whole_file_at(int folder, const char* name, std::string_view text, mode_t mask) {
    struct stat old {};
    const bool has_old = disk_calls.facts(folder, name, &old) == 0;
    const std::string temporary = temporary_name();
    int error =
        write_aside(folder, temporary.c_str(), text, has_old ? old.st_mode & k_permissions : k_file_mode & ~mask);
    if (error == 0 && disk_calls.rename(folder, temporary.c_str(), name, /*replaces*/ true) != 0) error = errno;
    if (error != 0) {
        disk_calls.remove(folder, temporary.c_str());
        return error;
    }
    return disk_calls.sync(folder) == 0 ? 0 : errno;
}

}  // namespace tool
