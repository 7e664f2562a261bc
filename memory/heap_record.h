// The heap behind an _mheap, and its lock.
#pragma once

#include <atomic>

#include "memory/heap_core.h"
#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "vellcore/lockable_heap.h"

namespace vell {

inline constexpr int64_t k_wait_slice_ns = 100'000'000;  // longest wait for an unlock before the next search
inline constexpr int64_t k_no_limit = -1;

/// What mheap_initialize makes. The fields that calls without the lock read (the inherited total_size, end and base)
/// change in mheap_resize only and are then read and written as atomics.
struct Heap : _mheap {
    HeapCore core VELL_GUARDED_BY(mutex);
    std::atomic<bool> is_closed{false};    // by corruption: the mutex stays held for ever
    Heap* next_closed = nullptr;           // in the list of destroyed heaps whose record stays
    std::atomic<pthread_t> holder{};       // the thread that holds the mutex, for a fork in a discard callback
    std::atomic<uint32_t> times_taken{0};  // the mutex
    // Guarded by the lock of the list of all heaps.
    Heap* next_live = nullptr;
    Heap* previous_live = nullptr;
    bool is_held_for_fork = false;  // by the forking thread, on behalf of the fork
    // Shortened by tests that count rounds.
    int64_t wait_ns = k_wait_slice_ns;
    int64_t compacting_rounds = k_no_limit;  // searches of a compacting heap before it gives up
};

inline Heap& as_heap(_mheap* heap) noexcept {
    return *static_cast<Heap*>(heap);
}

/// Holds a heap's mutex to the end of the scope. Without a shield of its own, which costs as much as the mutex: the
/// only cancellation points under it, waits and callbacks, have theirs.
class VELL_SCOPED_CAPABILITY HeapLock {
public:
    explicit HeapLock(Heap& heap) noexcept VELL_ACQUIRE(heap.mutex) : heap_(heap) {
        mp_get_mutex(heap.mutex);
        heap.holder.store(pthread_self(), std::memory_order_relaxed);
        count_turn(heap.times_taken);
    }
    ~HeapLock() VELL_RELEASE() VELL_NO_LOCK_CHECK {
        heap_.holder.store(pthread_t{}, std::memory_order_relaxed);
        if (!heap_.is_closed.load(std::memory_order_relaxed)) mp_release_mutex(heap_.mutex);
    }
    HeapLock(const HeapLock&) = delete;
    HeapLock& operator=(const HeapLock&) = delete;

private:
    Heap& heap_;
};

// The calls by handle once the block is found: lock it and renew its stamp, renew the stamp alone, drop a lock and wake
// a waiting allocation, free it. Each returns what the public call returns.
int32_t lock_block(Heap& heap, Unit unit) noexcept VELL_REQUIRES(heap.mutex);
int32_t keep_block(Heap& heap, Unit unit) noexcept VELL_REQUIRES(heap.mutex);
int32_t unlock_block(Heap& heap, Unit unit) noexcept VELL_REQUIRES(heap.mutex);
int32_t free_block(Heap& heap, Unit unit) noexcept VELL_REQUIRES(heap.mutex);

/// Put a heap on the list of all heaps of the process, and take it off.
void enlist(Heap& heap) noexcept;
void delist(Heap& heap) noexcept;

/// For a header found overwritten by an operation that fails without closing the heap: the error line, and signal 11.
void report_overwritten(const Heap& heap) noexcept;

/// After every change in checked builds: report_overwritten when the index and the headers of a heap that is small
/// enough to look at contradict each other.
void check_heap(const Heap& heap) noexcept VELL_REQUIRES(heap.mutex);

/// The read-only walk behind check_heap: every header and the index, compared with each other.
[[nodiscard]] bool heap_is_consistent(const HeapCore& core) noexcept;

}  // namespace vell
