#include "offload/file_digests.h"

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "offload/block_stream.h"
#include "offload/uncached_file.h"

namespace tool {
namespace {

constexpr size_t k_ring_blocks = 4;

struct Work {
    UncachedFile file;
    std::vector<std::pair<DigestKind, Digester>> digesters;
    FileDigests result;
    const CancelFlag& cancel;
    const std::function<void(uint64_t)>& progress;

    /// Reads the next block. False at the end and when it cannot be read.
    bool read(Block& block) {
        if (is_set(cancel)) result.problem.kind = ProblemKind::interrupted;
        if (result.problem) return false;
        block.offset = result.bytes;
        const int error = file.read(block.data, k_block_bytes, result.bytes, block.bytes);
        if (error != 0) {
            result.problem = {.kind = ProblemKind::unreadable_at, .error = error, .first = result.bytes};
            return false;
        }
        result.bytes += block.bytes;
        if (progress) progress(block.bytes);
        return block.bytes > 0;
    }
};

void digest_directly(Work& work, Block& block) {
    for (auto& [kind, digester] : work.digesters)
        digester.add(block.data, block.bytes);
}

void digest_in_threads(Work& work, const Block& first) {
    BlockStream stream(k_ring_blocks, work.digesters.size());
    std::vector<std::thread> threads;
    const auto digest = [&stream, &first](Digester& digester, size_t consumer) {
        digester.add(first.data, first.bytes);
        while (const Block* block = stream.next(consumer)) {
            digester.add(block->data, block->bytes);
            stream.give_back(consumer);
        }
    };
    try {
        for (size_t i = 0; i < work.digesters.size(); ++i)
            threads.emplace_back(digest, std::ref(work.digesters[i].second), i);
    } catch (const std::exception& error) {
        work.result.problem = exception_problem(error.what());  // no more threads
    }
    while (work.read(stream.begin_block()))
        stream.publish_block();
    stream.end();
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace

FileDigests digests_of_file(int folder, const std::string& path, const DigestSet& kinds, bool follows_link,
                            const CancelFlag& cancel, const std::function<void(uint64_t bytes)>& progress) {
    Work work{{}, {}, {}, cancel, progress};
    const int error = work.file.open(folder, path.c_str(), follows_link);
    if (error != 0) {
        work.result.problem = error == EINVAL ? problem_with(ProblemKind::not_regular, error) : system_problem(error);
        return work.result;
    }
    for (const DigestKind kind : kinds.kinds())
        work.digesters.emplace_back(kind, Digester(kind));
    const AlignedBytes memory = aligned_bytes(k_block_bytes);
    Block block{memory.get(), 0, 0, {}};
    if (work.read(block)) {
        if (block.bytes == k_block_bytes) {
            digest_in_threads(work, block);
        } else {
            digest_directly(work, block);
        }
    }
    for (auto& [kind, digester] : work.digesters)
        digest_of(work.result.digests, kind) = digester.finish();
    return work.result;
}

}  // namespace tool
