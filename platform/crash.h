// What a crash report needs from the system: fatal signals, a stack to report on, and the knowledge that a report is
// under way.
//
// To port: the set of signals differs between systems (see linux/crash.cpp); the rest is POSIX.
#pragma once

#include <cstdint>

namespace vell {

/// Sends the fatal signals (illegal instruction, kill, segmentation fault, bad system call, terminate) to `handler`,
/// on the alternate stack where the thread has one. What the system refuses to redirect is left as it is. While the
/// handler runs every other signal waits on its thread: the first of several is the one reported, and to its end. Start
/// and shutdown only.
void install_fatal_handlers(void (*handler)(int)) noexcept;

/// Restores what install_fatal_handlers replaced, except where the host has put a handler of its own since.
void restore_fatal_handlers() noexcept;

/// Gives the calling thread an alternate signal stack unless it has one, so that a stack overflow can be reported.
/// The memory goes back when the thread ends. False when there is none: the thread then has no such stack.
bool ensure_alternate_stack() noexcept;

/// Declares that the calling thread reports a crash from here to the end of the process. From then on the library's
/// locks are waited for only for a moment on this thread. False when a report was under way already.
bool begin_crash_report() noexcept;

/// True on the thread that reports a crash.
[[nodiscard]] bool is_reporting_crash() noexcept;

/// How long the crash report waits for a lock that another thread holds, nanoseconds.
inline constexpr int64_t k_crash_lock_limit_ns = 100'000'000;

}  // namespace vell
