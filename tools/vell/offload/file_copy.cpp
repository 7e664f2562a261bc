// A large file has a reader (the calling thread), a thread for each digest, and two for each destination: one writes,
// one trails it, flushes the disk and reads back. A small file goes through the same steps on the calling thread.

#include "offload/file_copy.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <thread>

namespace tool {
namespace {

constexpr size_t k_ring_blocks = 16;

/// The open source file and what must not change while it is read.
class SourceFile {
public:
    /// Why it cannot be read, or nothing.
    [[nodiscard]] Problem open(const SourceRoot& root, FileEntry& file);
    /// Reads a block, with its fingerprint. Why it cannot be read, or nothing.
    [[nodiscard]] Problem read(Block& block, uint64_t offset);
    /// What happened to the file since it was opened, or nothing.
    [[nodiscard]] Problem change() const;

private:
    UncachedFile file_;
    uint64_t bytes_ = 0;
    int64_t changed_ns_ = 0;
};

Problem SourceFile::open(const SourceRoot& root, FileEntry& file) {
    const Descriptor folder = open_folder(root.folder.get(), folder_of(file.path));
    if (!folder.is_open()) return problem_with(ProblemKind::unreadable, errno);
    const int error = file_.open(folder.get(), std::string(name_of(file.path)).c_str());
    struct stat facts {};
    if (error != 0 || disk_calls.file_facts(file_.descriptor(), &facts) != 0) {
        return problem_with(ProblemKind::unreadable, error != 0 ? error : errno);
    }
    file.bytes = bytes_ = static_cast<uint64_t>(facts.st_size);
    file.changed_ns = changed_ns_ = nanoseconds_of(facts.st_mtim);
    file.mode = facts.st_mode;
    return {};
}

Problem SourceFile::read(Block& block, uint64_t offset) {
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(k_block_bytes, bytes_ - offset));
    size_t bytes = 0;
    const int error = file_.read(block.data, rounded_to_alignment(wanted), offset, bytes);
    if (error != 0) return {.kind = ProblemKind::unreadable_at, .error = error, .first = offset};
    if (bytes < wanted) return {.kind = ProblemKind::ended_early, .first = offset + bytes};
    block.bytes = wanted;
    block.offset = offset;
    block.fingerprint = fingerprint_of(block.data, wanted);
    // Behind the end of the file a copy is written up to the alignment, and cut.
    std::memset(block.data + wanted, 0, rounded_to_alignment(wanted) - wanted);
    return {};
}

Problem SourceFile::change() const {
    struct stat facts {};
    if (disk_calls.file_facts(file_.descriptor(), &facts) != 0) {
        return problem_with(ProblemKind::unreadable, errno);
    }
    const auto bytes = static_cast<uint64_t>(facts.st_size);
    if (bytes > bytes_) return {.kind = ProblemKind::grew};
    if (bytes < bytes_) return {.kind = ProblemKind::shrank};
    return {.kind = nanoseconds_of(facts.st_mtim) != changed_ns_ ? ProblemKind::changed : ProblemKind::none};
}

/// Threads that end before whatever they use goes.
class Threads {
public:
    ~Threads() { join(); }
    void start(std::function<void()> work) { threads_.emplace_back(std::move(work)); }
    void join() {
        for (std::thread& thread : threads_)
            thread.join();
        threads_.clear();
    }

private:
    std::vector<std::thread> threads_;
};

/// One file's work. `targets` have begun.
class FileCopy {
public:
    FileCopy(SourceFile& source, uint64_t bytes, const DigestSet& digests, const CancelFlag& cancel,
             const std::vector<CopyTarget*>& targets)
        : source_(source), bytes_(bytes), cancel_(cancel), targets_(targets) {
        for (const DigestKind kind : digests.kinds())
            digesters_.emplace_back(kind, Digester(kind));
    }

