// vell doctor: one line per fact, each asked from the library as it runs here.

#include "commands/doctor.h"

#include <sys/utsname.h>

#include <cstdio>
#include <utility>

#include "ui/byte_size.h"
#include "ui/failure.h"
#include "ui/labelled_lines.h"
#include "ui/text_columns.h"
#include "ui/translation.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/file_io.h"
#include "vellcore/file_operations.h"
#include "vellcore/heap_set.h"
#include "vellcore/language.h"
#include "vellcore/system_info.h"

namespace tool {
namespace {

constexpr size_t k_code_columns = 12;  // of a language's code

void add_line(LabelledLines& lines, const std::string& label, const std::string& text) {
    lines.add(label, text.empty() ? tr("doctor", "none") : text);
}

std::string system_text() {
    utsname system{};
    if (uname(&system) != 0) return tr("doctor", "unknown");
    return formatted(tr("doctor", "%s %s on %s"), system.sysname, system.release, system.machine);
}

std::string feature_text() {
    struct Feature {
        uint32_t bit;
        const char* name;
    };
    constexpr Feature k_features[] = {{VL_CPU_MMX, "MMX"},      {VL_CPU_SSE, "SSE"},     {VL_CPU_SSE2, "SSE2"},
                                      {VL_CPU_SSE3, "SSE3"},    {VL_CPU_SSSE3, "SSSE3"}, {VL_CPU_SSE41, "SSE4.1"},
                                      {VL_CPU_SSE42, "SSE4.2"}, {VL_CPU_AVX, "AVX"},     {VL_CPU_FMA, "FMA"}};
    std::string text;
    for (const Feature& feature : k_features) {
        if (vl_cpu_support_feature(feature.bit) != 0) text += (text.empty() ? "" : " ") + std::string(feature.name);
    }
    return text;
}

void add_processors(LabelledLines& lines) {
    uint32_t physical = 0, logical = 0, features = 0, status = 0;
    char model[128] = {};
    vl_cpu_info(physical, logical, model, features, status);
    add_line(lines, tr("doctor", "processor"), model);
    add_line(lines, tr("doctor", "instruction sets"), feature_text());
    add_line(lines, tr("doctor", "processors"), formatted(tr("doctor", "%u physical, %u logical"), physical, logical));
    uint32_t online = 0, affinity = 0;
    double quota = 0;
    vl_cpu_limits(online, affinity, quota);
    add_line(lines, tr("doctor", "allowed"),
             quota > 0
                 ? formatted(tr("doctor", "%u of %u by affinity, %.2f by the control group"), affinity, online, quota)
                 : formatted(tr("doctor", "%u of %u by affinity, no limit by the control group"), affinity, online));
}

void add_memory(LabelledLines& lines) {
    mem_info_str memory{};
    mem_info(&memory);
    add_line(lines, tr("doctor", "memory"),
             formatted(tr("doctor", "%s, planned with: %s"), format_byte_size(memory.phys_total).c_str(),
                       format_byte_size(memory.phys_avail).c_str()));
    struct Heap {
        uint32_t id;
        const char* label;
    };
    const Heap heaps[] = {{MEM_HEAP_FRAME, tr("doctor", "frame heap")},
                          {MEM_HEAP_PROXY, tr("doctor", "proxy heap")},
                          {MEM_HEAP_AUDIO, tr("doctor", "audio heap")},
                          {MEM_HEAP_IMAGE, tr("doctor", "image heap")}};
    for (const Heap& heap : heaps)
        add_line(lines, heap.label, format_byte_size(mem_heapsize(heap.id)));
    add_line(lines, tr("doctor", "page size"), formatted(tr("doctor", "%d bytes"), mem_pagesize()));
}

void add_folders(LabelledLines& lines) {
    char support[1024] = {};
    cocoa_application_support_path(support, sizeof support);
    add_line(lines, tr("doctor", "program"), file_get_code());
    add_line(lines, tr("doctor", "data folder"), file_get_data());
    add_line(lines, tr("doctor", "default settings"), file_get_default_settings());
    add_line(lines, tr("doctor", "user's data"), support);
    add_line(lines, tr("doctor", "locale"), cocoa_user_locale());
    const std::string log = file_get_logfile();
    add_line(lines, tr("doctor", "log"), log.empty() ? tr("doctor", "standard error") : log);
}

void add_languages(LabelledLines& lines) {
    const std::string present = vl_lang_get();
    const std::string folder = locale_folder(file_get_code());
    add_line(lines, tr("doctor", "language"), present.empty() ? "en_US" : present);
    add_line(lines, tr("doctor", "locale folder"), folder);
    if (folder.empty() || !vl_lang_init_from(folder.c_str())) return;
    std::string label = tr("doctor", "languages");
    for (const vl_lang_enum_item* item = vl_RNA_lang_enum_properties(); item->identifier != nullptr; ++item) {
        if (item->value == 0) continue;  // stands for the user's own
        lines.add(std::exchange(label, ""), padded(item->identifier, k_code_columns) + " " + item->name);
    }
}

}  // namespace

void print_diagnosis(const std::string& path) {
    LabelledLines lines;
    char host[256] = {};
    vl_computername(host, sizeof host);
    add_line(lines, "vellcore", VELL_VERSION);
    add_line(lines, tr("doctor", "system"), system_text());
    add_line(lines, tr("doctor", "machine"), formatted(tr("doctor", "%s, host %s"), get_mac_product_string(), host));
    add_processors(lines);
    add_memory(lines);
    add_line(lines, tr("doctor", "transfers"), io_backend_name());
    add_line(lines, tr("doctor", "uncached"), std::string(io_uncached_mode(path.c_str())) + " (" + path + ")");
    add_folders(lines);
    add_languages(lines);
    lines.print(stdout);
    if (std::fflush(stdout) != 0) throw Failure{k_exit_other, tr("problem", "standard output: cannot be written")};
}

}  // namespace tool
