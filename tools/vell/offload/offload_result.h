// What became of one file at one destination.
#pragma once

#include <cstdint>
#include <string>

#include "offload/digest.h"
#include "offload/problem.h"
#include "ui/translation.h"

namespace tool {

enum class Outcome {
    verified,  ///< read back from the disk and equal
    copied,    ///< written, not read back
    skipped,   ///< on record as proven, and still there
    failed,
};
/// The word for it in JSON; what people read is tr("report", name_of(outcome)).
[[nodiscard]] constexpr const char* name_of(Outcome outcome) {
    constexpr const char* k_names[] = {marked("report", "verified"), marked("report", "copied"),
                                       marked("report", "skipped"), marked("report", "failed")};
    return k_names[static_cast<int>(outcome)];
}

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
