#include "core/banner.h"

#include "support/log_capture.h"

namespace {

using Lines = std::vector<std::string>;

vell::BannerFacts facts() {
    return {.application_name = "Gantry",
            .level = 4,
            .date_text = "5-03-2021 14:07",
            .host_name = "edit1",
            .code_path = "/opt/gantry",
            .system_version = {6, 1, 0},
            .model = "Workstation",
            .physical_processors = 8,
            .logical_processors = 16,
            .processor_name = "Some CPU",
            .hyper_threading = 1,
            .physical_memory = (uint64_t{16} << 30) - 1047552,
            .is_administrator = true,
            .pool_threads = 8};
}

TEST(Banner, TellsWhatStartUpFound) {
    const LogCapture log;
    write_banner_head(facts());
    write_banner_memory(facts());
    write_banner_privileges(facts());
    write_banner_pool(facts());
    const std::string dashes(51, '-');
    const Lines lines = log.lines();
    ASSERT_EQ(lines.size(), 14u);
    EXPECT_EQ(lines[0], "INFO : " + dashes);
    EXPECT_EQ(lines[1].rfind(": Gantry - [Build: ", 0), 0u);
    EXPECT_EQ(lines[1].size(), sizeof ": Gantry - [Build: Jul 15 2026]" - 1);
    const Lines rest{": Log started(4): 5-03-2021 14:07",
                     ": \\\\edit1\\'/opt/gantry'",
                     ": " + dashes,
                     "INFO : MacOS Version 6.1.0",
                     ": Model: Workstation",
                     ": 8 CPU's: Some CPU",
                     ":        : HyperThreading 16 (Enabled)",
                     ": Physical memory : 16384 Mb",
                     ": " + dashes,
                     ": Privilege level : Administrator",
                     ": SMP Initialize  : 8-way multi-processing",
                     ": " + dashes};
    EXPECT_EQ(Lines(lines.begin() + 2, lines.end()), rest);
}

TEST(Banner, HasALinePerState) {
    const struct {
        uint32_t hyper_threading;
        int32_t pool_threads;
        const char* state;  // null: no line
        const char* pool;
    } rows[] = {{0, 1, "Not capable", "Single-processing"},
                {2, 0, "Disabled", "Failed.."},
                {3, -1, "Disabled", "Failed.."},
                {4, 2, "Not detected", "2-way multi-processing"},
                {5, 128, nullptr, "128-way multi-processing"}};
    for (const auto& row : rows) {
        vell::BannerFacts changed = facts();
        changed.hyper_threading = row.hyper_threading;
        changed.pool_threads = row.pool_threads;
        changed.model = nullptr;
        const LogCapture log;
        write_banner_head(changed);
        write_banner_pool(changed);
        const Lines lines = log.lines();
        ASSERT_EQ(lines.size(), row.state == nullptr ? 9u : 10u);
        const std::string state_line = ":        : HyperThreading 16 (" + std::string(row.state ? row.state : "") + ")";
        EXPECT_EQ(lines[7] == state_line, row.state != nullptr);
        EXPECT_EQ(lines[lines.size() - 2], ": SMP Initialize  : " + std::string(row.pool));
    }
}

}  // namespace
