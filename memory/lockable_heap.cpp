// The operations of lockable heaps, in the order of the header: the heap's mutex, messages and waiting around the
// core. The calls that only look are in lockable_heap_report.cpp.
//
// The mutex is held while discard callbacks run and while the log writes. A heap whose headers were found overwritten
// by mheap_validate or mheap_clearall is closed: its mutex is never released.

#include "vellcore/lockable_heap.h"

#include <csignal>
#include <cstring>
#include <new>

#include "memory/heap_record.h"
#include "platform/arena_memory.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr int32_t k_failed = -1;
constexpr int32_t k_smallest_alignment = 4;
constexpr int k_most_waits = 10;
constexpr uint64_t k_resize_failed = ~uint64_t{0};
constexpr uint64_t k_large_pages_from = 2 << 20;  // bytes of an arena

/// Destroyed heaps that were closed by corruption. Threads may be waiting for them, so they stay.
constinit std::atomic<Heap*> closed_heaps{nullptr};

template <class T>
void publish(T& field, T value) noexcept {
    std::atomic_ref<T>(field).store(value, std::memory_order_relaxed);
}
template <class T>
T current(T& field) noexcept {
    return std::atomic_ref<T>(field).load(std::memory_order_relaxed);
}

mheap_mblk* public_header(const Arena& arena, Unit unit) noexcept {
    return reinterpret_cast<mheap_mblk*>(arena.address(unit));
}

// --- Making and ending ------------------------------------------------------------------------------------------

bool obtain_arena(Heap& heap, int32_t lock_flag) noexcept VELL_NO_LOCK_CHECK {
    void* arena = os_alloc(heap.total_size, lock_flag);
    if (arena == nullptr) return false;
    heap.base = arena;
    if (heap.total_size >= k_large_pages_from) advise_large_pages(arena, heap.total_size);
    if (!heap.core.create(arena, heap.total_size, heap.alignment)) return false;
    heap.first = public_header(heap.core.arena(), 0);
    heap.end = public_header(heap.core.arena(), heap.core.arena().end());
    heap.mutex = mp_new_mutex(/*locked=*/0);
    heap.space = mp_new_cond_block();
    return heap.mutex != nullptr && heap.space != nullptr;
}

/// Gives back what a heap consists of, however far its making came.
void dismantle(Heap* heap) noexcept {
    if (heap->base != nullptr) os_free(heap->base);
    mp_delete_mutex(heap->mutex);
    mp_delete_cond_block(heap->space);
    delete heap;
}

void keep_closed_heap(Heap* heap) noexcept VELL_NO_LOCK_CHECK {
    os_free(heap->base);
    heap->next_closed = closed_heaps.load();
    while (!closed_heaps.compare_exchange_weak(heap->next_closed, heap)) {
    }
}

// --- Allocating -------------------------------------------------------------------------------------------------

/// The bytes of a request as messages show them.
uint64_t requested_bytes(const Heap& heap, Unit needed) noexcept VELL_REQUIRES(heap.mutex) {
    return needed == k_no_unit ? UINT64_MAX : heap.core.arena().bytes(needed);
}

bool could_ever_fit(const Heap& heap, Unit needed) noexcept VELL_REQUIRES(heap.mutex) {
    return requested_bytes(heap, needed) <= heap.total_size - heap.header_size;
}

HeapCore::Space search(Heap& heap, Unit needed) noexcept VELL_REQUIRES(heap.mutex) {
    const HeapCore::Space space = heap.core.find_space(needed, heap.mode == MHEAP_COMPACT);
    if (space.found == HeapCore::Found::too_little && could_ever_fit(heap, needed))
        mheap_dump(&heap, "TOTALLY LOCKED !!");
    if (space.found == HeapCore::Found::overwritten) report_overwritten(heap);
    return space;
}

/// False when none came in time. A thread cancelled in here would take the heap's mutex with it.
bool wait_for_unlock(Heap& heap) noexcept VELL_REQUIRES(heap.mutex) {
    const CancelShield shield;
    const bool is_woken = wait_within(*heap.space, *heap.mutex, heap.wait_ns);
    heap.holder.store(pthread_self(), std::memory_order_relaxed);
    return is_woken;
}

