// A response's body in memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

/// Grows while the body comes. A body above the limit, and one that there is no memory for, becomes no body at all:
/// part of one would pass for the whole.
class BodyBuffer {
public:
    explicit BodyBuffer(uint64_t most_bytes) noexcept : most_bytes_(most_bytes) {}
    ~BodyBuffer();
    BodyBuffer(const BodyBuffer&) = delete;
    BodyBuffer& operator=(const BodyBuffer&) = delete;

    /// What the server says of the length. False as for add().
    [[nodiscard]] bool expect(uint64_t bytes) noexcept;
    /// False when there will be no body.
    [[nodiscard]] bool add(const void* data, size_t bytes) noexcept;
    [[nodiscard]] bool is_given_up() const noexcept { return is_given_up_; }

    /// Hands the body over, with a zero byte behind it, for the caller to free(); null when it is empty or given up.
    [[nodiscard]] unsigned char* release(uint64_t& bytes) noexcept;

private:
    bool grow(uint64_t wanted_bytes) noexcept;
    bool give_up() noexcept;

    const uint64_t most_bytes_;
    uint64_t expected_bytes_ = 0;
    uint64_t bytes_ = 0;
    uint64_t capacity_ = 0;  // without the zero byte
    unsigned char* memory_ = nullptr;
    bool is_given_up_ = false;
};

}  // namespace vell
