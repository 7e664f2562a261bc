// Telling the system what a thread is called.
#pragma once

namespace vell {

/// Shows `name` in the system's own tools, as far as they have room for it. Failure is not reported.
void set_system_thread_name(const char* name) noexcept;

}  // namespace vell
