// Digests of files, printed as md5sum does.
#pragma once

#include <string>
#include <vector>

#include "offload/digest.h"

namespace tool {

struct HashOptions {
    std::vector<std::string> paths;  ///< files, and folders with everything below
    DigestSet digests = digest_set({DigestKind::md5});
};

/// Prints a line for each file, in the order of the paths; with several digests a line for each, which names it.
/// @return the exit code.
[[nodiscard]] int print_digests(const HashOptions& options);

}  // namespace tool
