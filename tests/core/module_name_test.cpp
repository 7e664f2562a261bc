// The module's path.

#include "core/module_name.h"

#include <unistd.h>

#include <cstring>
#include <string>

#include "support/temporary_folder.h"
#include "vellcore/startup.h"

namespace {

std::string told_name() {
    char name[1025] = {};
    return vl_modulename(name, 1024) ? name : "unknown";
}

TEST(ModuleName, IsMadeAbsolute) {
    const TemporaryFolder folder;
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    EXPECT_EQ(told_name(), "unknown");
    vell::set_module_name("bin/app");
    EXPECT_EQ(told_name(), folder / "bin/app");
    vell::set_module_name("/bin/app");
    EXPECT_EQ(told_name(), "/bin/app");
    ASSERT_EQ(chdir("/"), 0);
    vell::set_module_name("bin/app");
    EXPECT_EQ(told_name(), "/bin/app");
    vell::set_module_name("");
    EXPECT_EQ(told_name(), "/");
    vell::set_module_name(("/" + std::string(2000, 'x')).c_str());
    EXPECT_EQ(told_name().size(), 1023u);
    vell::set_module_name(std::string(2000, 'x').c_str());
    EXPECT_EQ(told_name().size(), 1023u);
    vell::set_module_name(nullptr);
    EXPECT_EQ(told_name(), "unknown");
}

TEST(ModuleName, IsCopiedWithoutATerminatorWhenItFillsTheBuffer) {
    vell::set_module_name("/bin/app");
    char name[9] = "????????";
    EXPECT_TRUE(vl_modulename(name, 4));
    EXPECT_STREQ(name, "/bin????");
    EXPECT_FALSE(vl_modulename(name, 0));
    EXPECT_FALSE(vl_modulename(name, -1));
    EXPECT_FALSE(vl_modulename(nullptr, 4));
    EXPECT_STREQ(name, "/bin????");
}

}  // namespace
