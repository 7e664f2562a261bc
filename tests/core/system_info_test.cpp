// Facts about the processor and the machine.

#include "vellcore/system_info.h"

#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "platform/processor.h"

namespace {

TEST(SystemInfo, KnowsNothingBeforeItIsConfigured) {
    uint32_t physical = 7, logical = 7, features = 7, status = 7;
    char model[128];
    std::memset(model, 'x', sizeof model);
    EXPECT_EQ(vl_cpu_info(physical, logical, model, features, status), 1);
    EXPECT_EQ(physical + logical + features, 0u);
    EXPECT_EQ(status, 0xFFFFFFFFu);
    EXPECT_STREQ(model, "");
    EXPECT_EQ(mp_cpu_id(0), 0xFFFFFFFFu);
    EXPECT_EQ(vl_cpu_support_feature(~0u), 0u);
}

TEST(SystemInfo, CountsTheProcessorsThatTheProcessMayUse) {
    uint32_t physical = 0, logical = 0, features = 0;
    char model[128];
    const uint32_t answer = cpu_configuration(false, physical, logical, features, model);
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    EXPECT_EQ(logical, static_cast<uint32_t>(CPU_COUNT(&allowed)));
    EXPECT_GE(physical, 1u);
    EXPECT_LE(physical, logical);
    EXPECT_EQ(answer, logical > physical ? 1u : 4u);
    EXPECT_STRNE(model, "");
    EXPECT_EQ(mp_get_numcpu(0), physical);
    EXPECT_EQ(mp_get_numcpu(1), logical);
    EXPECT_EQ(mp_get_numcpu(-1), logical);
    EXPECT_EQ(mp_cpu_id(physical - 1), physical - 1);
    EXPECT_EQ(mp_cpu_id(physical), 0xFFFFFFFFu);
    EXPECT_EQ(vl_cpu_support_feature(VL_CPU_SSE2), features & VL_CPU_SSE2);
    EXPECT_EQ(cpu_configuration(true, physical, logical, features, nullptr), answer);
}

TEST(SystemInfo, FollowsTheProcessAffinity) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    const vell::ProcessorCounts counts = vell::count_processors();
    EXPECT_EQ(counts.physical, 1u);
    EXPECT_EQ(counts.logical, 1u);
    uint32_t online = 0, affinity = 0;
    double quota = -1;
    vl_cpu_limits(online, affinity, quota);
    EXPECT_EQ(online, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_EQ(affinity, 1u);
    EXPECT_GE(quota, 0);
}

#if defined(__x86_64__)
TEST(SystemInfo, NamesTheInstructionSetsOfTheProcessor) {
    uint32_t physical = 0, logical = 0, features = 0;
    char model[128];
    cpu_configuration(false, physical, logical, features, model);
    const struct {
        uint32_t bit;
        bool is_there;
    } cases[] = {
        {VL_CPU_SSE, __builtin_cpu_supports("sse") != 0},      {VL_CPU_SSE2, __builtin_cpu_supports("sse2") != 0},
        {VL_CPU_SSE3, __builtin_cpu_supports("sse3") != 0},    {VL_CPU_SSSE3, __builtin_cpu_supports("ssse3") != 0},
        {VL_CPU_SSE41, __builtin_cpu_supports("sse4.1") != 0}, {VL_CPU_SSE42, __builtin_cpu_supports("sse4.2") != 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ((features & c.bit) != 0, c.is_there) << c.bit;
    EXPECT_EQ(vl_is_apple_silicon(), 0);
}
#endif

TEST(SystemInfo, NamesTheMachineAndTheHost) {
    EXPECT_STRNE(get_mac_product_string(), "");
    EXPECT_LE(std::strlen(get_mac_product_string()), 31u);
    char expected[256], name[256];
    ASSERT_EQ(gethostname(expected, sizeof expected), 0);
    EXPECT_TRUE(vl_computername(name, sizeof name));
    EXPECT_STREQ(name, expected);
    char small[3] = "xx";
    if (std::strlen(expected) >= 2) {
        EXPECT_FALSE(vl_computername(small, 2));
        EXPECT_STREQ(small, "?");
    }
    EXPECT_FALSE(vl_computername(nullptr, 2));
    EXPECT_FALSE(vl_computername(small, 0));
}

TEST(SystemInfo, HasFixedAnswers) {
    EXPECT_TRUE(vl_admin_privileges());
    EXPECT_FALSE(vl_64bit_os_enabled());
    EXPECT_TRUE(fpu_check());
}

}  // namespace
