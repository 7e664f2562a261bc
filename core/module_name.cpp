// The module's path is written by start-up and only read afterwards.

#include "core/module_name.h"

#include <unistd.h>

#include <cstring>

#include "vellcore/startup.h"

namespace vell {
namespace {

constexpr size_t k_name_bytes = 1024;  // terminator included

char module_name[k_name_bytes];  // empty while it is not known

}  // namespace

void set_module_name(const char* path) noexcept {
    module_name[0] = '\0';
    if (path == nullptr) return;
    size_t length = 0;
    if (path[0] != '/') {
        if (getcwd(module_name, sizeof module_name) == nullptr) {
            module_name[0] = '\0';
            return;
        }
        length = strlen(module_name);
        if (module_name[length - 1] != '/' && length < k_name_bytes - 1) module_name[length++] = '/';
    }
    const size_t added = strnlen(path, k_name_bytes - 1 - length);
    std::memcpy(module_name + length, path, added);
    module_name[length + added] = '\0';
}

}  // namespace vell

bool vl_modulename(char* destination, int32_t length) noexcept {
    if (destination == nullptr || length <= 0 || vell::module_name[0] == '\0') return false;
    std::strncpy(destination, vell::module_name, static_cast<size_t>(length));
    return true;
}