/// Kept: the second search of each round, in compacting mode, never finds or moves anything, because the first one
/// has discarded every unlocked block. What shows is its second block list.
Unit find_or_give_up(Heap& heap, Unit needed) noexcept VELL_REQUIRES(heap.mutex) {
    for (int waits = 0; waits < k_most_waits; ++waits) {
        if (const auto space = search(heap, needed); space.found == HeapCore::Found::space) return space.unit;
        heap.mode = MHEAP_COMPACT;
        const HeapCore::Space space = search(heap, needed);
        heap.mode = MHEAP_DISCARD;
        if (space.found == HeapCore::Found::space) return space.unit;
        msgwarn("Waiting for free space in %.32s heap: %llu (%d)", heap.name,
                static_cast<unsigned long long>(requested_bytes(heap, needed)), waits);
        if (!wait_for_unlock(heap)) msgwarn("Timeout while waiting for free space in %.32s heap", heap.name);
    }
    return k_no_unit;
}

/// Kept: no limit and no lines. The waits let other threads in, without whom a second search could find nothing new.
Unit find_or_wait(Heap& heap, Unit needed) noexcept VELL_REQUIRES(heap.mutex) {
    for (int64_t round = 0;; ++round) {
        const HeapCore::Space space = search(heap, needed);
        if (space.found == HeapCore::Found::space) return space.unit;
        const bool is_hopeless = space.found == HeapCore::Found::overwritten || !could_ever_fit(heap, needed);
        if (is_hopeless || round == heap.compacting_rounds) return k_no_unit;
        wait_for_unlock(heap);
    }
}

// --- Finding blocks ---------------------------------------------------------------------------------------------

/// The block that a host's pointer names; k_no_unit, after a debug line with `complaint`, when it names none.
Unit named_block(const Heap& heap, void* data, const char* complaint) noexcept VELL_REQUIRES(heap.mutex) {
    const Unit unit = heap.core.block_with_data(data);
    if (unit == k_no_unit) msgdebug("%s: %p\n", complaint, data);
    return unit;
}

/// The same for the calls by address, which do not complain.
Unit block_at(const Heap& heap, void* data) noexcept VELL_REQUIRES(heap.mutex) {
    return heap.core.block_with_data(data);
}

uint64_t next_stamp(Heap& heap) noexcept VELL_REQUIRES(heap.mutex) {
    return heap.use_counter++;
}

bool release(Heap& heap, Unit unit) noexcept VELL_REQUIRES(heap.mutex) {
    if (!heap.core.release(unit)) {
        report_overwritten(heap);
        return false;
    }
    check_heap(heap);
    return true;
}

/// Header address and owner for the message about a wrong owner. What is no block of the heap has none.
void complain_about_owner(const Heap& heap, void* data, void** handle) noexcept VELL_REQUIRES(heap.mutex) {
    const Unit unit = heap.core.block_with_data(data);
    void** owner = unit == k_no_unit ? nullptr : heap.core.header(unit).owner;
    msgdebug("MHeap: Illegal pointer owner (%p,%p): %p\n",
             static_cast<void*>(static_cast<std::byte*>(data) - heap.header_size), static_cast<void*>(owner),
             static_cast<void*>(handle));
}

using BlockOperation = int32_t (*)(Heap& heap, Unit unit) noexcept;

/// Runs `operation` on the block that the handle's pointer names, whoever owns it. @return its result, or k_failed.
int32_t with_named_block(_mheap* heap, void** handle, const char* complaint, BlockOperation operation) noexcept {
    if (heap == nullptr || handle == nullptr) return k_failed;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    void* data = read_handle(handle);
    // Kept: only an unlock complains about a null pointer.
    if (data == nullptr && operation != unlock_block) return k_failed;
    const Unit unit = named_block(own, data, complaint);
    return unit == k_no_unit ? k_failed : operation(own, unit);
}

}  // namespace

int32_t lock_block(Heap& heap, Unit unit) noexcept {
    const uint32_t count = heap.core.add_lock(unit, next_stamp(heap));
    check_heap(heap);
    return static_cast<int32_t>(count);
}

int32_t keep_block(Heap& heap, Unit unit) noexcept {
    const uint32_t count = heap.core.renew(unit, next_stamp(heap));
    check_heap(heap);
    return static_cast<int32_t>(count);
}

