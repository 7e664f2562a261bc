// What a folder holds, as the system tells it: batches of records with names, and the facts about one name.
//
// The calls themselves are entries of the file-call table (platform/posix/file_calls.h).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

enum class EntryKind : uint8_t { unknown, file, folder, link, other };

struct EntryFacts {
    uint64_t device;
    uint64_t inode;
    int64_t modified_s;  ///< seconds since 1970
    EntryKind kind;
};

/// One record of a batch.
struct FolderRecord {
    const char* name;  ///< in the batch
    EntryKind kind;    ///< of the name itself; unknown where the file system does not tell
};

/// The record that starts `offset` bytes into a batch; `offset` moves to the next.
[[nodiscard]] FolderRecord take_record(const void* batch, size_t& offset) noexcept;

/// Flags for opening a folder only to name things in it, which needs no permission to read it.
extern const int k_folder_handle;

/// True when names in this open folder differ by their case.
[[nodiscard]] bool are_names_case_sensitive(int folder) noexcept;

}  // namespace vell
