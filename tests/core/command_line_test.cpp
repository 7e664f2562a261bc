#include "core/command_line.h"

#include <vector>

namespace {

TEST(CommandLine, CountsDebugLettersAndReadsTheProcessorNumber) {
    const struct {
        const char* label;
        std::vector<const char*> arguments;
        uint32_t debug_count;
        int32_t processors;
    } rows[] = {
        {"nothing", {"app"}, 0, 0},
        {"two debug letters", {"app", "-dD"}, 2, 0},
        {"letters before the number", {"app", "-dp4"}, 1, 4},
        {"number in the next argument", {"app", "-p", "8", "-d"}, 1, 8},
        {"the next argument is used up whatever it holds", {"app", "-p", "-d"}, 0, 0},
        {"text for a number", {"app", "-p4", "-p", "abc"}, 0, 0},
        {"any other letter ends the argument", {"app", "-dxd"}, 1, 0},
        {"nothing after the number", {"app", "-p4d"}, 0, 4},
        {"last without a number", {"app", "-p3", "-P"}, 0, 3},
        {"followed by a letter", {"app", "-pd"}, 0, 0},
        {"zero", {"app", "-P0"}, 0, 0},
        {"hexadecimal", {"app", "-p0x10"}, 0, 16},
        {"octal", {"app", "-p010"}, 0, 8},
        {"no octal digit", {"app", "-p08"}, 0, 0},
        {"negative in the next argument", {"app", "-p", "-5"}, 0, -5},
        {"cut to 32 bits", {"app", "-p", "4294967298"}, 0, 2},
        {"the last number counts", {"app", "-p2", "-p6"}, 0, 6},
        {"words and a lone dash", {"app", "dd", "-", "--d", "x-d"}, 0, 0},
        {"argument 0 is no switch", {"-ddd", "-d"}, 1, 0},
        {"a null argument", {"app", nullptr, "-d"}, 1, 0},
    };
    for (const auto& row : rows) {
        const auto result = vell::parse_command_line(static_cast<int32_t>(row.arguments.size()), row.arguments.data());
        EXPECT_EQ(result.debug_count, row.debug_count) << row.label;
        EXPECT_EQ(result.processors, row.processors) << row.label;
    }
    EXPECT_EQ(vell::parse_command_line(3, nullptr).debug_count, 0u);
    EXPECT_EQ(vell::parse_command_line(-3, rows[1].arguments.data()).debug_count, 0u);
}

}  // namespace
