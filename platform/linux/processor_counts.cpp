// Counts from the affinity mask and from the topology in /sys.

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/linux/control_group.h"
#include "platform/linux/small_file.h"
#include "platform/processor.h"

namespace vell {
namespace {

constexpr int k_most_processors = 8192;  // what the kernel can be built for

/// The processors that this process may run on.
class AffinityMask {
public:
    AffinityMask() noexcept {
        CPU_ZERO_S(sizeof bits_, bits_);
        if (sched_getaffinity(0, sizeof bits_, bits_) != 0) CPU_ZERO_S(sizeof bits_, bits_);
    }
    [[nodiscard]] bool has(int processor) const noexcept {
        return CPU_ISSET_S(static_cast<size_t>(processor), sizeof bits_, bits_);
    }
    [[nodiscard]] uint32_t count() const noexcept { return static_cast<uint32_t>(CPU_COUNT_S(sizeof bits_, bits_)); }

private:
    cpu_set_t bits_[k_most_processors / CPU_SETSIZE];
};

/// The control group's quota; 0 without one.
uint64_t quota_thousandths() noexcept {
    char membership[4096];
    read_small_file("/proc/self/cgroup", membership, sizeof membership);
    const uint64_t quota = control_group_processor_limit("/sys/fs/cgroup", membership);
    return quota == k_no_limit ? 0 : quota;
}

/// The lowest processor of the core that `processor` belongs to, or -1 when the topology is not told.
int first_of_core(int processor) noexcept {
    for (const char* file : {"core_cpus_list", "thread_siblings_list"}) {
        char path[96];
        char list[256];
        std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%d/topology/%s", processor, file);
        if (read_small_line(path, list, sizeof list) > 0) return std::atoi(list);
    }
    return -1;
}

}  // namespace

ProcessorCounts count_processors() noexcept {
    const AffinityMask allowed;
    bool is_core_seen[k_most_processors] = {};
    uint32_t cores = 0;
    for (int processor = 0; processor < k_most_processors; ++processor) {
        if (!allowed.has(processor)) continue;
        const int core = first_of_core(processor);
        // Without a topology each hardware thread is taken for a core of its own.
        const int counted = core >= 0 && core < k_most_processors ? core : processor;
        if (!is_core_seen[counted]) ++cores;
        is_core_seen[counted] = true;
    }
    return {cores, allowed.count()};
}

ProcessorLimits processor_limits() noexcept {
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return {static_cast<uint32_t>(std::max(online, 0L)), AffinityMask().count(), quota_thousandths()};
}

uint32_t allowed_processors() noexcept {
    return whole_processors(AffinityMask().count(), quota_thousandths());
}

bool is_translated() noexcept {
    return false;
}

bool machine_model(char* text, size_t capacity) noexcept {
    return read_small_line("/sys/class/dmi/id/product_name", text, capacity) > 0 ||
           read_small_line("/proc/device-tree/model", text, capacity) > 0;
}

}  // namespace vell
