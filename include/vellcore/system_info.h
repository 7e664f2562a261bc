#pragma once
// Facts about the machine and the process that do not change while it runs.
//
// Any thread may call everything here at any time. What is counted are the processors that this process may use: a
// process bound to two of sixteen processors has two.

#include <cstdint>

#include "export.h"

/// Vector instruction sets, as bits. None on 64-bit ARM.
enum vl_cpu_feature : uint32_t {
    VL_CPU_MMX = 1,
    VL_CPU_SSE = 2,
    VL_CPU_SSE2 = 4,
    VL_CPU_SSE3 = 8,
    VL_CPU_SSSE3 = 16,
    VL_CPU_SSE41 = 32,
    VL_CPU_SSE42 = 64,
    VL_CPU_AVX = 128,
    VL_CPU_FMA = 256
};

/// Works out the processor facts at the first call and tells them. Part of start-up.
///
/// @param ignored    has no effect.
/// @param physical   cores, at least 1.
/// @param logical    hardware threads.
/// @param features   vl_cpu_feature bits.
/// @param model_128  the processor's name, or "Unknown"; 128 bytes are written. Null is accepted.
/// @return  1 when there are more hardware threads than cores, else 4 ("not detected"). 0, 2 and 3 are reserved.
VELL_API uint32_t cpu_configuration(bool ignored, uint32_t& physical, uint32_t& logical, uint32_t& features,
                                    char* model_128) noexcept;

/// Tells the facts that cpu_configuration worked out; before its first call all are 0 or empty, and the status
/// 0xFFFFFFFF. @return 1.
VELL_API int32_t vl_cpu_info(uint32_t& physical, uint32_t& logical, char* model_128, uint32_t& features,
                             uint32_t& status) noexcept;

/// The bits of `mask` that the processor has. 0 before cpu_configuration, as below.
[[nodiscard]] VELL_API uint32_t vl_cpu_support_feature(uint32_t mask) noexcept;

/// The number of cores for 0, of hardware threads for any other argument.
[[nodiscard]] VELL_API uint32_t mp_get_numcpu(int32_t which) noexcept;

/// `index` when it is below the number of cores, else 0xFFFFFFFF.
[[nodiscard]] VELL_API uint32_t mp_cpu_id(uint32_t index) noexcept;

/// What limits the counts above.
/// @param online    hardware threads of the whole machine.
/// @param affinity  those of them that the process may run on.
/// @param quota     processors' worth of time that the process's control group allows; 0 for no limit. It does not
///                  change the counts.
VELL_API void vl_cpu_limits(uint32_t& online, uint32_t& affinity, double& quota) noexcept;

/// The machine's model as its maker calls it, cut to 31 bytes, or "Unknown". Never null.
[[nodiscard]] VELL_API const char* get_mac_product_string() noexcept;

/// 1 in a build for 64-bit ARM, and where the process runs translated on such a machine; else 0.
[[nodiscard]] VELL_API int32_t vl_is_apple_silicon() noexcept;

/// The host's name.
/// @param size  bytes of `buffer`, terminator included.
/// @return  true; false with as much of "???" as fits when the name cannot be had or does not fit; false for a null
///          buffer or size 0.
VELL_API bool vl_computername(char* buffer, uint32_t size) noexcept;

/// Fixed answers.
[[nodiscard]] VELL_API bool vl_admin_privileges() noexcept;  ///< true
/// Kept: false on every system, also a 64-bit one; hosts rely on it.
[[nodiscard]] VELL_API bool vl_64bit_os_enabled() noexcept;
VELL_API void fpu_setup(bool ignored) noexcept;    ///< does nothing
VELL_API void fpu_default_mode() noexcept;         ///< does nothing
[[nodiscard]] VELL_API bool fpu_check() noexcept;  ///< true
