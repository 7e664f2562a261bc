#include "offload/block_stream.h"

#include <algorithm>

namespace tool {

BlockStream::BlockStream(size_t block_count, size_t consumer_count)
    : memory_(aligned_bytes(block_count * k_block_bytes)), blocks_(block_count), given_back_(consumer_count) {
    for (size_t i = 0; i < block_count; ++i)
        blocks_[i] = {memory_.get() + i * k_block_bytes, 0, 0, {}};
}

uint64_t BlockStream::least_given_back() const {
    return given_back_.empty() ? published_ : *std::min_element(given_back_.begin(), given_back_.end());
}

Block& BlockStream::begin_block() {
    std::unique_lock lock(lock_);
    block_is_free_.wait(lock, [this] { return published_ - least_given_back() < blocks_.size(); });
    return block_at(published_);
}

void BlockStream::publish_block() {
    const std::lock_guard lock(lock_);
    ++published_;
    block_is_there_.notify_all();
}

void BlockStream::end() {
    const std::lock_guard lock(lock_);
    has_ended_ = true;
    block_is_there_.notify_all();
}

const Block* BlockStream::next(size_t consumer) {
    std::unique_lock lock(lock_);
    block_is_there_.wait(lock, [&] { return given_back_[consumer] < published_ || has_ended_; });
    return given_back_[consumer] < published_ ? &block_at(given_back_[consumer]) : nullptr;
}

void BlockStream::give_back(size_t consumer) {
    const std::lock_guard lock(lock_);
    ++given_back_[consumer];
    block_is_free_.notify_one();
}

}  // namespace tool
