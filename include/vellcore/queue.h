#pragma once
// vl_queue: a fixed-capacity first-in-first-out ring with its own mutex.

#include <cstddef>
#include <cstdint>
#include <new>

#include "auto_lock.h"

/// A ring of `capacity` copies of T, safe for any number of threads. Waiting for room or for items is the callers'
/// own, with their own lock and condition, taken before the queue's mutex.
template <class T>
class vl_queue {
public:
    /// A capacity below 1, or one that memory is too short for, makes a queue that is always full.
    explicit vl_queue(int64_t capacity) noexcept
        : mutex_(mp_new_mutex(0)),
          capacity_(is_possible(capacity) ? capacity : 0),
          storage_(capacity_ == 0 ? nullptr : new (std::nothrow) T[static_cast<size_t>(capacity_)]) {
        if (storage_ == nullptr) capacity_ = 0;
    }
    virtual ~vl_queue() {
        delete[] storage_;
        mp_delete_mutex(mutex_);
    }
    vl_queue(const vl_queue&) = delete;
    vl_queue& operator=(const vl_queue&) = delete;

    /// Appends a copy of `item`. False when the queue is full: the item is dropped.
    bool put(const T& item) noexcept {
        AutoLock lock(mutex_);
        if (count_ >= capacity_) return false;
        storage_[write_] = item;
        if (++write_ == capacity_) write_ = 0;
        ++count_;
        return true;
    }

    /// Moves the oldest item into `item`. False when the queue is empty; `item` is untouched.
    bool take(T& item) noexcept {
        AutoLock lock(mutex_);
        if (count_ <= 0) return false;
        item = storage_[read_];
        if (++read_ == capacity_) read_ = 0;
        --count_;
        return true;
    }

    [[nodiscard]] int64_t count() noexcept {
        AutoLock lock(mutex_);
        return count_;
    }

private:
    // Checked here, since compilers differ on whether an impossible array throws.
    static constexpr bool is_possible(int64_t capacity) noexcept {
        return capacity > 0 && static_cast<uint64_t>(capacity) <= uint64_t{PTRDIFF_MAX} / sizeof(T);
    }

    __mutex_str* mutex_;
    int64_t capacity_;  // items
    int64_t count_ = 0;
    int64_t write_ = 0;  // where the next item goes
    int64_t read_ = 0;   // where the oldest item is
    T* storage_;
};
static_assert(sizeof(vl_queue<int>) == 56, "hosts know the layout");
