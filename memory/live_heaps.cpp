// The heaps of the process, for what happens to them around fork(). `heaps_lock` guards the list; it is taken before
// any heap's mutex.
//
// A forked child keeps its copies of all heaps, with their buffers. Before the fork every heap's mutex is taken, so
// that no block is half moved. A discard callback may hold one for long and may be waiting for the forking thread:
// heaps that cannot be had in time are lost in the child, where their calls fail.

#include <new>

#include "memory/heap_record.h"
#include "platform/fork_handlers.h"

namespace vell {
namespace {

Mutex heaps_lock;
Heap* first_heap VELL_GUARDED_BY(heaps_lock) = nullptr;

bool is_ours(const Heap& heap) noexcept {
    return pthread_equal(heap.holder.load(std::memory_order_relaxed), pthread_self()) != 0;
}

void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
    const CancelShield shield;
    heaps_lock.lock();
    for (Heap* heap = first_heap; heap != nullptr; heap = heap->next_live)
        heap->is_held_for_fork =
            !is_ours(*heap) && !heap->is_closed.load() && lock_unless_stalled(heap->times_taken, *heap->mutex);
}

void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
    for (Heap* heap = first_heap; heap != nullptr; heap = heap->next_live)
        if (heap->is_held_for_fork) mp_release_mutex(heap->mutex);
    heaps_lock.unlock();
}

/// The mutex stays locked by a thread that the child does not have.
void lose(Heap& heap) noexcept VELL_NO_LOCK_CHECK {
    heap.core.lose();
    heap.is_closed = false;
    if (__mutex_str* fresh = mp_new_mutex(/*locked=*/0); fresh != nullptr) heap.mutex = fresh;
}

/// A heap whose callback forked goes on in the child as in the parent.
void renew_in_child() noexcept VELL_NO_LOCK_CHECK {
    for (Heap* heap = first_heap; heap != nullptr; heap = heap->next_live) {
        if (is_ours(*heap)) continue;
        heap->holder.store(pthread_t{}, std::memory_order_relaxed);
        pthread_cond_init(&heap->space->native, nullptr);
        if (heap->is_held_for_fork) {
            mp_release_mutex(heap->mutex);
        } else {
            lose(*heap);
        }
    }
    heaps_lock.unlock();
}

const ForkEntry fork_entry(ForkOrder::heaps, {lock_before_fork, unlock_after_fork, renew_in_child});

}  // namespace

void enlist(Heap& heap) noexcept {
    const ScopedLock lock(heaps_lock);
    heap.next_live = first_heap;
    if (first_heap != nullptr) first_heap->previous_live = &heap;
    first_heap = &heap;
}

void delist(Heap& heap) noexcept {
    const ScopedLock lock(heaps_lock);
    (heap.previous_live != nullptr ? heap.previous_live->next_live : first_heap) = heap.next_live;
    if (heap.next_live != nullptr) heap.next_live->previous_live = heap.previous_live;
}

}  // namespace vell
