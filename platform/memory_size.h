// How much memory this process may use.
//
// To port: the physical memory, or whatever smaller limit the system has put on the process.
#pragma once

#include <cstdint>

namespace vell {

/// The machine's physical memory in bytes, or the limit of the process's control group where that is smaller: a
/// process that plans with more is killed. 0 when the system does not tell.
[[nodiscard]] uint64_t physical_memory_bytes() noexcept;

}  // namespace vell
