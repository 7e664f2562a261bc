#include "offload/finisher.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tool {
namespace {

constexpr size_t k_most_waiting = 16;  // each keeps a folder open, at every destination

void set_failed(PendingFile& pending, const Problem& problem) {
    pending.result.outcome = Outcome::failed;
    pending.result.problem = problem;
}

bool is_good(const PendingFile& pending) {
    return pending.result.outcome != Outcome::failed;
}

}  // namespace

Finisher::Finisher(Destination& destination, Report report)
    : destination_(destination), report_(std::move(report)), thread_([this] { work(); }) {}

Finisher::~Finisher() {
    {
        const std::lock_guard lock(lock_);
        is_ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void Finisher::add(PendingFile pending) {
    std::unique_lock lock(lock_);
    changed_.wait(lock, [this] { return waiting_.size() < k_most_waiting; });
    waiting_.push_back(std::move(pending));
    changed_.notify_all();
}

void Finisher::work() {
    for (;;) {
        std::vector<PendingFile> batch;
        {
            std::unique_lock lock(lock_);
            changed_.wait(lock, [this] { return !waiting_.empty() || is_ending_; });
            if (waiting_.empty()) return;
            batch.swap(waiting_);
            changed_.notify_all();
        }
        finish(batch);
    }
}

void Finisher::finish(std::vector<PendingFile>& batch) {
    std::vector<int> folders;
    for (PendingFile& pending : batch) {
        const std::string name(name_of(pending.entry.path));
        const int folder = pending.folder->get();
        const bool has_name = pending.temporary.empty();
        if (!has_name && disk_calls.rename(folder, pending.temporary.c_str(), name.c_str(), pending.replaces) != 0) {
            const int error = errno;
            set_failed(pending, error == EEXIST ? problem_with(ProblemKind::name_taken, error) : system_problem(error));
            destination_.consider(error);
            disk_calls.remove(folder, pending.temporary.c_str());
        } else if (std::find(folders.begin(), folders.end(), folder) == folders.end()) {
            folders.push_back(folder);
        }
    }
    Problem problem;
    for (const int folder : folders) {
        if (disk_calls.sync(folder) == 0) continue;
        problem = problem_with(ProblemKind::folder_unsynced, errno);
        destination_.consider(errno);
    }
    std::vector<JournalEntry> entries;
    for (PendingFile& pending : batch) {
        if (is_good(pending) && !problem) entries.push_back(pending.entry);
    }
    const int error = entries.empty() ? 0 : destination_.record(entries);
    if (error != 0) {
        problem = problem_with(ProblemKind::journal_unwritable, error);
        destination_.drop(problem);
    }
    for (PendingFile& pending : batch) {
        if (is_good(pending) && problem) set_failed(pending, problem);
        report_(pending.result);
    }
}

}  // namespace tool
