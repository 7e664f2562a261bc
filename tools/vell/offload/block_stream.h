// A file's blocks on their way from one reader to several consumers, which each take every block.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "offload/descriptor.h"
#include "offload/digest.h"

namespace tool {

struct Block {
    unsigned char* data;  ///< aligned for uncached transfers; k_block_bytes are there
    size_t bytes;         ///< of the file
    uint64_t offset;      ///< in the file
    Fingerprint fingerprint;
};

inline constexpr size_t k_block_bytes = size_t{2} << 20;

/// A ring of blocks. A block is free again when every consumer has given it back, so the slowest consumer holds up the
/// reader and memory stays bounded. The lock guards the counts; a block's contents belong to the reader until it is
/// published and are constant afterwards.
class BlockStream {
public:
    BlockStream(size_t block_count, size_t consumer_count);

    /// The next block to fill; waits until one is free.
    [[nodiscard]] Block& begin_block();
    void publish_block();
    /// No block follows.
    void end();

    /// The consumer's next block; null at the end.
    [[nodiscard]] const Block* next(size_t consumer);
    void give_back(size_t consumer);

private:
    [[nodiscard]] Block& block_at(uint64_t index) { return blocks_[index % blocks_.size()]; }
    [[nodiscard]] uint64_t least_given_back() const;

    AlignedBytes memory_;
    std::vector<Block> blocks_;
    std::mutex lock_;
    std::condition_variable block_is_free_;
    std::condition_variable block_is_there_;
    uint64_t published_ = 0;
    std::vector<uint64_t> given_back_;  ///< by consumer
    bool has_ended_ = false;
};

}  // namespace tool
