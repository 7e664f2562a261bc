// Where errors went before the library turned standard error into its log.
#pragma once

namespace vell {

/// Keeps what standard error leads to now, before it is redirected for the first time; later calls do nothing.
void keep_standard_error() noexcept;

/// The descriptor that was kept, else that of standard error; -1 when there was none. Safe in a signal handler.
[[nodiscard]] int original_standard_error() noexcept;

}  // namespace vell