    void run() {
        if (is_small(bytes_)) {
            copy_small();
        } else {
            copy_large();
        }
        if (!problem_ && is_set(cancel_)) problem_.kind = ProblemKind::interrupted;
        if (!problem_) problem_ = source_.change();
        for (CopyTarget* target : targets_) {
            if (problem_) target->abandon(problem_);
        }
    }

    [[nodiscard]] Digests digests() {
        Digests digests;
        for (auto& [kind, digester] : digesters_)
            digest_of(digests, kind) = digester.finish();
        return digests;
    }

private:
    void copy_small();
    void copy_large();
    void read_into(BlockStream& stream);
    void start_consumers(BlockStream& stream, Threads& threads);
    [[nodiscard]] bool has_live_target() const;

    SourceFile& source_;
    uint64_t bytes_;
    const CancelFlag& cancel_;
    std::vector<CopyTarget*> targets_;
    std::vector<std::pair<DigestKind, Digester>> digesters_;
    Problem problem_;
};

bool FileCopy::has_live_target() const {
    for (const CopyTarget* target : targets_) {
        if (!target->has_failed()) return true;
    }
    return false;
}

void FileCopy::copy_small() {
    const AlignedBytes memory = aligned_bytes(rounded_to_alignment(static_cast<size_t>(bytes_) + 1));
    Block block{memory.get(), 0, 0, {}};
    if (bytes_ > 0) problem_ = source_.read(block, 0);
    if (problem_) return;
    for (auto& [kind, digester] : digesters_)
        digester.add(block.data, block.bytes);
    for (CopyTarget* target : targets_) {
        if (bytes_ > 0) target->take(block);
        target->end_of_data();
        target->read_back();
    }
}

void FileCopy::start_consumers(BlockStream& stream, Threads& threads) {
    size_t consumer = 0;
    for (auto& [kind, digester] : digesters_) {
        threads.start([&stream, &digester = digester, consumer] {
            while (const Block* block = stream.next(consumer)) {
                digester.add(block->data, block->bytes);
                stream.give_back(consumer);
            }
        });
        ++consumer;
    }
    for (CopyTarget* target : targets_) {
        threads.start([&stream, target, consumer] {
            while (const Block* block = stream.next(consumer)) {
                target->take(*block);
                stream.give_back(consumer);
            }
            target->end_of_data();
        });
        threads.start([target] { target->read_back(); });
        ++consumer;
    }
}

void FileCopy::read_into(BlockStream& stream) {
    for (uint64_t offset = 0; offset < bytes_ && !problem_; offset += k_block_bytes) {
        if (is_set(cancel_) || !has_live_target()) break;
        problem_ = source_.read(stream.begin_block(), offset);
        if (!problem_) stream.publish_block();
    }
    // What was written so far need not be proven any more.
    for (CopyTarget* target : targets_) {
        if (problem_ || is_set(cancel_))
            target->abandon(problem_ ? problem_ : Problem{.kind = ProblemKind::interrupted});
    }
}

void FileCopy::copy_large() {
    BlockStream stream(k_ring_blocks, digesters_.size() + targets_.size());
    Threads threads;
    try {
        start_consumers(stream, threads);
        read_into(stream);
    } catch (const std::exception& error) {
        problem_ = exception_problem(error.what());  // no more threads, for instance
        for (CopyTarget* target : targets_)
            target->abandon(problem_);
    }
    stream.end();
    threads.join();
}

}  // namespace

Digests copy_to_targets(const SourceRoot& root, FileEntry& file, const DigestSet& digests, const CancelFlag& cancel,
                        const std::vector<std::unique_ptr<CopyTarget>>& targets) {
    SourceFile source;
    const Problem problem = source.open(root, file);
    std::vector<CopyTarget*> begun;
    for (const auto& target : targets) {
        if (problem) {
            target->abandon(problem);
        } else if (target->begin()) {
            begun.push_back(target.get());
        }
    }
    if (begun.empty()) return {};
    FileCopy copy(source, file.bytes, digests, cancel, begun);
    copy.run();
    return copy.digests();
}

}  // namespace tool
