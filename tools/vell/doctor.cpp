// vell doctor: one line per fact, each asked from the library as it runs here.

#include "doctor.h"

#include <sys/utsname.h>

#include <cstdio>

#include "byte_size.h"
#include "failure.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/file_io.h"
#include "vellcore/file_operations.h"
#include "vellcore/heap_set.h"
#include "vellcore/system_info.h"

namespace tool {
namespace {

void print_line(const char* label, const std::string& text) {
    std::printf("%-17s %s\n", (std::string(label) + ":").c_str(), text.empty() ? "none" : text.c_str());
}

std::string system_text() {
    utsname system{};
    if (uname(&system) != 0) return "unknown";
    return std::string(system.sysname) + " " + system.release + " on " + system.machine;
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

void print_processors() {
    uint32_t physical = 0, logical = 0, features = 0, status = 0;
    char model[128] = {};
    vl_cpu_info(physical, logical, model, features, status);
    print_line("processor", model);
    print_line("instruction sets", feature_text());
    print_line("processors", std::to_string(physical) + " physical, " + std::to_string(logical) + " logical");
    uint32_t online = 0, affinity = 0;
    double quota = 0;
    vl_cpu_limits(online, affinity, quota);
    char text[128];
    if (quota > 0) {
        std::snprintf(text, sizeof text, "%u of %u by affinity, %.2f by the control group", affinity, online, quota);
    } else {
        std::snprintf(text, sizeof text, "%u of %u by affinity, no limit by the control group", affinity, online);
    }
    print_line("allowed", text);
}

void print_memory() {
    mem_info_str memory{};
    mem_info(&memory);
    print_line("memory",
               format_byte_size(memory.phys_total) + ", planned with: " + format_byte_size(memory.phys_avail));
    struct Heap {
        uint32_t id;
        const char* label;
    };
    constexpr Heap k_heaps[] = {{MEM_HEAP_FRAME, "frame heap"},
                                {MEM_HEAP_PROXY, "proxy heap"},
                                {MEM_HEAP_AUDIO, "audio heap"},
                                {MEM_HEAP_IMAGE, "image heap"}};
    for (const Heap& heap : k_heaps)
        print_line(heap.label, format_byte_size(mem_heapsize(heap.id)));
    print_line("page size", std::to_string(mem_pagesize()) + " bytes");
}

void print_folders() {
    char support[1024] = {};
    cocoa_application_support_path(support, sizeof support);
    print_line("program", file_get_code());
    print_line("data folder", file_get_data());
    print_line("default settings", file_get_default_settings());
    print_line("user's data", support);
    print_line("locale", cocoa_user_locale());
    const std::string log = file_get_logfile();
    print_line("log", log.empty() ? "standard error" : log);
}

}  // namespace

void print_diagnosis(const std::string& path) {
    char host[256] = {};
    vl_computername(host, sizeof host);
    print_line("vellcore", VELL_VERSION);
    print_line("system", system_text());
    print_line("machine", std::string(get_mac_product_string()) + ", host " + host);
    print_processors();
    print_memory();
    print_line("transfers", io_backend_name());
    print_line("uncached", std::string(io_uncached_mode(path.c_str())) + " (" + path + ")");
    print_folders();
    if (std::fflush(stdout) != 0) throw Failure{k_exit_other, "standard output: cannot be written"};
}

}  // namespace tool
