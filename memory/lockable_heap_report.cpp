// The calls that only look at a heap. They never wait for its mutex: a discard callback may make them, a search makes
// them, and they work on a heap that was closed by corruption.
//
// While another thread is inside the heap they read headers as they are being written, or what used to be a header and
// is a host's data by now. They copy each header, once, outside the thread sanitizer's sight, and believe nothing in
// it: a walk ends at the first size that no block can have.

#include <atomic>
#include <cstddef>

#include "memory/heap_record.h"
#include "platform/arena_memory.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

/// A copy of a header that may be changing or none at all.
__attribute__((noinline, no_sanitize("thread"))) BlockHeader glimpse(const std::byte* address) noexcept {
    const auto* block = reinterpret_cast<const volatile BlockHeader*>(address);
    BlockHeader copy;
    copy.state = block->state;
    copy.owner = block->owner;
    copy.data = block->data;
    copy.size = block->size;
    copy.lock_count = block->lock_count;
    copy.exclusive_count = block->exclusive_count;
    copy.stamp = block->stamp;
    copy.discard = block->discard;
    copy.flags = block->flags;
    copy.padding = 0;
    return copy;
}

/// The sum of every page's first byte while more than a page is left. Owners may be writing them.
__attribute__((noinline, no_sanitize("thread"))) uint32_t sum_of_pages(const std::byte* arena, uint64_t length,
                                                                       uint64_t page) noexcept {
    uint32_t sum = 0;
    for (uint64_t left = length; left > page; left -= page) {
        sum += static_cast<uint32_t>(*reinterpret_cast<const volatile unsigned char*>(arena));
        arena += page;
    }
    return sum;
}

/// Takes a heap's mutex if that is possible at once.
class Attempt {
public:
    explicit Attempt(_mheap* heap) noexcept VELL_NO_LOCK_CHECK : heap_(heap), is_held_(mp_test_mutex(heap->mutex)) {}
    ~Attempt() VELL_NO_LOCK_CHECK {
        if (is_held_) mp_release_mutex(heap_->mutex);
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

private:
    CancelShield shield_;
    _mheap* heap_;
    bool is_held_;
};

/// Goes over the blocks of a heap, locked or not.
class Glimpses {
public:
    explicit Glimpses(_mheap* heap) noexcept
        : position_(reinterpret_cast<std::byte*>(heap->first)),
          end_(reinterpret_cast<std::byte*>(heap->end)),
          header_size_(heap->header_size),
          alignment_(heap->alignment) {}

    /// False behind the last block and at a header that is none.
    bool next() noexcept {
        position_ += step_;
        const auto left = static_cast<uint64_t>(end_ - position_);
        if (left < header_size_) return false;
        block = glimpse(position_);
        step_ = block.size;
        return block.size >= header_size_ && block.size <= left && block.size % alignment_ == 0;
    }
    [[nodiscard]] const std::byte* address() const noexcept { return position_; }

    BlockHeader block{};

private:
    std::byte* position_;
    std::byte* end_;
    uint64_t header_size_;
    uint64_t alignment_;
    uint64_t step_ = 0;
};

int kib(uint64_t bytes) noexcept {
    return static_cast<int>(bytes / 1024);
}

void dump_block(const BlockHeader& block) noexcept {
    const int size = kib(block.size);
    const int state = static_cast<int>(block.state);
    if (block.is_free())
        msgcont("  Free      : %8d (%2d)", size, 0);
    else if (block.lock_count > 0)
        msgcont("  Locked(%2d): %8d (%2d)", static_cast<int>(block.lock_count), size, state);
    else if (block.exclusive_count > 0)
        msgcont("  LockedEx(%2d): %8d (%2d)", static_cast<int>(block.exclusive_count), size, state);
    else
        msgcont("  Used       : %8d (%2d)", size, state);
}

struct TraceSums {
    uint64_t locked_bytes = 0;
    uint64_t used_bytes = 0;
    uint64_t free_bytes = 0;
};

/// Kept: a locked block gives a second line as if it were not locked, and counts twice.
void trace_block(const Glimpses& at, const char* mark, int number, TraceSums& sums) noexcept {
    const BlockHeader& block = at.block;
    const void* address = at.address();
    const void* owner = block.owner;
    const int state = static_cast<int>(block.state);
    const int size = static_cast<int>(block.size);
    if (block.is_free()) {
        msgcont("     %s  BLK %3d: %p -> %2d %9d 0x%p Free\n", mark, number, address, 0, size, owner);
        sums.free_bytes += block.size;
        return;
    }
    if (block.lock_count > 0) {
        msgcont("     %s  BLK %3d: %p -> %2d %9d 0x%p Locked %d\n", mark, number, address, state, size, owner,
                static_cast<int>(block.lock_count));
        sums.locked_bytes += block.size;
    }
    if (block.exclusive_count > 0) {
        msgcont("     %s  BLK %3d: %p -> %2d %9d 0x%p LockedEx %d\n", mark, number, address, state, size, owner,
                static_cast<int>(block.exclusive_count));
        sums.locked_bytes += block.size;
    } else {
        msgcont("     %s  BLK %3d: %p -> %2d %9d 0x%p Used\n", mark, number, address, state, size, owner);
        sums.used_bytes += block.size;
    }
}

}  // namespace
}  // namespace vell

