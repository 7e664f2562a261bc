// vell clip reverse: the frames last to first.

#include "clip/job.h"
#include "commands/clip_commands.h"

namespace tool {

void write_reverse(const ClipOptions& options) {
    ClipReader clip(options.input);
    const uint64_t frame_bytes = clip.format().frame_bytes();
    ClipJob job(options, clip, /*own_bytes*/ 0);
    job.start_output(clip.format());
    for (size_t frame = clip.frame_count(); frame-- > 0;) {
        job.write_frame(frame, job.frames().lock(frame), frame_bytes);
        job.frames().unlock(frame);
    }
    job.finish();
}

}  // namespace tool
