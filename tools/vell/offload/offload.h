// Copying a file or a folder to several destinations at once. Each copy is read back from its disk before it appears
// under its name. docs/offload.md says what is promised.
#pragma once

#include <string>
#include <vector>

#include "offload/cancel_flag.h"
#include "offload/folder_walk.h"
#include "offload/offload_result.h"
#include "offload/sum_list.h"

namespace tool {

inline constexpr size_t k_max_destinations = 16;

struct OffloadOptions {
    std::string source;
    std::vector<std::string> destinations;
    DigestSet digests = digest_set({DigestKind::md5, DigestKind::xxh128});
    bool verifies = true;
    bool overwrites = false;
};

/// One destination's results.
struct DestinationCounts {
    size_t files[k_outcome_count] = {};  ///< by Outcome
    uint64_t bytes = 0;                  ///< verified and copied
    size_t mismatches = 0;
    double seconds = 0;                                ///< from the start to the last file
    std::vector<SumLine> listed[k_digest_kind_count];  ///< for the lists; see merge_sum_lists
    [[nodiscard]] size_t of(Outcome outcome) const { return files[static_cast<int>(outcome)]; }
};

/// What became of a job.
struct OffloadResult {
    std::vector<DestinationCounts> destinations;  ///< in the order of the options
    bool has_failure = false;                     ///< beside the files' own: folders, lists, what could not be read
    bool is_cancelled = false;
};

/// What a job tells while it runs, from any of its threads.
class OffloadEvents {
public:
    virtual ~OffloadEvents() = default;
    virtual void left_out(const LeftOut& what) = 0;
    /// About a folder or file that is not one of the copies. `path` is complete.
    virtual void warning(const std::string& path, const Problem& problem) = 0;
    virtual void current(const std::string& path) = 0;
    virtual void file(size_t destination, const FileResult& result) = 0;
};

struct OffloadPlan;

/// Plans the job: checks the paths, lists the source, opens the destinations, checks the space. Throws JobRefused when
/// it cannot begin.
void plan_offload(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan);

/// Carries the plan out.
[[nodiscard]] OffloadResult run_offload(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan,
                                        OffloadEvents& events);

}  // namespace tool
