// Physical memory from sysconf, bounded by the control group's limit.

#include "platform/memory_size.h"

#include <unistd.h>

#include <algorithm>

#include "platform/linux/control_group.h"
#include "platform/linux/small_file.h"

namespace vell {

uint64_t physical_memory_bytes() noexcept {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long page_bytes = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || page_bytes <= 0) return 0;
    char membership[4096];
    read_small_file("/proc/self/cgroup", membership, sizeof membership);
    return std::min(static_cast<uint64_t>(pages) * static_cast<uint64_t>(page_bytes),
                    control_group_memory_limit("/sys/fs/cgroup", membership));
}

}  // namespace vell
