// What the user sees of an offload: lines, or bars on a terminal, or one JSON object for each event.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "commands/offload.h"
#include "offload/offload_plan.h"
#include "ui/screen.h"

namespace tool {

/// Any thread may report.
class OffloadReport final : public OffloadEvents {
public:
    OffloadReport(const OffloadCommand& command, const OffloadPlan& plan);

    void start();
    void left_out(const LeftOut& what) override;
    void warning(const std::string& path, const Problem& problem) override;
    void file(size_t destination, const FileResult& result) override;
    void current(const std::string& path) override;
    /// Nothing is drawn any more; then the summaries.
    void finish(const OffloadResult& result, int exit_code);

private:
    [[nodiscard]] std::vector<std::string> picture();
    [[nodiscard]] std::string bar_line(const Destination& destination) const;
    [[nodiscard]] std::string progress_event(const Destination& destination) const;
    [[nodiscard]] std::string start_event() const;
    [[nodiscard]] std::string file_event(const Destination& destination, const FileResult& result) const;
    void summarise(const Destination& destination, const DestinationCounts& counts);
    [[nodiscard]] double seconds() const;

    const OffloadCommand& command_;
    const OffloadPlan& plan_;
    const std::chrono::steady_clock::time_point start_;
    std::mutex lock_;  ///< guards the path
    std::string current_;
    Screen screen_;
};

}  // namespace tool