int32_t unlock_block(Heap& heap, Unit unit) noexcept {
    if (heap.core.header(unit).lock_count == 0) {
        msgdebug("MHeap: Unlocking a non locked block");
        return 0;
    }
    const uint32_t count = heap.core.drop_lock(unit, next_stamp(heap));
    mp_cond_signal(heap.space);
    check_heap(heap);
    return static_cast<int32_t>(count);
}

int32_t free_block(Heap& heap, Unit unit) noexcept {
    BlockHeader& block = heap.core.header(unit);
    if (block.lock_count > 0) {
        msgdebug("MHeap: Attempt to free locked block: %p\n", block.data);
        return k_failed;
    }
    if (block.exclusive_count > 0) {
        block.flags |= k_release_pending;
        void** const handle = block.owner;
        block.owner = nullptr;
        write_handle(handle, nullptr);
        return 1;
    }
    return release(heap, unit) ? 1 : k_failed;
}

}  // namespace vell

using vell::as_heap;
using vell::Heap;
using vell::HeapLock;
using vell::k_failed;
using vell::k_no_unit;
using vell::Unit;

_mheap* mheap_initialize(const char* name, uint64_t size, int32_t alignment, int32_t mode, int32_t lock_flag) noexcept {
    if (name == nullptr || alignment < vell::k_smallest_alignment) return nullptr;
    const auto step = static_cast<uint64_t>(alignment);
    const uint64_t header_size = vell::header_size_for(step);
    const uint64_t total_size = size - size % step;
    if (total_size <= 2 * header_size) return nullptr;

    auto* heap = new (std::nothrow) Heap{};
    if (heap == nullptr) return nullptr;
    std::memcpy(heap->name, name, strnlen(name, sizeof heap->name));
    heap->total_size = total_size;
    heap->alignment = step;
    heap->header_size = header_size;
    heap->mode = static_cast<mheap_mode>(mode);
    if (!vell::obtain_arena(*heap, lock_flag)) {
        vell::dismantle(heap);
        return nullptr;
    }
    vell::enlist(*heap);
    return heap;
}

void mheap_destroy(_mheap* heap) noexcept {
    if (heap == nullptr) return;
    Heap& own = as_heap(heap);
    vell::delist(own);
    if (own.is_closed.load()) return vell::keep_closed_heap(&own);
    { const HeapLock wait_for_the_last_operation(own); }
    vell::dismantle(&own);
}

uint64_t mheap_totalsize(_mheap* heap) noexcept {
    return heap == nullptr ? 0 : vell::current(heap->total_size);
}

void* mheap_heapbase(_mheap* heap) noexcept {
    return heap == nullptr ? nullptr : vell::current(heap->base);
}

uint64_t mheap_resize(_mheap* heap, uint64_t new_size, int32_t lock_flag) noexcept {
    if (heap == nullptr) return vell::k_resize_failed;
    const uint64_t rounded = new_size - new_size % heap->alignment;
    if (rounded <= mheap_totalsize(heap)) return vell::k_resize_failed;
    void* area = os_alloc(rounded, lock_flag);
    if (area == nullptr) return rounded;
    if (rounded >= vell::k_large_pages_from) vell::advise_large_pages(area, rounded);

    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    using vell::HeapCore;
    const bool is_outrun = rounded <= own.total_size || own.core.is_lost();  // by another resize since the first look
    const auto growth = is_outrun ? HeapCore::Growth::no_memory : own.core.move_to(area, rounded);
    if (growth != HeapCore::Growth::done) {
        os_free(area);
        if (growth == HeapCore::Growth::overwritten) vell::report_overwritten(own);
        return growth == HeapCore::Growth::overwritten || is_outrun ? vell::k_resize_failed : rounded;
    }
    os_free(own.base);
    vell::publish(own.base, area);
    vell::publish(own.first, vell::public_header(own.core.arena(), 0));
    vell::publish(own.end, vell::public_header(own.core.arena(), own.core.arena().end()));
    vell::publish(own.total_size, rounded);
    check_heap(own);
    return rounded;
}

int32_t mheap_alloc_lock(_mheap* heap, uint64_t size, void** handle) noexcept {
    if (size == 0) {
        msgerror("MHeap: Illegal size (%d) requested..", 0);
        return k_failed;
    }
    if (heap == nullptr || handle == nullptr) return k_failed;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    if (own.core.is_lost()) {
        msgerror("Heap '%.32s' is unusable in this process: another thread was inside it at the fork", own.name);
        return k_failed;
    }
    const Unit needed = own.core.arena().units_for_block(size);
    const Unit unit = own.mode == MHEAP_DISCARD ? vell::find_or_give_up(own, needed) : vell::find_or_wait(own, needed);
    if (unit == k_no_unit) return k_failed;
    // Two stamps: one for the allocation, one for the lock that comes with it.
    own.core.take(unit, needed, handle, own.use_counter + 1);
    own.use_counter += 2;
    check_heap(own);
    return 1;
}

