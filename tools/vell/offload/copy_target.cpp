#include "offload/copy_target.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tool {
namespace {

// The read-back trails by at least the first, so that a flush of the disk is worth its time, and by at most the second.
constexpr uint64_t k_flush_bytes = uint64_t{64} << 20;
constexpr uint64_t k_most_unchecked_bytes = uint64_t{256} << 20;
constexpr mode_t k_permissions = 0777;

}  // namespace

CopyTarget::CopyTarget(Destination& destination, const OffloadOptions& options, const CancelFlag& cancel, mode_t mask,
                       const FileEntry& file)
    : destination_(destination),
      options_(options),
      cancel_(cancel),
      mask_(mask),
      file_(file),
      name_(name_of(file.path)) {}

CopyTarget::~CopyTarget() {
    if (!temporary_.empty()) disk_calls.remove(folder_->get(), temporary_.c_str());
    count(file_.bytes - counted_);
}

void CopyTarget::count(uint64_t bytes) {
    counted_ += bytes;
    destination_.progress.bytes_done.fetch_add(bytes, std::memory_order_relaxed);
}

void CopyTarget::fail(Problem problem) {
    const std::lock_guard lock(lock_);
    if (!has_failed()) problem_ = std::move(problem);
    has_failed_.store(true, std::memory_order_release);
    written_changed_.notify_all();
}

void CopyTarget::fail(int error) {
    fail(system_problem(error));
    destination_.consider(error);
}

void CopyTarget::abandon(const Problem& problem) {
    fail(problem);
}

FileResult CopyTarget::failure() const {
    const std::lock_guard lock(lock_);
    return {file_.path, file_.bytes, Outcome::failed, problem_, {}, false};
}

bool CopyTarget::begin() {
    if (file_.bytes > 0) {
        buffer_ =
            aligned_bytes(rounded_to_alignment(static_cast<size_t>(std::min<uint64_t>(file_.bytes, k_block_bytes))));
    }
    folder_ = destination_.folder(folder_of(file_.path));
    if (folder_ == nullptr) {
        fail(errno);
        return false;
    }
    struct stat facts {};
    if (disk_calls.facts(folder_->get(), name_.c_str(), &facts) != 0) {
        if (errno == ENOENT) return begin_new(/*replaces*/ false);
        fail(errno);
        return false;
    }
    if (!S_ISREG(facts.st_mode)) {
        fail({.kind = ProblemKind::other_kind, .mode = facts.st_mode});
        return false;
    }
    return options_.overwrites ? begin_new(/*replaces*/ true) : begin_comparison(static_cast<uint64_t>(facts.st_size));
}

bool CopyTarget::begin_new(bool replaces) {
    replaces_ = replaces;
    const std::string temporary = temporary_name();
    int error = copy_.create(folder_->get(), temporary.c_str());
    if (error == 0) {
        temporary_ = temporary;
        const bool is_refused =
            file_.bytes > 0 && disk_calls.reserve(copy_.descriptor(), static_cast<off_t>(file_.bytes)) != 0;
        // Most file systems cannot reserve; those that can tell that the disk is full before it is.
        if (is_refused && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) error = errno;
    }
    if (error != 0) fail(error);
    return error == 0;
}

bool CopyTarget::begin_comparison(uint64_t bytes_there) {
    compares_ = true;
    if (bytes_there != file_.bytes) {
        fail({.kind = ProblemKind::other_size, .first = bytes_there, .second = file_.bytes});
        return false;
    }
    int error = copy_.open(folder_->get(), name_.c_str());
    if (error == 0) error = copy_.settle();  // it may have been written a moment ago
    if (error != 0) fail(error);
    return error == 0;
}

void CopyTarget::take(const Block& block) {
    if (has_failed() || destination_.is_dropped()) return;
    if (compares_) return compare(block);
    const int error = copy_.write(block.data, block.bytes, block.offset);
    if (error != 0) return fail(error);
    if (!options_.verifies) return count(block.bytes);
    std::unique_lock lock(lock_);
    written_.push_back({block.offset, block.bytes, block.fingerprint});
    written_bytes_ += block.bytes;
    written_changed_.notify_all();
    written_changed_.wait(lock, [this] { return written_bytes_ < k_most_unchecked_bytes || has_failed(); });
}

