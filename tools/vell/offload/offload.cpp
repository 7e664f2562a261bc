// The job: plan, then a few workers that take files in order, then the lists. Small files go on their workers, several
// at a time; large ones have threads of their own and a limit on how many are at work.

#include "offload/offload.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <semaphore>
#include <set>
#include <thread>

#include "offload/finisher.h"
#include "offload/offload_plan.h"
#include "offload/parallel.h"
#include "offload/whole_file.h"

namespace tool {
namespace {

constexpr size_t k_workers = 8;
constexpr mode_t k_permissions = 0777;
constexpr mode_t k_owner = 0700;

int64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return nanoseconds_of(now);
}

mode_t creation_mask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

/// Each keeps about two processors busy; a second one works while the first has its last blocks proven.
ptrdiff_t large_files_at_once() {
    return std::clamp<ptrdiff_t>(std::thread::hardware_concurrency() / 2, 2, 4);
}

class Offload {
public:
    Offload(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan, OffloadEvents& events)
        : options_(options),
          cancel_(cancel),
          plan_(plan),
          events_(events),
          mask_(creation_mask()),
          counts_(plan.destinations.size()),
          large_files_(large_files_at_once()) {}

    [[nodiscard]] OffloadResult run();

private:
    void make_folders(Destination& destination);
    void keep_folder_facts(size_t index);
    [[nodiscard]] bool work_on(size_t index);
    void copy(FileEntry file);
    void settle(size_t index, CopyTarget& target, const Digests& digests);
    [[nodiscard]] bool has_file(std::string_view path) const;
    [[nodiscard]] int merge_into_list(int folder, DigestKind kind, const std::vector<SumLine>& lines) const;
    void write_lists(size_t index);
    [[nodiscard]] bool has_destination() const;
    void report(size_t index, const FileResult& result);
    void count(size_t index, const FileResult& result);
    void warn(const std::string& path, const Problem& problem);

    const OffloadOptions& options_;
    const CancelFlag& cancel_;
    OffloadPlan& plan_;
    OffloadEvents& events_;
    const mode_t mask_;
    const int64_t start_ns_ = now_ns();
    std::mutex counts_lock_;  ///< guards the counts while workers run
    std::vector<DestinationCounts> counts_;
    std::counting_semaphore<> large_files_;
    std::vector<std::unique_ptr<Finisher>> finishers_;
    std::vector<std::set<std::string>> made_folders_;  ///< by destination
    std::atomic<bool> has_failure_{false};             ///< beside the files'
};

bool Offload::has_destination() const {
    return std::any_of(plan_.destinations.begin(), plan_.destinations.end(),
                       [](const auto& destination) { return !destination->is_dropped(); });
}

/// Makes the folders that are missing and has their names on disk.
void Offload::make_folders(Destination& destination) {
    made_folders_.emplace_back();
    std::set<std::string> parents;
    for (const FileEntry& folder : plan_.contents.folders) {
        if (destination.is_dropped()) return;
        const std::string parent(folder_of(folder.path));
        const std::string name(name_of(folder.path));
        const auto where = destination.folder(parent);
        if (where == nullptr) continue;  // told of already
        if (disk_calls.make_folder(where->get(), name.c_str(), k_owner | (k_permissions & ~mask_)) == 0) {
            made_folders_.back().insert(folder.path);
            parents.insert(parent);
        } else if (errno != EEXIST || !open_folder(where->get(), name).is_open()) {
            const int error = errno;
            warn(destination.path_of(folder.path), system_problem(error));
            destination.consider(error);
        }
    }
    for (const std::string& parent : parents) {
        const auto where = destination.folder(parent);
        if (where != nullptr && disk_calls.sync(where->get()) != 0) destination.consider(errno);
    }
}

/// Times and permissions of the folders that offloads made, children first. An interrupted run may have made them
/// before this one. The owner can always go on working in them.
void Offload::keep_folder_facts(size_t index) {
    for (auto folder = plan_.contents.folders.rbegin(); folder != plan_.contents.folders.rend(); ++folder) {
        Destination& destination = *plan_.destinations[index];
        const bool is_ours = destination.has_history() || made_folders_[index].count(folder->path) != 0;
        if (destination.is_dropped() || !is_ours) continue;
        const auto where = destination.folder(folder->path);
        if (where == nullptr) continue;
        const timespec time = timespec_of(folder->changed_ns);
        const timespec times[2] = {time, time};
        disk_calls.set_times(where->get(), times);
        disk_calls.set_mode(where->get(), k_owner | (folder->mode & k_permissions & ~mask_));
    }
}

void Offload::settle(size_t index, CopyTarget& target, const Digests& digests) {
    PendingFile pending;
    if (target.settle(digests, pending)) {
        finishers_[index]->add(std::move(pending));
    } else if (!is_set(cancel_)) {
        report(index, target.failure());
    }
}

void Offload::copy(FileEntry file) {
    std::vector<std::unique_ptr<CopyTarget>> targets;
    std::vector<size_t> indices;
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        Destination& destination = *plan_.destinations[i];
        if (destination.is_dropped()) continue;
        if (const JournalEntry* entry = destination.find_proven(file, options_.digests, options_.verifies)) {
            report(i, {file.path, file.bytes, Outcome::skipped, {}, entry->digests, false});
            continue;
        }
        targets.push_back(std::make_unique<CopyTarget>(destination, options_, cancel_, mask_, file));
        indices.push_back(i);
    }
    if (targets.empty()) return;
    events_.current(file.path);
    Digests digests;
    try {
        digests = copy_to_targets(plan_.source, file, options_.digests, cancel_, targets);
    } catch (const std::exception& error) {
        for (const auto& target : targets)
            target->abandon(exception_problem(error.what()));
    }
    for (size_t i = 0; i < targets.size(); ++i)
        settle(indices[i], *targets[i], digests);
}

