// Gives proven copies their names, many at a time: the copies are on disk already; now come the renaming, the folders'
// names to disk, the records, and then the reports. A power cut between any two of these loses at most a record, and
// the next run proves that copy again.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "offload/copy_target.h"

namespace tool {

/// One destination's finisher, with a thread of its own.
class Finisher {
public:
    using Report = std::function<void(const FileResult&)>;
    Finisher(Destination& destination, Report report);
    ~Finisher();  ///< finishes what was added
    Finisher(const Finisher&) = delete;
    Finisher& operator=(const Finisher&) = delete;

    /// Waits while many are waiting.
    void add(PendingFile pending);

private:
    void work();
    void finish(std::vector<PendingFile>& batch);

    Destination& destination_;
    Report report_;
    std::mutex lock_;  ///< guards what follows
    std::condition_variable changed_;
    std::vector<PendingFile> waiting_;
    bool is_ending_ = false;
    std::thread thread_;
};

}  // namespace tool
