// All names in one folder, with as many facts about them as the reader needs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "files/growing_array.h"
#include "platform/folder_records.h"

namespace vell {

struct FolderEntry {
    const char* name;    ///< in a batch of the contents; empty where nothing is known (see repeat_unknown)
    int64_t modified_s;  ///< 0 until the facts were fetched
    int32_t error;       ///< why the facts cannot be had, or 0
    EntryKind kind;      ///< of the name itself; after its facts were fetched, behind the link
    bool wants_facts;    ///< set by the reader before fetch_facts

    /// A folder that is no bundle.
    [[nodiscard]] bool is_directory() const noexcept;
};

/// True for "." and every name with two dots in front: as folders they are neither listed nor searched.
[[nodiscard]] bool is_left_out(const char* folder_name) noexcept;

class FolderContents {
public:
    FolderContents() noexcept = default;
    ~FolderContents();
    FolderContents(const FolderContents&) = delete;
    FolderContents& operator=(const FolderContents&) = delete;

    /// Reads all names of an open folder, in its own order and with "." and "..". @return 0 or an errno value; what
    /// was read before it stays.
    [[nodiscard]] int read(int folder) noexcept;

    /// Examines the entries that want it, links followed; large numbers on two threads.
    void fetch_facts(int folder) noexcept;

    /// Lets each entry that could not be examined repeat the one before it; the first ones become empty names.
    /// Writes the debug lines. `path` names the folder in them.
    void repeat_unknown(const char* path) noexcept;

    [[nodiscard]] GrowingArray<FolderEntry>& entries() noexcept { return entries_; }

private:
    struct Batch;

    [[nodiscard]] Batch* add_batch() noexcept;
    [[nodiscard]] bool take_records(const Batch& batch, size_t bytes) noexcept;

    Batch* newest_ = nullptr;
    GrowingArray<FolderEntry> entries_;
};

/// Examines one entry, links followed.
void fetch_entry_facts(int folder, FolderEntry& entry) noexcept;

/// The debug line about a name that cannot be examined. `path` is its folder's, with or without a "/" at its end.
void report_unknown_entry(const char* path, const char* name, int error) noexcept;

}  // namespace vell
