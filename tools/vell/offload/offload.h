// Copying a file or a folder to several destinations at once, each copy read back from its disk before it appears
// under its name. See docs/offload.md for what is promised.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "offload/digest.h"
#include "ui/failure.h"

namespace tool {

// Exit codes, beside those in failure.h. What comes first holds: 4, 3, 5, 1.
inline constexpr int k_exit_incomplete = 1;   ///< some files failed
inline constexpr int k_exit_interrupted = 3;  ///< the same command again goes on
inline constexpr int k_exit_mismatch = 4;     ///< a copy differs from its source or from what is on record
inline constexpr int k_exit_no_space = 5;

inline constexpr size_t k_most_destinations = 16;

struct OffloadOptions {
    std::string source;
    std::vector<std::string> destinations;
    DigestSet digests = digest_set({DigestKind::md5, DigestKind::xxh128});
    bool verifies = true;
    bool overwrites = false;
    bool is_quiet = false;
    bool is_json = false;
};

/// Does it all. @return the exit code; throws Failure when nothing was begun.
[[nodiscard]] int offload(const OffloadOptions& options);

}  // namespace tool
