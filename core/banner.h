// The start-up banner: lines of the log, as functions of what start-up has found out.
#pragma once

#include <cstdint>

namespace vell {

/// 51 dashes, as a macro so that it can stand inside longer literals.
#define VELL_BANNER_DASHES "---------------------------------------------------"

/// What the banner tells. Texts are never null unless said otherwise.
struct BannerFacts {
    const char* application_name;
    int32_t level;          // the log's level after start-up
    const char* date_text;  // now
    const char* host_name;
    const char* code_path;
    int32_t system_version[3];  // major, minor, fix
    const char* model;          // null: no line
    uint32_t physical_processors;
    uint32_t logical_processors;
    const char* processor_name;
    uint32_t hyper_threading;  // state code of cpu_configuration
    uint64_t physical_memory;  // bytes
    bool is_administrator;
    int32_t pool_threads;  // result of smp_initialize
};

/// From the first line to the processors.
void write_banner_head(const BannerFacts& facts) noexcept;
/// The memory, after which the heap set writes its own lines.
void write_banner_memory(const BannerFacts& facts) noexcept;
/// What the process may do.
void write_banner_privileges(const BannerFacts& facts) noexcept;
/// The processing pool and the last line.
void write_banner_pool(const BannerFacts& facts) noexcept;

}  // namespace vell