void CopyTarget::compare(const Block& block) {
    size_t bytes = 0;
    const int error = copy_.read(buffer_.get(), rounded_to_alignment(block.bytes), block.offset, bytes);
    if (error != 0) return fail(error);
    if (bytes < block.bytes || std::memcmp(buffer_.get(), block.data, block.bytes) != 0) {
        return fail({.kind = ProblemKind::other_content, .first = block.offset});
    }
    count(block.bytes);
}

void CopyTarget::end_of_data() {
    // The last transfer may have written more than the file has.
    if (!has_failed() && !compares_ && disk_calls.cut(copy_.descriptor(), static_cast<off_t>(file_.bytes)) != 0) {
        fail(errno);
    }
    const std::lock_guard lock(lock_);
    has_ended_ = true;
    written_changed_.notify_all();
}

void CopyTarget::read_back() {
    if (compares_ || !options_.verifies) return;
    for (;;) {
        std::deque<Written> batch;
        {
            std::unique_lock lock(lock_);
            written_changed_.wait(lock,
                                  [this] { return written_bytes_ >= k_flush_bytes || has_ended_ || has_failed(); });
            if (has_failed() || (written_.empty() && has_ended_)) return;
            batch.swap(written_);
        }
        const int error = copy_.settle();
        if (error != 0) return fail(error);
        for (const Written& written : batch) {
            if (is_set(cancel_)) abandon({.kind = ProblemKind::interrupted});  // take() may be waiting for us
            if (has_failed()) return;
            check(written);
            const std::lock_guard lock(lock_);
            written_bytes_ -= written.bytes;
            written_changed_.notify_all();
        }
    }
}

void CopyTarget::check(const Written& written) {
    size_t bytes = 0;
    const int error = copy_.read(buffer_.get(), rounded_to_alignment(written.bytes), written.offset, bytes);
    if (error != 0) return fail(error);
    if (bytes < written.bytes || fingerprint_of(buffer_.get(), written.bytes) != written.fingerprint) {
        return fail(
            {.kind = ProblemKind::read_back, .first = written.offset, .second = written.offset + written.bytes});
    }
    count(written.bytes);
}

/// Digests of another choice that are on record stay there.
void CopyTarget::keep_known_digests(Digests& digests) {
    const JournalEntry* known = destination_.find_unchanged(file_);
    for (size_t i = 0; known != nullptr && i < digests.size(); ++i) {
        if (digests[i].empty()) digests[i] = known->digests[i];
    }
}

bool CopyTarget::settle(const Digests& digests, PendingFile& pending) {
    struct stat facts {};
    if (!has_failed() && destination_.is_dropped()) fail(destination_.drop_reason());
    if (has_failed()) return false;
    if (!compares_) {
        // File systems without permissions or with coarse times do what they can.
        const timespec times[2] = {timespec_of(file_.changed_ns), timespec_of(file_.changed_ns)};
        disk_calls.set_times(copy_.descriptor(), times);
        disk_calls.set_mode(copy_.descriptor(), file_.mode & k_permissions & ~mask_);
    }
    const bool is_done = compares_ || disk_calls.sync(copy_.descriptor()) == 0;
    if (!is_done || disk_calls.file_facts(copy_.descriptor(), &facts) != 0) {
        fail(errno);
        return false;
    }
    const bool is_verified = compares_ || options_.verifies;
    pending.folder = folder_;
    pending.temporary = temporary_;
    pending.replaces = replaces_;
    pending.entry = {file_.path, file_.bytes, file_.changed_ns, nanoseconds_of(facts.st_mtim), digests, is_verified};
    keep_known_digests(pending.entry.digests);
    const Outcome outcome = is_verified ? Outcome::verified : Outcome::copied;
    pending.result = {file_.path, file_.bytes, outcome, {}, pending.entry.digests, /*is_new*/ !compares_};
    temporary_.clear();
    copy_.close();
    return true;
}

}  // namespace tool
