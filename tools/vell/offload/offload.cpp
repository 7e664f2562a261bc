// The job: plan, then a few workers that take files in order, then the lists. Small files go on their workers, several
// at a time; large ones have threads of their own and a limit on how many are at work.

#include "offload/offload.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <semaphore>
#include <set>
#include <thread>

#include "offload/finisher.h"
#include "offload/interrupt.h"
#include "offload/offload_plan.h"
#include "offload/parallel.h"
#include "offload/whole_file.h"
#include "ui/error_text.h"
#include "ui/file_names.h"
#include "ui/offload_report.h"
#include "ui/problem_text.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr size_t k_workers = 8;
constexpr mode_t k_permissions = 0777;
constexpr mode_t k_owner = 0700;

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
    Offload(const OffloadOptions& options, OffloadPlan& plan)
        : options_(options),
          plan_(plan),
          mask_(creation_mask()),
          report_(options, plan),
          large_files_(large_files_at_once()) {}

    int run();

private:
    void make_folders(Destination& destination);
    void keep_folder_facts(size_t index);
    void count_wanted_bytes();
    [[nodiscard]] bool work_on(size_t index);
    void copy(FileEntry file);
    void settle(size_t index, CopyTarget& target, const Digests& digests);
    [[nodiscard]] bool has_file(std::string_view path) const;
    [[nodiscard]] int merge_into_list(int folder, DigestKind kind, const std::vector<SumLine>& lines) const;
    void write_lists(size_t index);
    [[nodiscard]] bool has_destination() const;
    [[nodiscard]] int exit_code() const;

    const OffloadOptions& options_;
    OffloadPlan& plan_;
    const mode_t mask_;
    OffloadReport report_;
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
            report_.note(printable_name(destination.path_of(folder.path)) + ": " + error_text(errno));
            has_failure_ = true;
            destination.consider(errno);
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

void Offload::count_wanted_bytes() {
    for (const auto& destination : plan_.destinations) {
        for (const FileEntry& file : plan_.contents.files) {
            if (destination->find_proven(file, options_.digests, options_.verifies) == nullptr) {
                destination->progress.bytes_wanted += file.bytes;
            }
        }
    }
}

void Offload::settle(size_t index, CopyTarget& target, const Digests& digests) {
    PendingFile pending;
    if (target.settle(digests, pending)) {
        finishers_[index]->add(std::move(pending));
    } else if (!is_interrupted()) {
        report_.file(index, target.failure());
    }
}

void Offload::copy(FileEntry file) {
    std::vector<std::unique_ptr<CopyTarget>> targets;
    std::vector<size_t> indices;
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        Destination& destination = *plan_.destinations[i];
        if (destination.is_dropped()) continue;
        if (const JournalEntry* entry = destination.find_proven(file, options_.digests, options_.verifies)) {
            report_.file(i, {file.path, file.bytes, Outcome::skipped, {}, entry->digests, false});
            continue;
        }
        targets.push_back(std::make_unique<CopyTarget>(destination, options_, mask_, file));
        indices.push_back(i);
    }
    if (targets.empty()) return;
    report_.current(file.path);
    Digests digests;
    try {
        digests = copy_to_targets(plan_.source, file, options_.digests, targets);
    } catch (const std::exception& error) {
        for (const auto& target : targets)
            target->abandon(exception_problem(error.what()));
    }
    for (size_t i = 0; i < targets.size(); ++i)
        settle(indices[i], *targets[i], digests);
}

/// False when no more files are to be begun.
bool Offload::work_on(size_t index) {
    if (is_interrupted() || !has_destination()) return false;
    const FileEntry& file = plan_.contents.files[index];
    const bool is_large = !is_small(file.bytes);
    if (is_large) large_files_.acquire();
    if (!is_interrupted()) copy(file);
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
        const auto& lines = report_.counts(index).listed[static_cast<size_t>(kind)];
        const char* name = names_of(kind).list_name;
        if (lines.empty() || destination.is_dropped() || has_file(name)) continue;
        const int error = merge_into_list(destination.root(), kind, lines);
        if (error == 0) continue;
        report_.note(printable_name(destination.path_of(name)) + ": " + error_text(error));
        has_failure_ = true;
        destination.consider(error);
    }
}

int Offload::exit_code() const {
    bool is_incomplete = has_failure_, has_mismatch = false, lacks_space = false;
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        const DestinationCounts& counts = report_.counts(i);
        is_incomplete |= counts.of(Outcome::failed) > 0 || plan_.destinations[i]->is_dropped();
        has_mismatch |= counts.mismatches > 0;
        const int error = plan_.destinations[i]->drop_reason().error;
        lacks_space |= error == ENOSPC || error == EDQUOT;
    }
    if (has_mismatch) return k_exit_mismatch;
    if (is_interrupted()) return k_exit_interrupted;
    if (lacks_space) return k_exit_no_space;
    return is_incomplete ? k_exit_incomplete : k_exit_done;
}

int Offload::run() {
    count_wanted_bytes();
    report_.start();
    for (const LeftOut& what : plan_.contents.left_out) {
        report_.left_out(what);
        if (what.is_failure) has_failure_ = true;
    }
    for (const auto& destination : plan_.destinations) {
        if (destination->bad_journal_lines() > 0) {
            report_.note(printable_name(destination->path_of(k_journal_name)) + ": " +
                         formatted(tr("problem",
                                      "%llu damaged or foreign lines do not count; what they told of is proven again"),
                                   number(destination->bad_journal_lines())));
        }
        make_folders(*destination);
    }
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        finishers_.push_back(std::make_unique<Finisher>(
            *plan_.destinations[i], [this, i](const FileResult& result) { report_.file(i, result); }));
    }
    for_each_index(plan_.contents.files.size(), k_workers, [this](size_t index) { return work_on(index); });
    finishers_.clear();
    for (size_t i = 0; i < plan_.destinations.size(); ++i) {
        write_lists(i);
        keep_folder_facts(i);
    }
    report_.finish(is_interrupted(), exit_code());
    if (!has_printed_all()) has_failure_ = true;
    return exit_code();
}

}  // namespace

int offload(const OffloadOptions& options) {
    catch_interrupts();
    OffloadPlan plan;
    try {
        refuse_overlaps(options);
        list_source(options, plan);
        open_destinations(options, plan);
        remove_leftovers(plan);
        check_space(options, plan);
    } catch (const JobRefused& refused) {
        throw failure_of(refused);
    }
    return Offload(options, plan).run();
}

}  // namespace tool
