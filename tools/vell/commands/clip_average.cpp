// vell clip average: the mean over a window that slides along the clip. Each frame is wanted once per window that it
// lies in; the heap keeps what it can of them.

#include <algorithm>

#include "clip/job.h"
#include "clip/pixel_kernels.h"
#include "clip/share_out.h"
#include "commands/clip_commands.h"

namespace tool {
namespace {

/// The frames [first, end) that a result is the mean of.
struct Window {
    size_t first;
    size_t end;
    [[nodiscard]] size_t size() const { return end - first; }
};

Window window_around(size_t frame, uint32_t width, size_t frame_count) {
    const size_t before = std::min<size_t>(frame, (width - 1) / 2);
    return {frame - before, std::min(frame + width / 2 + 1, frame_count)};
}

/// The i-th frame of a window to be added. Windows are walked up and down in turn: when the heap holds fewer frames
/// than a window has, those at the end where the last walk stopped are still there.
size_t frame_to_add(const Window& window, size_t index, bool upwards) {
    return upwards ? window.first + index : window.end - 1 - index;
}

}  // namespace

void write_average(const ClipOptions& options) {
    ClipReader clip(options.input);
    const ClipFormat& format = clip.format();
    const uint64_t frame_bytes = format.frame_bytes();
    const uint64_t sum_bytes = frame_bytes / format.sample_bytes() * sizeof(uint32_t);
    ClipJob job(options, clip, FrameHeap::block_footprint(frame_bytes) + FrameHeap::block_footprint(sum_bytes));
    const HeapBlock sum_block(job.heap(), sum_bytes);
    const HeapBlock result(job.heap(), frame_bytes);
    auto* sums = static_cast<uint32_t*>(sum_block.data());
    auto* out = static_cast<unsigned char*>(result.data());
    job.start_output(format);
    LockedFrames group(job.frames());
    for (size_t frame = 0; frame < clip.frame_count(); ++frame) {
        const Window window = window_around(frame, options.window, clip.frame_count());
        const bool upwards = frame % 2 == 0;
        for (size_t added = 0; added < window.size();) {
            const bool is_first_group = added == 0;
            do
                group.add(frame_to_add(window, added++, upwards));
            while (added < window.size() && job.frames().has_room());
            share_out([&](int32_t share, int32_t shares) {
                add_frames(format, group.samples(), is_first_group, sums, share, shares);
                if (added < window.size()) return;
                divide_sums(format, sums, static_cast<uint32_t>(window.size()), out, share, shares);
            });
            group.release();
        }
        job.write_frame(frame, out, frame_bytes);
    }
    job.finish();
}

}  // namespace tool
