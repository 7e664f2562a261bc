#include "core/banner.h"

#include "vellcore/message_log.h"

namespace vell {
namespace {

/// The line for a hyper-threading state code; null for codes that have none.
const char* hyper_threading_state(uint32_t code) noexcept {
    switch (code) {
        case 0:
            return "Not capable";
        case 1:
            return "Enabled";
        case 2:
        case 3:
            return "Disabled";
        case 4:
            return "Not detected";
        default:
            return nullptr;
    }
}

}  // namespace

void write_banner_head(const BannerFacts& facts) noexcept {
    msginfo(VELL_BANNER_DASHES);
    // The compiler takes the date from SOURCE_DATE_EPOCH where builds are to be reproducible.
    msgcont("%s - [Build: %s]", facts.application_name, __DATE__);
    msgcont("Log started(%d): %s", facts.level, facts.date_text);
    msgcont("\\\\%s\\'%s'", facts.host_name, facts.code_path);
    msgcont(VELL_BANNER_DASHES);
    msginfo("MacOS Version %d.%d.%d", facts.system_version[0], facts.system_version[1], facts.system_version[2]);
    if (facts.model != nullptr) msgcont("Model: %s", facts.model);
    msgcont("%d CPU's: %s", static_cast<int>(facts.physical_processors), facts.processor_name);
    if (const char* state = hyper_threading_state(facts.hyper_threading); state != nullptr)
        msgcont("       : HyperThreading %d (%s)", static_cast<int>(facts.logical_processors), state);
}

void write_banner_memory(const BannerFacts& facts) noexcept {
    msgcont("Physical memory : %.0f Mb", (static_cast<double>(facts.physical_memory) + 1047552) / 1048576);
}

void write_banner_privileges(const BannerFacts& facts) noexcept {
    msgcont(VELL_BANNER_DASHES);
    msgcont("Privilege level : %s", facts.is_administrator ? "Administrator" : "User");
}

void write_banner_pool(const BannerFacts& facts) noexcept {
    if (facts.pool_threads >= 2)
        msgcont("SMP Initialize  : %d-way multi-processing", facts.pool_threads);
    else
        msgcont("SMP Initialize  : %s", facts.pool_threads == 1 ? "Single-processing" : "Failed..");
    msgcont(VELL_BANNER_DASHES);
}

}  // namespace vell
