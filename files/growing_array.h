// The owner of an array that alloc_ensure grows.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "vellcore/directory_listing.h"

namespace vell {

/// Plain records, in the order in which they were added.
template <class T>
class GrowingArray {
public:
    constexpr GrowingArray() noexcept = default;
    ~GrowingArray() { std::free(data_); }
    GrowingArray(const GrowingArray&) = delete;
    GrowingArray& operator=(const GrowingArray&) = delete;

    /// False when memory is short.
    [[nodiscard]] bool add(const T& element) noexcept {
        if (alloc_ensure(data_, count_, capacity_, 1, k_initial) == 0) return false;
        data_[count_++] = element;
        return true;
    }
    /// Sets the count; new elements hold anything. False when memory is short.
    [[nodiscard]] bool resize(int32_t count) noexcept {
        if (count > count_ && alloc_ensure(data_, count_, capacity_, count - count_, count) == 0) return false;
        count_ = count;
        return true;
    }
    void clear() noexcept { count_ = 0; }

    [[nodiscard]] int32_t count() const noexcept { return count_; }
    [[nodiscard]] T* data() noexcept { return data_; }
    [[nodiscard]] const T* data() const noexcept { return data_; }
    [[nodiscard]] T& operator[](int32_t index) noexcept { return data_[index]; }
    [[nodiscard]] const T& operator[](int32_t index) const noexcept { return data_[index]; }
    [[nodiscard]] T* begin() noexcept { return data_; }
    [[nodiscard]] T* end() noexcept { return data_ + count_; }

private:
    static constexpr int32_t k_initial = 32;

    T* data_ = nullptr;
    int32_t count_ = 0;
    int32_t capacity_ = 0;
};

}  // namespace vell
