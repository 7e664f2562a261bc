// A heap of whole pages, so that transfers go straight into its blocks.

#include "clip/frame_heap.h"

#include "clip/exit_codes.h"
#include "ui/byte_size.h"
#include "ui/translation.h"
#include "vellcore/heap_set.h"
#include "vellcore/lockable_heap.h"

namespace tool {
namespace {

uint64_t whole_pages(uint64_t bytes) {
    const auto page = static_cast<uint64_t>(mem_pagesize());
    return (bytes + page - 1) / page * page;
}

uint64_t header_bytes() {
    return static_cast<uint64_t>(mem_pagesize());
}

}  // namespace

FrameHeap::FrameHeap(const std::string& clip, uint64_t heap_bytes, uint64_t least_bytes) {
    const uint64_t needed = least_bytes + header_bytes();  // the end marker takes a header too
    if (heap_bytes < needed) {
        throw Failure{k_exit_small_heap,
                      clip + ": " +
                          formatted(tr("problem", "a heap of %s is too small for one frame: it takes at least %lluK"),
                                    format_byte_size(heap_bytes).c_str(), number(whole_pages(needed) / 1024))};
    }
    heap_ = mheap_initialize("Clip", heap_bytes, mem_pagesize(), MHEAP_DISCARD, /*lock_flag*/ 0);
    if (heap_ == nullptr) {
        throw Failure{
            k_exit_other,
            clip + ": " + formatted(tr("problem", "no memory for a heap of %s"), format_byte_size(heap_bytes).c_str())};
    }
}

FrameHeap::~FrameHeap() {
    mheap_destroy(heap_);
}

uint64_t FrameHeap::block_footprint(uint64_t bytes) {
    return whole_pages(bytes) + header_bytes();
}

// Free space that is too short for a block cannot add up to one here: all blocks that come and go have one size.
bool FrameHeap::has_room(uint64_t bytes) const {
    uint64_t free_bytes = 0;
    uint64_t reclaimable_bytes = 0;
    mheap_queryspace(heap_, free_bytes, reclaimable_bytes);
    return reclaimable_bytes >= block_footprint(bytes);
}

HeapBlock::HeapBlock(const FrameHeap& heap, uint64_t bytes) : heap_(heap) {
    if (mheap_alloc_lock(heap_.get(), bytes, &data_) < 0) {
        throw Failure{k_exit_small_heap,
                      formatted(tr("problem", "no room for %s in the heap"), format_byte_size(bytes).c_str())};
    }
}

HeapBlock::~HeapBlock() {
    mheap_unlock(heap_.get(), &data_);
    mheap_free(heap_.get(), &data_);
}

}  // namespace tool
