// One file on its way to one destination.
//
//     begin() > take() for every block > end_of_data() > settle()
//
// read_back() runs beside take() on a thread of its own, or after end_of_data() on the same one. A file that is there
// already, of the same size and not on record, is not written but compared with the blocks.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "offload/block_stream.h"
#include "offload/destination.h"
#include "offload/offload.h"
#include "offload/offload_result.h"
#include "offload/uncached_file.h"

namespace tool {

/// A copy that only its name, its record and its report are missing from.
struct PendingFile {
    std::shared_ptr<Descriptor> folder;
    std::string temporary;  ///< empty: the file has its name already
    bool replaces = false;
    JournalEntry entry;
    FileResult result;
};

class CopyTarget {
public:
    CopyTarget(Destination& destination, const OffloadOptions& options, const CancelFlag& cancel, mode_t mask,
               const FileEntry& file);
    ~CopyTarget();
    CopyTarget(const CopyTarget&) = delete;
    CopyTarget& operator=(const CopyTarget&) = delete;

    /// False when it failed already.
    [[nodiscard]] bool begin();
    void take(const Block& block);
    /// The last block was taken.
    void end_of_data();
    /// Has what was taken on disk, reads it from there and compares, until the end.
    void read_back();
    /// No more blocks come, and those taken do not count.
    void abandon(const Problem& problem);

    /// Gives the file its size, times and permissions. True when `pending` is to be finished.
    [[nodiscard]] bool settle(const Digests& digests, PendingFile& pending);
    [[nodiscard]] FileResult failure() const;
    [[nodiscard]] Destination& destination() const { return destination_; }
    [[nodiscard]] bool has_failed() const { return has_failed_.load(std::memory_order_acquire); }

private:
    struct Written {
        uint64_t offset;
        size_t bytes;
        Fingerprint fingerprint;
    };

    [[nodiscard]] bool begin_new(bool replaces);
    [[nodiscard]] bool begin_comparison(uint64_t bytes_there);
    void compare(const Block& block);
    void check(const Written& written);
    void keep_known_digests(Digests& digests);
    void fail(int error);
    void fail(Problem problem);
    void count(uint64_t bytes);

    Destination& destination_;
    const OffloadOptions& options_;
    const CancelFlag& cancel_;
    const mode_t mask_;
    const FileEntry& file_;
    const std::string name_;
    std::shared_ptr<Descriptor> folder_;
    std::string temporary_;  ///< empty: nothing to remove
    bool replaces_ = false;
    bool compares_ = false;
    UncachedFile copy_;
    AlignedBytes buffer_;  ///< for what is read back
    uint64_t counted_ = 0;

    mutable std::mutex lock_;  ///< guards what follows
    std::condition_variable written_changed_;
    std::deque<Written> written_;
    uint64_t written_bytes_ = 0;  ///< in written_
    bool has_ended_ = false;
    Problem problem_;
    std::atomic<bool> has_failed_{false};
};

}  // namespace tool
