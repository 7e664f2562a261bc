#include "platform/system_version.h"

#include <sys/utsname.h>

#include <cstdio>

namespace vell {

void system_version(int32_t (&numbers)[3]) noexcept {
    numbers[0] = numbers[1] = numbers[2] = 0;
    utsname names{};
    if (uname(&names) != 0) return;
    int parts[3] = {};
    std::sscanf(names.release, "%d.%d.%d", &parts[0], &parts[1], &parts[2]);
    for (int i = 0; i < 3; ++i)
        numbers[i] = parts[i];
}

}  // namespace vell
