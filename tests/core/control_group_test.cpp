// The memory that a control group leaves the process.

#include "platform/linux/control_group.h"

#include <unistd.h>

#include "platform/memory_size.h"
#include "support/temporary_folder.h"

namespace {

struct LimitCase {
    const char* label;
    const char* membership;
    uint64_t limit;
};

TEST(ControlGroup, TakesTheSmallestLimitOnTheWayUp) {
    const TemporaryFolder root;
    root.write("a/memory.max", "max\n");
    root.write("a/b/memory.max", "3000\n");
    root.write("a/b/c/memory.max", "5000\n");
    root.write("memory/memory.limit_in_bytes", "9223372036854771712\n");
    root.write("memory/x/memory.limit_in_bytes", "2000\n");
    const LimitCase cases[] = {
        {"unlimited group", "0::/a\n", vell::k_no_limit},
        {"own limit", "0::/a/b\n", 3000},
        {"the limit above is smaller", "0::/a/b/c\n", 3000},
        {"the path is the host's", "0::/a/b/unknown/d\n", 3000},
        {"root group", "0::/\n", vell::k_no_limit},
        {"own hierarchy per controller", "4:memory:/x/y\n0::/\n", 2000},
        {"controllers that share a hierarchy", "4:cpu,memory:/x\n", 2000},
        {"another controller", "4:cpu:/x\n", vell::k_no_limit},
        {"both kinds", "4:memory:/\n0::/a/b\n", 3000},
        {"outside the mount", "0::/../../a/b\n", vell::k_no_limit},
        {"no line end", "0::/a/b", 3000},
        {"nonsense", "::\n0\n:\n\n", vell::k_no_limit},
        {"nothing", "", vell::k_no_limit},
    };
    for (const LimitCase& row : cases) {
        EXPECT_EQ(vell::control_group_memory_limit(root.path().c_str(), row.membership), row.limit) << row.label;
    }
}

TEST(ControlGroup, TellsTheProcessorTimeItAllows) {
    const TemporaryFolder root;
    root.write("a/cpu.max", "max 100000\n");
    root.write("a/b/cpu.max", "250000 100000\n");
    root.write("cpu/cpu.cfs_quota_us", "-1\n");
    root.write("cpu/cpu.cfs_period_us", "100000\n");
    root.write("cpu/x/cpu.cfs_quota_us", "50000\n");
    root.write("cpu/x/cpu.cfs_period_us", "100000\n");
    const LimitCase cases[] = {
        {"no quota", "0::/a\n", vell::k_no_limit},
        {"two and a half", "0::/a/b\n", 2500},
        {"half of one", "1:cpu,cpuacct:/x/y\n", 500},
        {"root group", "1:cpu:/\n", vell::k_no_limit},
        {"not this controller", "1:cpuset:/x\n", vell::k_no_limit},
    };
    for (const LimitCase& row : cases) {
        EXPECT_EQ(vell::control_group_processor_limit(root.path().c_str(), row.membership), row.limit) << row.label;
    }
}

TEST(MemorySize, IsAtMostThePhysicalMemory) {
    const auto physical = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    EXPECT_GT(vell::physical_memory_bytes(), uint64_t{16} << 20);
    EXPECT_LE(vell::physical_memory_bytes(), physical);
}

}  // namespace
