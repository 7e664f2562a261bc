// The kernel's list of mounts: the first byte is the mount looked for, then the list.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/mount_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view table(reinterpret_cast<const char*>(data) + 1, size - 1);
    char out[32];
    const bool is_found = vell::find_in_mount_table(table, data[0], out, sizeof out);
    if (is_found && (std::memchr(out, '\0', sizeof out) == nullptr || *out == '\0')) std::abort();
    return 0;
}
