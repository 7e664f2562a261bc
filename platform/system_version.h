// The version of the running system.
#pragma once

#include <cstdint>

namespace vell {

/// Major, minor and fix numbers of the system (of the kernel, where the system has none of its own); 0 for what is not
/// known.
void system_version(int32_t (&numbers)[3]) noexcept;

}  // namespace vell
