#pragma once
// vl_vector: the growable array of plain records that the library's tables are made of.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "export.h"

/// Writes the error line of a vl_vector that cannot grow: the present count, how many elements were to be added and
/// the size of one in bytes. The template calls it; hosts have no need to.
VELL_API void vl_vector_report_failure(uint32_t count, uint32_t adding, uint64_t element_size) noexcept;

/// A growable array of plain records. They are moved with byte copies and never constructed or destroyed one by one.
///
/// The array comes from malloc. Capacity: 16, doubling up to 1024 elements, then in steps of 128. It never shrinks,
/// except by release(). No lock of its own: the owner guards it.
template <class T>
class vl_vector {
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved with byte copies");

public:
    constexpr vl_vector() noexcept = default;

    /// Room for at least `initial_capacity` elements; none for 0. When memory is short an error line is written and
    /// the vector has a capacity of 0.
    explicit vl_vector(uint32_t initial_capacity) noexcept { reserve_initial(initial_capacity); }
    virtual ~vl_vector() { std::free(data_); }
    vl_vector(const vl_vector&) = delete;
    vl_vector& operator=(const vl_vector&) = delete;

    /// Appends a copy of `element`. False, with an error line and nothing changed, when memory is short.
    bool append(const T& element) noexcept {
        const T copy = element;  // `element` may live in the array that is about to move.
        if (!ensure_room_for_one()) return false;
        *end_++ = copy;
        ++count_;
        return true;
    }

    /// Removes one element; later ones move down. False when the vector is empty.
    /// Kept: an index at or beyond the last element removes the last element.
    bool remove(uint32_t index) noexcept {
        if (count_ == 0) return false;
        if (index < count_ - 1)
            std::memmove(static_cast<void*>(data_ + index), data_ + index + 1, (count_ - 1 - index) * sizeof(T));
        --count_;
        --end_;
        return true;
    }

    /// Frees the array; count and capacity become 0.
    void release() noexcept {
        std::free(data_);
        data_ = end_ = nullptr;
        count_ = capacity_ = 0;
    }

    [[nodiscard]] uint32_t count() const noexcept { return count_; }
    [[nodiscard]] uint32_t capacity() const noexcept { return capacity_; }
    [[nodiscard]] T* data() noexcept { return data_; }
    [[nodiscard]] const T* data() const noexcept { return data_; }
    [[nodiscard]] T& operator[](uint32_t index) noexcept { return data_[index]; }
    [[nodiscard]] const T& operator[](uint32_t index) const noexcept { return data_[index]; }
    [[nodiscard]] T* begin() noexcept { return data_; }
    [[nodiscard]] T* end() noexcept { return end_; }

private:
    static constexpr uint32_t k_smallest = 16;         // elements
    static constexpr uint32_t k_doubling_ends = 1024;  // elements
    static constexpr uint32_t k_step = 128;            // elements

    static constexpr uint32_t doubled_until(uint32_t capacity, uint32_t needed) noexcept {
        if (capacity < k_smallest) capacity = k_smallest;
        while (capacity < needed)
            capacity *= 2;
        return capacity;
    }

    void reserve_initial(uint32_t wanted) noexcept {
        if (wanted == 0) return;
        const uint64_t capacity = wanted < k_doubling_ends ? doubled_until(k_smallest, wanted)
                                                           : (uint64_t{wanted} + k_step - 1) / k_step * k_step;
        data_ = capacity > UINT32_MAX ? nullptr : static_cast<T*>(std::malloc(capacity * sizeof(T)));
        end_ = data_;
        if (data_ == nullptr)
            vl_vector_report_failure(0, wanted, sizeof(T));
        else
            capacity_ = static_cast<uint32_t>(capacity);
    }

    bool ensure_room_for_one() noexcept {
        if (count_ < capacity_) return true;
        const uint64_t needed = uint64_t{count_} + 1;
        const uint64_t capacity = needed < k_doubling_ends ? doubled_until(capacity_, count_ + 1)
                                                           : uint64_t{count_ / k_step * k_step} + k_step;
        void* grown = capacity > UINT32_MAX ? nullptr : std::realloc(static_cast<void*>(data_), capacity * sizeof(T));
        if (grown == nullptr) {
            vl_vector_report_failure(count_, 1, sizeof(T));
            return false;
        }
        data_ = static_cast<T*>(grown);
        end_ = data_ + count_;
        capacity_ = static_cast<uint32_t>(capacity);
        return true;
    }

    T* data_ = nullptr;
    T* end_ = nullptr;  // the slot after the last element
    uint32_t count_ = 0;
    uint32_t capacity_ = 0;
};
static_assert(sizeof(vl_vector<int>) == 32, "hosts know the layout");
