// What the commands on clips share: the heap for the job, the frames in it, and the result.
#pragma once

#include <memory>

#include "clip/frame_heap.h"
#include "clip/frame_store.h"
#include "clip/output.h"
#include "clip/progress.h"
#include "clip/reader.h"
#include "commands/clip_commands.h"

namespace tool {

/// One command at work on one clip.
class ClipJob {
public:
    /// @param own_bytes  footprints of the blocks that the command keeps locked beside the clip's frames.
    ClipJob(const ClipOptions& options, ClipReader& clip, uint64_t own_bytes);

    [[nodiscard]] const FrameHeap& heap() const { return heap_; }
    [[nodiscard]] FrameStore& frames() { return frames_; }

    /// Opens the result and writes its header.
    void start_output(const ClipFormat& format);
    /// Writes one frame of the result, with the parameters that frame `like` of the clip has.
    void write_frame(size_t like, const void* samples, uint64_t bytes);
    /// Counts frames that are done.
    void frames_done(size_t count) { progress_.frames_done(count); }
    /// Ends the result, if there is one, and prints the statistics, if they are wanted.
    void finish();

private:
    const ClipOptions& options_;
    ClipReader& clip_;
    uint64_t heap_bytes_;
    FrameHeap heap_;
    FrameStore frames_;
    std::unique_ptr<ClipOutput> output_;
    Progress progress_;
};

}  // namespace tool
