// SIGINT, SIGTERM and SIGHUP as a question: the work stops at its next block and leaves everything in order.
#pragma once

namespace tool {

/// From here on the first signal is remembered, and the second one ends the process as usual. Signals that the caller
/// ignores stay ignored.
void catch_interrupts();
[[nodiscard]] bool is_interrupted();
/// For tests: as if a signal had come, or none.
void set_interrupted(bool is_interrupted);

}  // namespace tool
