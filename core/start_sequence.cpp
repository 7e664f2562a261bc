// Start-up and shutdown: tables of named steps, run from top to bottom. A service joins by a line.
//
// Shutdown is not the mirror image of start-up, on purpose: the heaps go before the pool and the threads, whose idle
// threads never touch them, and the log goes last. Every shutdown step accepts a service that never started.

#include <unistd.h>

#include <cstdio>

#include "core/banner.h"
#include "core/command_line.h"
#include "core/crash_report.h"
#include "core/module_name.h"
#include "platform/crash.h"
#include "platform/instance_claim.h"
#include "platform/system_version.h"
#include "vellcore/calendar_date.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/directory_listing.h"
#include "vellcore/dynamic_library.h"
#include "vellcore/file_io.h"
#include "vellcore/file_operations.h"
#include "vellcore/heap_set.h"
#include "vellcore/http_client.h"
#include "vellcore/language.h"
#include "vellcore/message_log.h"
#include "vellcore/processing_pool.h"
#include "vellcore/startup.h"
#include "vellcore/system_info.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

void* autorelease_pool = nullptr;  // made first, released last

/// What the steps of one start-up hand to each other.
struct Start {
    const char* application_name;  // null in the short form
    const char* data_path;
    bool allocates_heaps;
    CommandLine command_line;
    int32_t level = 0;  // of the log, after start-up
    char processor_name[128] = "";
    char date_text[32] = "";
    char host_name[64] = "";
    mem_info_str memory{};
    BannerFacts facts{};
};

struct Step {
    const char* name;
    void (*run)(Start& start);
};

void read_processors(Start& start) {
    uint32_t features = 0;
    start.facts.hyper_threading = cpu_configuration(false, start.facts.physical_processors,
                                                    start.facts.logical_processors, features, start.processor_name);
    start.facts.processor_name = start.processor_name;
}

void measure_memory(Start& start) {
    mem_initialize(&start.memory);
    start.facts.physical_memory = start.memory.phys_total;
}

// Kept: a fresh UUID is made and not used; hosts count on the system's source of them being warmed up here.
void make_uuid(Start&) {
    char uuid[64];
    vl_create_uuid(uuid);
}

void open_folders_and_log(Start& start) {
    file_initialize(start.application_name, start.data_path);
}

// The level takes effect at the end, so the banner is written at the level that the log was opened with.
void plan_level(Start& start) {
    start.level = static_cast<int32_t>(static_cast<uint32_t>(msg_getlevel()) + start.command_line.debug_count);
}

void write_head(Start& start) {
    BannerFacts& facts = start.facts;
    facts.application_name = start.application_name != nullptr ? start.application_name : "";
    facts.level = start.level;
    date().format(start.date_text, true);
    facts.date_text = start.date_text;
    if (gethostname(start.host_name, sizeof start.host_name) != 0)
        std::snprintf(start.host_name, sizeof start.host_name, "?");
    facts.host_name = start.host_name;
    facts.code_path = file_get_code();
    system_version(facts.system_version);
    facts.model = get_mac_product_string();
    facts.is_administrator = vl_admin_privileges();
    write_banner_head(facts);
}

void apply_saved_language(Start&) {
    if (vl_lang_init()) vl_lang_set(vl_read_language_cfg());
}

void start_pool(Start& start) {
    const int32_t requested = start.command_line.processors;
    start.facts.pool_threads =
        smp_initialize(requested > 0 ? requested : static_cast<int32_t>(start.facts.physical_processors));
}

