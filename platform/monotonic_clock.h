// The clock that nobody sets.
#pragma once

#include <cstdint>
#include <ctime>

namespace vell {

/// Nanoseconds since some moment before the process began.
[[nodiscard]] inline int64_t monotonic_ns() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace vell
