// A file descriptor with an owner, and a block of memory that uncached transfers accept.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "offload/disk_calls.h"

namespace tool {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { close(); }

    [[nodiscard]] int get() const { return number_; }
    [[nodiscard]] bool is_open() const { return number_ >= 0; }
    /// Somebody else closes it.
    void release() { number_ = -1; }
    void close() {
        if (number_ >= 0) ::close(number_);
        number_ = -1;
    }

private:
    int number_ = -1;
};

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using AlignedBytes = std::unique_ptr<unsigned char, FreeMemory>;

/// `bytes` is a multiple of the alignment.
[[nodiscard]] inline AlignedBytes aligned_bytes(size_t bytes) {
    auto* memory = static_cast<unsigned char*>(std::aligned_alloc(k_transfer_alignment, bytes));
    if (memory == nullptr) throw std::bad_alloc();
    return AlignedBytes(memory);
}

[[nodiscard]] constexpr size_t rounded_to_alignment(size_t bytes) {
    return (bytes + k_transfer_alignment - 1) / k_transfer_alignment * k_transfer_alignment;
}

}  // namespace tool