constexpr Step k_full_start[] = {
    {"fatal signals",
     [](Start&) {
         static_cast<void>(ensure_alternate_stack());
         install_fatal_handlers(sig_handler);
     }},
    {"processors", read_processors},
    {"memory", measure_memory},
    {"uuid", make_uuid},
    {"timer", [](Start&) { mp_timer_initialize(); }},
    {"clock", [](Start&) { mp_init_clock(); }},
    {"folders and log", open_folders_and_log},
    {"log level", plan_level},
    {"banner: head", write_head},
    {"floating point", [](Start&) { fpu_setup(false); }},
    {"banner: memory", [](Start& start) { write_banner_memory(start.facts); }},
    {"heaps", [](Start&) { mem_alloc_pools(); }},
    {"scheduler", [](Start&) { mp_scheduler_initialize(); }},
    {"threads", [](Start&) { mp_init_threads(); }},
    {"asynchronous transfers", [](Start&) { vl_init_io64(); }},
    {"libraries", [](Start&) { vl_lib_initialize(); }},
    {"language", apply_saved_language},
    {"banner: privileges", [](Start& start) { write_banner_privileges(start.facts); }},
    {"processing pool", start_pool},
    {"banner: pool", [](Start& start) { write_banner_pool(start.facts); }},
    {"log level in force", [](Start& start) { msg_setlevel(start.level); }},
};

constexpr Step k_short_start[] = {
    {"processors", read_processors},
    {"memory", measure_memory},
    {"uuid", make_uuid},
    {"clock", [](Start&) { mp_init_clock(); }},
    {"folders and log", open_folders_and_log},
    {"floating point", [](Start&) { fpu_setup(false); }},
    {"heaps",
     [](Start& start) {
         if (start.allocates_heaps) mem_alloc_pools();
     }},
    {"threads", [](Start&) { mp_init_threads(); }},
    {"asynchronous transfers", [](Start&) { vl_init_io64(); }},
    {"libraries", [](Start&) { vl_lib_initialize(); }},
};

struct StopStep {
    const char* name;
    void (*run)();
};

constexpr StopStep k_stop[] = {
    {"farewell", [] { msginfo("*" VELL_BANNER_DASHES); }},
    {"asynchronous transfers", vl_close_io64},
    {"kept HTTP connections", vl_http_close_connections},
    {"heaps", mem_free_pools},
    {"memory", mem_closedown},
    {"processing pool", smp_closedown},
    {"threads", mp_close_threads},
    {"scheduler", mp_scheduler_closedown},
    {"names of listings", flist_flushcache},
    {"language", vl_lang_free},
    {"libraries", vl_lib_closedownall},
    {"last line", [] { msgcont(VELL_BANNER_DASHES); }},
    {"log", msg_closedown},
    {"autorelease pool",
     [] {
         vl_release_autorelease_pool(autorelease_pool);
         autorelease_pool = nullptr;
     }},
    {"fatal signals", restore_fatal_handlers},
};

/// Takes the claim "<name>_STARTER". False when another instance holds it.
bool claim_start(const char* application_name) noexcept {
    char claim[1200];
    std::snprintf(claim, sizeof claim, "%s_STARTER", application_name != nullptr ? application_name : "");
    return claim_instance(claim) != InstanceClaim::held;
}

}  // namespace

}  // namespace vell

bool vl_initialize(const char* application_name, const char* data_path, int32_t argument_count,
                   const char* const* argument_vector) noexcept {
    vell::autorelease_pool = vl_create_autorelease_pool();
    const bool has_arguments = argument_count > 0 && argument_vector != nullptr;
    vell::set_module_name(has_arguments ? argument_vector[0] : nullptr);
    if (!vell::claim_start(application_name)) return false;
    vell::remember_starting_thread();
    vell::Start start{.application_name = application_name,
                      .data_path = data_path,
                      .allocates_heaps = true,
                      .command_line = vell::parse_command_line(argument_count, argument_vector)};
    for (const vell::Step& step : vell::k_full_start)
        step.run(start);
    return true;
}

bool vl_fast_initialize(const char* executable_path, bool allocate_heaps) noexcept {
    const bool is_known = executable_path != nullptr && *executable_path != '\0';
    vell::set_module_name(is_known ? executable_path : nullptr);
    vell::remember_starting_thread();
    vell::Start start{
        .application_name = nullptr, .data_path = nullptr, .allocates_heaps = allocate_heaps, .command_line = {}};
    for (const vell::Step& step : vell::k_short_start)
        step.run(start);
    return true;
}

void vl_closedown() noexcept {
    for (const vell::StopStep& step : vell::k_stop)
        step.run();
}
