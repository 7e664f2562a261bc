// The digests of one file, read past the system's cache.
#pragma once

#include <functional>
#include <string>

#include "offload/cancel_flag.h"
#include "offload/digest.h"
#include "offload/problem.h"

namespace tool {

struct FileDigests {
    Digests digests;
    uint64_t bytes = 0;
    Problem problem;  ///< why it cannot be read, or none
};

/// Reads the file once for all kinds; a large one while its digests are computed. `progress` is told of bytes; null:
/// nobody. The problem is `interrupted` when it was cancelled.
[[nodiscard]] FileDigests digests_of_file(int folder, const std::string& path, const DigestSet& kinds,
                                          bool follows_link, const CancelFlag& cancel,
                                          const std::function<void(uint64_t bytes)>& progress = nullptr);

}  // namespace tool
