// SIGINT, SIGTERM and SIGHUP as a question: the work stops at its next block and leaves everything in order.
#pragma once

#include "offload/cancel_flag.h"

namespace tool {

/// From here on the first signal is remembered, and the second one ends the process as usual. Signals that the caller
/// ignores stay ignored.
void catch_interrupts();
[[nodiscard]] bool is_interrupted();
/// The same, for the jobs that stop when it is set.
[[nodiscard]] const CancelFlag& interrupt_flag();
/// For tests: as if a signal had come, or none.
void set_interrupted(bool is_interrupted);

}  // namespace tool
