// The processors of the machine and what this process may use of them.
//
// To port: the counts and the limits from the system (linux/processor_counts.cpp), the features and the brand from
// the processor (one file per architecture).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

struct ProcessorCounts {
    uint32_t physical;  ///< cores that this process may run on; 0 when the system does not tell
    uint32_t logical;   ///< hardware threads of those cores that this process may run on; 0 when not told
};

/// The counts after the process's affinity, which a control group's set of processors also shows in.
[[nodiscard]] ProcessorCounts count_processors() noexcept;

struct ProcessorLimits {
    uint32_t online;             ///< hardware threads of the machine
    uint32_t affinity;           ///< of them, those that the process may run on
    uint64_t quota_thousandths;  ///< processor time that the control group allows, 1000 for one processor; 0: no limit
};
[[nodiscard]] ProcessorLimits processor_limits() noexcept;

/// Processors that threads like the calling one may use at once, at least 1: its affinity, or the control group's quota
/// where that is less. Reads files: tens of microseconds.
[[nodiscard]] uint32_t allowed_processors() noexcept;

/// The same from what is known: `quota_thousandths` as in ProcessorLimits. A part of a processor does not count: two
/// threads that poll would use up a quota of one and a half.
[[nodiscard]] constexpr uint32_t whole_processors(uint32_t affinity, uint64_t quota_thousandths) noexcept {
    const uint64_t quota = quota_thousandths != 0 ? quota_thousandths / 1000 : affinity;
    const uint64_t allowed = quota < affinity ? quota : affinity;
    return allowed != 0 ? static_cast<uint32_t>(allowed) : 1;
}

/// Vector instruction sets as bits (vl_cpu_feature); 0 for none.
[[nodiscard]] uint32_t processor_features() noexcept;

/// The processor's name. False when nobody knows it.
[[nodiscard]] bool processor_brand(char* text, size_t capacity) noexcept;

/// True for a program built for 64-bit ARM.
[[nodiscard]] bool is_arm64_build() noexcept;

/// True when the process runs translated on a processor of another kind.
[[nodiscard]] bool is_translated() noexcept;

/// The machine's model as its maker calls it. False when the system does not tell.
[[nodiscard]] bool machine_model(char* text, size_t capacity) noexcept;

}  // namespace vell
