// Reading a folder whole: first all names in large batches, then the facts about those that need any.
//
// Names stay in the batches that the system filled; entries point into them.

#include "files/folder_contents.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include "files/second_thread.h"
#include "platform/posix/file_calls.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {

struct FolderContents::Batch {
    Batch* older;
    size_t bytes;  // behind this head
    [[nodiscard]] std::byte* records() noexcept { return reinterpret_cast<std::byte*>(this + 1); }
    [[nodiscard]] const std::byte* records() const noexcept { return reinterpret_cast<const std::byte*>(this + 1); }
};

namespace {

// Most folders fit into the first batch; the next ones save calls in the folders that do not.
constexpr size_t k_first_batch = size_t{32} << 10U;
constexpr size_t k_next_batch = size_t{256} << 10U;

// Below this many questions a second thread costs more than it brings.
constexpr int32_t k_worth_a_thread = 2048;
constexpr int32_t k_share = 256;  // entries that a thread takes at once

/// The entries to look through, shared by two threads that take pieces from them.
struct Questions {
    int folder;
    GrowingArray<FolderEntry>& entries;
    std::atomic<int32_t> next{0};

    void answer() noexcept {
        for (;;) {
            const int32_t first = next.fetch_add(k_share, std::memory_order_relaxed);
            if (first >= entries.count()) return;
            for (int32_t i = first; i < std::min(first + k_share, entries.count()); ++i)
                if (entries[i].wants_facts) fetch_entry_facts(folder, entries[i]);
        }
    }
};

void answer_on_second_thread(void* questions) {
    static_cast<Questions*>(questions)->answer();
}

}  // namespace

bool FolderEntry::is_directory() const noexcept {
    return kind == EntryKind::folder && !file_is_bundle(name);
}

bool is_left_out(const char* folder_name) noexcept {
    return folder_name[0] == '.' && (folder_name[1] == '\0' || folder_name[1] == '.');
}

FolderContents::~FolderContents() {
    while (newest_ != nullptr) {
        Batch* older = newest_->older;
        std::free(newest_);
        newest_ = older;
    }
}

FolderContents::Batch* FolderContents::add_batch() noexcept {
    const size_t bytes = newest_ == nullptr ? k_first_batch : k_next_batch;
    auto* batch = static_cast<Batch*>(std::malloc(sizeof(Batch) + bytes));
    if (batch == nullptr) return nullptr;
    *batch = {newest_, bytes};
    newest_ = batch;
    return batch;
}

bool FolderContents::take_records(const Batch& batch, size_t bytes) noexcept {
    for (size_t offset = 0; offset < bytes;) {
        const FolderRecord record = take_record(batch.records(), offset);
        if (!entries_.add({record.name, 0, 0, record.kind, false})) return false;
    }
    return true;
}

int FolderContents::read(int folder) noexcept {
    for (;;) {
        Batch* batch = add_batch();
        if (batch == nullptr) return ENOMEM;
        const ssize_t bytes = file_calls.read_folder(folder, batch->records(), batch->bytes);
        if (bytes <= 0) return bytes < 0 ? errno : 0;
        if (!take_records(*batch, static_cast<size_t>(bytes))) return ENOMEM;
    }
}

void fetch_entry_facts(int folder, FolderEntry& entry) noexcept {
    EntryFacts facts{};
    if (file_calls.entry_facts(folder, entry.name, /*follows_links*/ true, &facts) != 0) {
        entry.error = errno;
        return;
    }
    entry.kind = facts.kind;
    entry.modified_s = facts.modified_s;
}

void FolderContents::fetch_facts(int folder) noexcept {
    const auto wants = [](const FolderEntry& entry) { return entry.wants_facts; };
    const auto wanted = std::count_if(entries_.begin(), entries_.end(), wants);
    Questions questions{folder, entries_};
    if (wanted < k_worth_a_thread) {
        questions.answer();
        return;
    }
    SecondThread helper(answer_on_second_thread, &questions);
    questions.answer();
}

void FolderContents::repeat_unknown(const char* path) noexcept {
    FolderEntry previous{"", 0, 0, EntryKind::unknown, false};
    for (FolderEntry& entry : entries_) {
        if (entry.error != 0) {
            report_unknown_entry(path, entry.name, entry.error);
            entry = previous;
        }
        previous = entry;
    }
}

void report_unknown_entry(const char* path, const char* name, int error) noexcept {
    const size_t length = strlen(path);
    const bool has_slash = length > 0 && path[length - 1] == '/';
    errno = error;
    msgdebug("Error statting file: %s%s%s (%s)", path, has_slash ? "" : "/", name, os_errormsg());
}

}  // namespace vell
