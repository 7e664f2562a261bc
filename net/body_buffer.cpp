#include "net/body_buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace vell {
namespace {

constexpr uint64_t k_first_bytes = uint64_t{16} << 10;
// What is allocated on the mere word of a server. Above it memory grows with what has come.
constexpr uint64_t k_most_believed_bytes = uint64_t{64} << 20;

}  // namespace

BodyBuffer::~BodyBuffer() {
    std::free(memory_);
}

bool BodyBuffer::give_up() noexcept {
    std::free(std::exchange(memory_, nullptr));
    capacity_ = bytes_ = 0;
    is_given_up_ = true;
    return false;
}

bool BodyBuffer::expect(uint64_t bytes) noexcept {
    if (bytes > most_bytes_) return give_up();
    expected_bytes_ = bytes;
    return true;
}

/// To the expected length where that is near, else to twice what was there: large blocks are moved by the system
/// without copying.
bool BodyBuffer::grow(uint64_t wanted_bytes) noexcept {
    uint64_t capacity = std::max({wanted_bytes, capacity_ * 2, k_first_bytes});
    if (expected_bytes_ >= wanted_bytes && expected_bytes_ <= std::max(capacity, k_most_believed_bytes))
        capacity = expected_bytes_;
    auto* larger = static_cast<unsigned char*>(std::realloc(memory_, capacity + 1));
    if (larger == nullptr) return false;
    memory_ = larger;
    capacity_ = capacity;
    return true;
}

bool BodyBuffer::add(const void* data, size_t bytes) noexcept {
    if (is_given_up_ || bytes > most_bytes_ - bytes_) return give_up();
    if (bytes > capacity_ - bytes_ && !grow(bytes_ + bytes)) return give_up();
    std::memcpy(memory_ + bytes_, data, bytes);
    bytes_ += bytes;
    return true;
}

unsigned char* BodyBuffer::release(uint64_t& bytes) noexcept {
    bytes = bytes_;
    if (bytes_ == 0) return nullptr;
    memory_[bytes_] = 0;
    // Gives back what was too much; a refusal changes nothing.
    if (capacity_ > bytes_) {
        auto* smaller = static_cast<unsigned char*>(std::realloc(memory_, bytes_ + 1));
        if (smaller != nullptr) memory_ = smaller;
    }
    return std::exchange(memory_, nullptr);
}

}  // namespace vell
