// What became of one file at one destination.
#pragma once

#include <cstdint>
#include <string>

#include "offload/digest.h"
#include "offload/problem.h"

namespace tool {

enum class Outcome {
    verified,  ///< read back from the disk and equal
    copied,    ///< written, not read back
    skipped,   ///< on record as proven, and still there
    failed,
};
inline constexpr size_t k_outcome_count = 4;

struct FileResult {
    std::string path;
    uint64_t bytes = 0;
    Outcome outcome = Outcome::failed;
    Problem problem{};  ///< of a failed one
    Digests digests;
    /// The data read back from the disk differs from what was written.
    [[nodiscard]] bool is_mismatch() const { return problem.kind == ProblemKind::read_back; }
    bool is_new = false;  ///< written by this run, so that older digests of this path do not hold
};

}  // namespace tool
