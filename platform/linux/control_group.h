// What the process's control group allows.
#pragma once

#include <cstdint>

namespace vell {

/// What a control group without a limit answers.
inline constexpr uint64_t k_no_limit = UINT64_MAX;

/// The memory limit in bytes of the control group that the process is in, or the smallest of those above it.
///
/// @param root        where the hierarchies are mounted: /sys/fs/cgroup.
/// @param membership  the text of /proc/self/cgroup.
[[nodiscard]] uint64_t control_group_memory_limit(const char* root, const char* membership) noexcept;

/// The processor time that it allows, the smallest on the way up, in thousandths of one processor.
[[nodiscard]] uint64_t control_group_processor_limit(const char* root, const char* membership) noexcept;

}  // namespace vell