// The owner is all that tells: the header before a pointer that is out of date may be another owner's data by now.
bool mheap_is_valid(_mheap* heap, void** handle) noexcept {
    if (heap == nullptr || handle == nullptr) return false;
    const auto data = reinterpret_cast<uintptr_t>(vell::read_handle(handle));
    const auto base = reinterpret_cast<uintptr_t>(mheap_heapbase(heap));
    const auto end =
        reinterpret_cast<uintptr_t>(std::atomic_ref<mheap_mblk*>(heap->end).load(std::memory_order_relaxed));
    if (data < base + heap->header_size || data >= end) return false;
    return vell::glimpse(reinterpret_cast<const std::byte*>(data - heap->header_size)).owner == handle;
}

uint64_t mheap_queryspace(_mheap* heap, uint64_t& free_bytes, uint64_t& reclaimable_bytes) noexcept VELL_NO_LOCK_CHECK {
    free_bytes = reclaimable_bytes = 0;
    if (heap == nullptr) return 0;
    const vell::HeapIndex& index = vell::as_heap(heap).core.index();
    free_bytes = index.free_bytes();
    reclaimable_bytes = free_bytes + index.idle_bytes();
    return mheap_totalsize(heap);
}

uint32_t mheap_prefetch_all(_mheap* heap) noexcept {
    if (heap == nullptr) return 0;
    void* arena = mheap_heapbase(heap);
    const uint64_t length = mheap_totalsize(heap);
    const auto page = static_cast<uint64_t>(mem_pagesize());
    if (length > page) vell::populate_pages(arena, length);
    return vell::sum_of_pages(static_cast<const std::byte*>(arena), length, page);
}

void mheap_dump(_mheap* heap, const char* title) noexcept VELL_NO_LOCK_CHECK {
    if (heap == nullptr) return;
    if (msgdebug("HEAP '%.32s' - %s:", heap->name, title != nullptr ? title : "") == 0) return;
    const vell::Attempt attempt(heap);
    uint64_t listed = 0;
    for (vell::Glimpses at(heap); at.next(); listed += at.block.size)
        vell::dump_block(at.block);
    msgcont("  Total : %8d of %d", vell::kib(listed), vell::kib(mheap_totalsize(heap)));
}

// Kept: with the debug level off the list's lines follow the last entry that was written.
void mheap_trace(_mheap* heap, mheap_mblk* mark) noexcept VELL_NO_LOCK_CHECK {
    if (heap == nullptr) return;
    const vell::Attempt attempt(heap);
    const auto* base = static_cast<const std::byte*>(mheap_heapbase(heap));
    const auto length = static_cast<uint64_t>(reinterpret_cast<const std::byte*>(heap->end) - base);
    msgdebug("MHeap TRACE: %d Kb (0x%p - 0x%p)\n", vell::kib(length), static_cast<const void*>(base),
             static_cast<const void*>(heap->end));
    vell::TraceSums sums;
    int number = 0;
    for (vell::Glimpses at(heap); at.next(); ++number) {
        const bool is_marked = at.address() == reinterpret_cast<const std::byte*>(mark);
        vell::trace_block(at, is_marked ? "*" : "", number, sums);
    }
    msgcont("    STATUS: %d Kb Locked, %d Kb Used, %d Kb Free\n", vell::kib(sums.locked_bytes),
            vell::kib(sums.used_bytes), vell::kib(sums.free_bytes));
}
