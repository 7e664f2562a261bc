// 64-bit ARM has no brand text: the name is the machine's, with the implementer and part of the main identification
// register.

#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>

#include "platform/linux/small_file.h"
#include "platform/processor.h"

namespace vell {

uint32_t processor_features() noexcept {
    return 0;
}

bool processor_brand(char* text, size_t capacity) noexcept {
    utsname system{};
    if (uname(&system) != 0) return false;
    char register_text[32];
    read_small_line("/sys/devices/system/cpu/cpu0/regs/identification/midr_el1", register_text, sizeof register_text);
    const unsigned long long identification = std::strtoull(register_text, nullptr, 0);
    const auto implementer = static_cast<unsigned>(identification >> 24 & 0xFF);
    const auto part = static_cast<unsigned>(identification >> 4 & 0xFFF);
    std::snprintf(text, capacity, "%s (%x,%x)", system.machine, implementer, part);
    return true;
}

bool is_arm64_build() noexcept {
    return true;
}

}  // namespace vell
