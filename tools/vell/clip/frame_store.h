// A clip's frames, cached in a heap.
#pragma once

#include <cstdint>
#include <vector>

#include "clip/frame_heap.h"
#include "clip/reader.h"

namespace tool {

struct StoreCounts {
    uint64_t reads = 0;     ///< frames read for the first time
    uint64_t hits = 0;      ///< frames found in the heap
    uint64_t rereads = 0;   ///< frames read again because the heap had discarded them
    uint64_t discards = 0;  ///< frames that the heap discarded to make room
    uint64_t waits = 0;     ///< times that work went on with fewer frames at once than it asked for
};

/// Hands out frames of a clip. A frame that nobody uses stays in the heap, unlocked, until the heap discards it; it
/// is then read again when it is wanted. One thread at a time; a frame that is locked may be read by any.
class FrameStore {
public:
    FrameStore(ClipReader& clip, const FrameHeap& heap);
    ~FrameStore();
    FrameStore(const FrameStore&) = delete;
    FrameStore& operator=(const FrameStore&) = delete;

    /// What one frame takes in the heap.
    [[nodiscard]] static uint64_t frame_footprint(const ClipReader& clip);

    /// Locks a frame and returns its samples. Throws Failure.
    [[nodiscard]] const unsigned char* lock(size_t frame);
    void unlock(size_t frame);
    /// True when one more frame can be locked beside those that are; a "no" is counted as a wait.
    [[nodiscard]] bool has_room();

    [[nodiscard]] StoreCounts counts() const;

private:
    ClipReader& clip_;
    const FrameHeap& heap_;
    std::vector<void*> handles_;  // one per frame, never moved: the heap keeps their addresses
    std::vector<bool> was_read_;
    StoreCounts counts_;
};

/// Frames that are locked together and unlocked together.
class LockedFrames {
public:
    explicit LockedFrames(FrameStore& store) : store_(store) {}
    ~LockedFrames() { release(); }
    LockedFrames(const LockedFrames&) = delete;
    LockedFrames& operator=(const LockedFrames&) = delete;

    void add(size_t frame);
    void release();
    [[nodiscard]] const std::vector<const unsigned char*>& samples() const { return samples_; }

private:
    FrameStore& store_;
    std::vector<size_t> frames_;
    std::vector<const unsigned char*> samples_;
};

}  // namespace tool
