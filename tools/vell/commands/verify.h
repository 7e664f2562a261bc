// Is a folder still what it was, by the records that an offload left in it or by any list of digests?
#pragma once

#include <string>

#include "offload/digest.h"

namespace tool {

struct VerifyOptions {
    std::string folder;
    std::string list;   ///< empty: the folder's own journal and lists
    DigestSet digests;  ///< empty: for each file the fastest that is on record
    bool is_quiet = false;
    bool is_json = false;
};

/// Compares sizes where they are on record, then digests, read past the system's cache. Prints what is missing,
/// changed, unreadable and new. @return the exit code; throws Failure when there is nothing to compare with.
[[nodiscard]] int verify(const VerifyOptions& options);

}  // namespace tool
