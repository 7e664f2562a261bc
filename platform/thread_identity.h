// Who a thread is: its name, for the system's tools and for crash reports, and the stack that its crash is reported on.
//
// To port: set_system_thread_name differs between systems (linux/thread_name.cpp); the rest is POSIX
// (posix/thread_identity.cpp).
#pragma once

#include <cstddef>

namespace vell {

inline constexpr size_t k_thread_name_bytes = 32;  // terminator included

/// Shows `name` in the system's own tools, as far as they have room for it. Failure is not reported.
void set_system_thread_name(const char* name) noexcept;

/// Makes `name`, cut to 31 bytes, the calling thread's name for own_thread_name.
void set_own_thread_name(const char* name) noexcept;

/// The name that the calling thread was given, or null. Neither allocates nor locks, so the crash report may call it.
[[nodiscard]] const char* own_thread_name() noexcept;

/// What every thread of the library does first: both names, and an alternate signal stack.
void identify_thread(const char* name) noexcept;

}  // namespace vell