int32_t mheap_lock(_mheap* heap, void** handle) noexcept {
    return vell::with_named_block(heap, handle, "Illegal mheap pointer", vell::lock_block);
}

int32_t mheap_keep(_mheap* heap, void** handle) noexcept {
    return vell::with_named_block(heap, handle, "Illegal mheap pointer", vell::keep_block);
}

int32_t mheap_unlock(_mheap* heap, void** handle) noexcept {
    return vell::with_named_block(heap, handle, "Illegal MHeap pointer", vell::unlock_block);
}

int32_t mheap_free(_mheap* heap, void** handle) noexcept {
    if (heap == nullptr || handle == nullptr || vell::read_handle(handle) == nullptr) return k_failed;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    void* data = vell::read_handle(handle);
    if (data < own.base || data >= own.end) {
        msgdebug("MHeap: Illegal pointer: %p\n", data);
        return k_failed;
    }
    const Unit unit = own.core.block_with_data(data);
    if (unit == k_no_unit || own.core.header(unit).owner != handle) {
        vell::complain_about_owner(own, data, handle);
        return k_failed;
    }
    return vell::free_block(own, unit);
}

void mheap_free_blk(_mheap* heap, mheap_mblk* block) noexcept VELL_NO_LOCK_CHECK {
    if (heap == nullptr || block == nullptr) return;
    Heap& own = as_heap(heap);
    const Unit unit = own.core.arena().unit_before_data(reinterpret_cast<std::byte*>(block) + own.header_size);
    if (unit == k_no_unit) return;
    if (own.core.index().is_used(unit) || own.core.index().is_free(unit)) vell::release(own, unit);
}

void* mheap_lock_ex(_mheap* heap, void* address) noexcept {
    if (heap == nullptr) return nullptr;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    const Unit unit = own.core.block_containing(address);
    if (unit == k_no_unit) return nullptr;
    own.core.add_exclusive_lock(unit);
    check_heap(own);
    return own.core.arena().data(unit);
}

bool mheap_unlock_ex(_mheap* heap, void* data) noexcept {
    if (heap == nullptr) return false;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    const Unit unit = vell::block_at(own, data);
    if (unit == k_no_unit || own.core.header(unit).exclusive_count == 0) return false;
    own.core.drop_exclusive_lock(unit);
    // Kept: a pending block goes at the first lock dropped, even while other exclusive locks remain.
    if ((own.core.header(unit).flags & vell::k_release_pending) != 0) vell::release(own, unit);
    check_heap(own);
    return true;
}

bool mheap_set_discard_callback(_mheap* heap, void* data, mheap_discard_callback callback) noexcept {
    if (heap == nullptr) return false;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    const Unit unit = vell::block_at(own, data);
    if (unit == k_no_unit) return false;
    own.core.header(unit).discard = callback;
    return true;
}

int32_t mheap_clearall(_mheap* heap) noexcept VELL_NO_LOCK_CHECK {
    if (heap == nullptr) return k_failed;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    if (own.core.is_lost()) return k_failed;
    if (own.core.release_unlocked()) {
        check_heap(own);
        return 0;
    }
    own.is_closed = true;
    msgerror("HEAP CORRUPTED: Illegal (0 size) block detected...");
    std::raise(SIGSEGV);
    return k_failed;
}

int32_t mheap_validate(_mheap* heap) noexcept VELL_NO_LOCK_CHECK {
    if (heap == nullptr) return k_failed;
    Heap& own = as_heap(heap);
    const HeapLock lock(own);
    if (own.core.is_lost()) return k_failed;
    const auto soundness = own.core.check_and_merge();
    if (soundness == vell::HeapCore::Soundness::sound) {
        check_heap(own);
        return 0;
    }
    own.is_closed = true;
    if (soundness == vell::HeapCore::Soundness::overwritten)
        msgerror("HEAP CORRUPTED: Illegal (0 size) block detected...");
    return k_failed;
}
