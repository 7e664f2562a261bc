// vell offload: the job, and what it prints.
#pragma once

#include "offload/offload.h"

namespace tool {

struct OffloadCommand {
    OffloadOptions options;
    bool is_quiet = false;
    bool is_json = false;
};

/// Does it all. @return the exit code; throws Failure when nothing was begun.
[[nodiscard]] int offload(const OffloadCommand& command);

}  // namespace tool