/// False when no more files are to be begun.
bool Offload::work_on(size_t index) {
    if (is_set(cancel_) || !has_destination()) return false;
    const FileEntry& file = plan_.contents.files[index];
    const bool is_large = !is_small(file.bytes);
    if (is_large) large_files_.acquire();
    if (!is_set(cancel_)) copy(file);
    if (is_large) large_files_.release();
    return true;
}

/// True when the source has a file of that name, which is the user's then.
bool Offload::has_file(std::string_view path) const {
    return std::any_of(plan_.contents.files.begin(), plan_.contents.files.end(),
                       [path](const FileEntry& file) { return file.path == path; });
}

/// 0 or the system's error number.
int Offload::merge_into_list(int folder, DigestKind kind, const std::vector<SumLine>& lines) const {
    const char* name = names_of(kind).list_name;
    std::string text;
    const int error = read_whole_file_at(folder, name, text);
    if (error != 0 && error != ENOENT) return error;
    const std::string merged = merge_sum_lists(kind, text, lines);
    return merged == text ? 0 : write_whole_file_at(folder, name, merged, mask_);
}

void Offload::write_lists(size_t index) {
    Destination& destination = *plan_.destinations[index];
    for (const DigestKind kind : k_digest_kinds) {
        const auto& lines = counts_[index].listed[static_cast<size_t>(kind)];
        const char* name = names_of(kind).list_name;
        if (lines.empty() || destination.is_dropped() || has_file(name)) continue;
        const int error = merge_into_list(destination.root(), kind, lines);
        if (error == 0) continue;
        warn(destination.path_of(name), system_problem(error));
        destination.consider(error);
    }
}

void Offload::warn(const std::string& path, const Problem& problem) {
    has_failure_ = true;
    events_.warning(path, problem);
}

void Offload::count(size_t index, const FileResult& result) {
    constexpr double k_ns_per_second = 1e9;
    const std::lock_guard lock(counts_lock_);
    DestinationCounts& counts = counts_[index];
    ++counts.files[static_cast<int>(result.outcome)];
    counts.mismatches += result.is_mismatch() ? 1U : 0U;
    counts.seconds = static_cast<double>(now_ns() - start_ns_) / k_ns_per_second;
    if (result.outcome == Outcome::verified || result.outcome == Outcome::copied) counts.bytes += result.bytes;
    if (result.outcome == Outcome::failed) return;
    for (const DigestKind kind : k_digest_kinds) {
        const std::string& digest = digest_of(result.digests, kind);
        const bool is_wanted = options_.digests.has(kind) && !digest.empty();
        if (is_wanted || result.is_new) counts.listed[static_cast<size_t>(kind)].push_back({digest, result.path, kind});
    }
}

void Offload::report(size_t index, const FileResult& result) {
    count(index, result);
    events_.file(index, result);
}

OffloadResult Offload::run() {
    for (const LeftOut& what : plan_.contents.left_out) {
        events_.left_out(what);
        if (what.is_failure) has_failure_ = true;
    }
    for (const auto& destination : plan_.destinations) {
        if (destination->bad_journal_lines() > 0) {
            events_.warning(destination->path_of(k_journal_name),
                            {.kind = ProblemKind::journal_damaged, .first = destination->bad_journal_lines()});
        }
        make_folders(*destination);
    }
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        finishers_.push_back(std::make_unique<Finisher>(*plan_.destinations[i],
                                                        [this, i](const FileResult& result) { report(i, result); }));
    }
    for_each_index(plan_.contents.files.size(), k_workers, [this](size_t index) { return work_on(index); });
    finishers_.clear();
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        write_lists(i);
        keep_folder_facts(i);
    }
    return {std::move(counts_), has_failure_, is_set(cancel_)};
}

void count_wanted_bytes(const OffloadOptions& options, const OffloadPlan& plan) {
    for (const auto& destination : plan.destinations) {
        for (const FileEntry& file : plan.contents.files) {
            if (destination->find_proven(file, options.digests, options.verifies) == nullptr)
                destination->progress.bytes_wanted += file.bytes;
        }
    }
}

}  // namespace

void plan_offload(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan) {
    refuse_overlaps(options);
    list_source(options, cancel, plan);
    open_destinations(options, plan);
    remove_leftovers(plan);
    check_space(options, plan);
    count_wanted_bytes(options, plan);
}

OffloadResult run_offload(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan,
                          OffloadEvents& events) {
    return Offload(options, cancel, plan, events).run();
}

}  // namespace tool
