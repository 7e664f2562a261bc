// One destination: its folder, the record of what it holds, and whether it is still of use.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "offload/descriptor.h"
#include "offload/folder_walk.h"
#include "offload/journal.h"
#include "offload/problem.h"

namespace tool {

/// Bytes on the way to one destination, for whoever shows progress.
struct DestinationProgress {
    std::atomic<uint64_t> bytes_wanted{0};
    std::atomic<uint64_t> bytes_done{0};  ///< read back, or written where nothing is read back
};

/// Any thread may call everything after open().
class Destination {
public:
    explicit Destination(std::string path) : path_(std::move(path)) {}

    /// Makes the folder where it is missing, takes the journal (one offload at a time) and reads it. Drops the
    /// destination when that fails.
    void open();
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] int root() const { return root_.get(); }
    [[nodiscard]] std::string path_of(std::string_view below) const { return path_ + "/" + std::string(below); }

    /// True when the journal of an earlier run was there.
    [[nodiscard]] bool has_history() const { return has_history_; }
    [[nodiscard]] size_t bad_journal_lines() const { return bad_lines_; }
    /// The record of a file whose source and copy are as they were, or null.
    [[nodiscard]] const JournalEntry* find_unchanged(const FileEntry& file);
    /// The same when it holds all these digests and, where that is wanted, the copy was read back.
    [[nodiscard]] const JournalEntry* find_proven(const FileEntry& file, const DigestSet& digests, bool wants_verified);
    /// True when a file of that name and size is there.
    [[nodiscard]] bool has_file(const std::string& path, uint64_t bytes);
    /// Adds records and has them on disk. @return 0 or the system's error number.
    [[nodiscard]] int record(const std::vector<JournalEntry>& entries);

    /// A folder below the root; null with errno set. Those in use are shared.
    [[nodiscard]] std::shared_ptr<Descriptor> folder(std::string_view path);

    /// No more is done here. The first reason stays.
    void drop(const Problem& reason);
    [[nodiscard]] bool is_dropped() const { return is_dropped_.load(std::memory_order_acquire); }
    [[nodiscard]] Problem drop_reason() const;
    /// Drops the destination when the error is one that every further file would meet too.
    void consider(int error);

    DestinationProgress progress;

private:
    [[nodiscard]] bool facts_of(std::string_view path, struct stat& facts);
    [[nodiscard]] int open_root();
    [[nodiscard]] int open_journal();

    std::string path_;
    Descriptor root_;
    Descriptor journal_;
    JournalEntries entries_;  ///< of earlier runs; constant after open()
    bool has_history_ = false;
    bool was_there_ = false;  ///< the folder existed before
    size_t bad_lines_ = 0;

    std::mutex folders_lock_;
    std::map<std::string, std::weak_ptr<Descriptor>, std::less<>> folders_;
    std::shared_ptr<Descriptor> recent_folder_;  ///< stays open: files come folder by folder

    std::atomic<bool> is_dropped_{false};
    mutable std::mutex drop_lock_;  ///< guards the reason
    Problem drop_reason_;
};

/// "<.vell-><16 digits><.part>": what an unfinished copy is called. Different at every call.
[[nodiscard]] std::string temporary_name();
[[nodiscard]] bool is_temporary_name(std::string_view name);

/// Reads a small file whole. 0 or the system's error number.
[[nodiscard]] int read_small_file(int file, std::string& text);
/// Writes everything. 0 or the system's error number.
[[nodiscard]] int append_all(int file, std::string_view text);

}  // namespace tool
