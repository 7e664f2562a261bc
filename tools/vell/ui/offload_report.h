// What the user sees of an offload: lines, or bars on a terminal, or one JSON object for each event.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "offload/offload.h"
#include "offload/offload_plan.h"
#include "offload/offload_result.h"
#include "offload/sum_list.h"
#include "ui/screen.h"

namespace tool {

/// One destination's results so far.
struct DestinationCounts {
    size_t files[4] = {};  ///< by Outcome
    uint64_t bytes = 0;    ///< verified and copied
    size_t mismatches = 0;
    double seconds = 0;                                ///< from the start to the last file
    std::vector<SumLine> listed[k_digest_kind_count];  ///< for the lists; see merge_sum_lists
    [[nodiscard]] size_t of(Outcome outcome) const { return files[static_cast<int>(outcome)]; }
};

/// Any thread may report.
class OffloadReport {
public:
    OffloadReport(const OffloadOptions& options, const OffloadPlan& plan);

    void start();
    void left_out(const LeftOut& what);
    void note(const std::string& text);  ///< about the run as a whole
    void file(size_t destination, const FileResult& result);
    void current(const std::string& path);
    /// Nothing is drawn any more; then the summaries.
    void finish(bool is_interrupted, int exit_code);

    [[nodiscard]] const DestinationCounts& counts(size_t destination) const { return counts_[destination]; }

private:
    [[nodiscard]] std::vector<std::string> picture();
    [[nodiscard]] std::string bar_line(const Destination& destination) const;
    [[nodiscard]] std::string progress_event(const Destination& destination) const;
    [[nodiscard]] std::string start_event() const;
    [[nodiscard]] std::string file_event(const Destination& destination, const FileResult& result) const;
    void summarise(size_t destination);
    [[nodiscard]] double seconds() const;

    const OffloadOptions& options_;
    const OffloadPlan& plan_;
    const std::chrono::steady_clock::time_point start_;
    std::mutex lock_;  ///< guards the two below
    std::vector<DestinationCounts> counts_;
    std::string current_;
    Screen screen_;
};

}  // namespace tool
