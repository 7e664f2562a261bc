// The heap decides what stays: a lock that fails says that the frame is gone, and it is read again.

#include "clip/frame_store.h"

#include <atomic>

#include "clip/exit_codes.h"
#include "ui/translation.h"
#include "vellcore/lockable_heap.h"

namespace tool {
namespace {

/// Frames that heaps have discarded; the callback has no other place to count in.
std::atomic<uint64_t> discarded_frames{0};

void count_discard(void*) {
    discarded_frames.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

FrameStore::FrameStore(ClipReader& clip, const FrameHeap& heap)
    : clip_(clip), heap_(heap), handles_(clip.frame_count(), nullptr), was_read_(clip.frame_count(), false) {
    discarded_frames.store(0, std::memory_order_relaxed);
}

FrameStore::~FrameStore() {
    for (void*& handle : handles_)
        mheap_free(heap_.get(), &handle);
}

uint64_t FrameStore::frame_footprint(const ClipReader& clip) {
    return FrameHeap::block_footprint(clip.buffer_bytes());
}

const unsigned char* FrameStore::lock(size_t frame) {
    void** handle = &handles_[frame];
    if (mheap_lock(heap_.get(), handle) > 0) {
        ++counts_.hits;
        return static_cast<const unsigned char*>(*handle);
    }
    if (mheap_alloc_lock(heap_.get(), clip_.buffer_bytes(), handle) < 0) {
        throw Failure{
            k_exit_small_heap,
            clip_.path() + ": " + formatted(tr("problem", "no room for frame %llu in the heap"), number(frame))};
    }
    try {
        clip_.read_frame(frame, *handle);
    } catch (...) {
        mheap_unlock(heap_.get(), handle);
        mheap_free(heap_.get(), handle);
        throw;
    }
    mheap_set_discard_callback(heap_.get(), *handle, count_discard);
    ++(was_read_[frame] ? counts_.rereads : counts_.reads);
    was_read_[frame] = true;
    return static_cast<const unsigned char*>(*handle);
}

void FrameStore::unlock(size_t frame) {
    mheap_unlock(heap_.get(), &handles_[frame]);
}

bool FrameStore::has_room() {
    const bool is_room = heap_.has_room(clip_.buffer_bytes());
    if (!is_room) ++counts_.waits;
    return is_room;
}

StoreCounts FrameStore::counts() const {
    StoreCounts counts = counts_;
    counts.discards = discarded_frames.load(std::memory_order_relaxed);
    return counts;
}

void LockedFrames::add(size_t frame) {
    frames_.reserve(frames_.size() + 1);
    samples_.reserve(samples_.size() + 1);
    samples_.push_back(store_.lock(frame));
    frames_.push_back(frame);
}

void LockedFrames::release() {
    for (const size_t frame : frames_)
        store_.unlock(frame);
    frames_.clear();
    samples_.clear();
}

}  // namespace tool
