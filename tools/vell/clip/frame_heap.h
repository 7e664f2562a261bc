// The heap that a clip's frames live in, and blocks of it.
#pragma once

#include <cstdint>
#include <string>

struct _mheap;

namespace tool {

/// One lockable heap; --heap is its size and the limit of everything that is kept per clip.
class FrameHeap {
public:
    /// @param clip         whose frames it is for: its name stands in the message of a failure.
    /// @param least_bytes  what a job needs at least, as the sum of its blocks' footprints.
    /// Throws Failure when the heap would not hold that, or cannot be had.
    FrameHeap(const std::string& clip, uint64_t heap_bytes, uint64_t least_bytes);
    ~FrameHeap();
    FrameHeap(const FrameHeap&) = delete;
    FrameHeap& operator=(const FrameHeap&) = delete;

    [[nodiscard]] _mheap* get() const { return heap_; }
    /// What a block of `bytes` takes in a heap, its header included.
    [[nodiscard]] static uint64_t block_footprint(uint64_t bytes);
    /// True when a block of `bytes` can be had without waiting for a lock.
    [[nodiscard]] bool has_room(uint64_t bytes) const;

private:
    _mheap* heap_;
};

/// A block that stays locked for as long as the object lives: a frame that is being made, or sums.
class HeapBlock {
public:
    HeapBlock(const FrameHeap& heap, uint64_t bytes);
    ~HeapBlock();
    HeapBlock(const HeapBlock&) = delete;
    HeapBlock& operator=(const HeapBlock&) = delete;

    [[nodiscard]] void* data() const { return data_; }

private:
    const FrameHeap& heap_;
    void* data_ = nullptr;  // its address is the block's handle
};

}  // namespace tool
