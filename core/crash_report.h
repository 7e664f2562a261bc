// What start-up tells the crash report.
#pragma once

namespace vell {

/// Remembers the calling thread as the one that started the library: the report calls it "VL-Main".
void remember_starting_thread() noexcept;

}  // namespace vell
