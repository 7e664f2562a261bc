// vell clip proxy: every frame at half its size.

#include "clip/job.h"
#include "clip/pixel_kernels.h"
#include "clip/share_out.h"
#include "commands/clip_commands.h"

namespace tool {

void write_proxy(const ClipOptions& options) {
    ClipReader clip(options.input);
    const ClipFormat half = clip.format().halved();
    ClipJob job(options, clip, FrameHeap::block_footprint(half.frame_bytes()));
    const HeapBlock result(job.heap(), half.frame_bytes());
    auto* out = static_cast<unsigned char*>(result.data());
    job.start_output(half);
    for (size_t frame = 0; frame < clip.frame_count(); ++frame) {
        const unsigned char* in = job.frames().lock(frame);
        share_out([&](int32_t share, int32_t shares) { halve_frame(clip.format(), half, in, out, share, shares); });
        job.frames().unlock(frame);
        job.write_frame(frame, out, half.frame_bytes());
    }
    job.finish();
}

}  // namespace tool
