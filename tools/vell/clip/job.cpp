// The heap's default size leaves most of the machine to others and is never more than the whole clip needs.

#include "clip/job.h"

#include <algorithm>

#include "vellcore/heap_set.h"

namespace tool {
namespace {

uint64_t chosen_heap_bytes(const ClipOptions& options, const ClipReader& clip, uint64_t least_bytes) {
    if (options.heap_bytes != 0) return options.heap_bytes;
    constexpr uint64_t k_share_of_memory = 4;
    const auto page = static_cast<uint64_t>(mem_pagesize());
    const uint64_t whole_clip = clip.frame_count() * FrameStore::frame_footprint(clip) + least_bytes + page;
    return std::min(std::max(mem_info(nullptr) / k_share_of_memory, least_bytes + page), whole_clip);
}

}  // namespace

ClipJob::ClipJob(const ClipOptions& options, ClipReader& clip, uint64_t own_bytes)
    : options_(options),
      clip_(clip),
      heap_bytes_(chosen_heap_bytes(options, clip, own_bytes + FrameStore::frame_footprint(clip))),
      heap_(clip.path(), heap_bytes_, own_bytes + FrameStore::frame_footprint(clip)),
      frames_(clip, heap_),
      progress_(clip.frame_count()) {}

void ClipJob::start_output(const ClipFormat& format) {
    output_ = open_clip_output(options_.output, options_.input);
    const std::string header = format_clip_header(format);
    output_->write(header.data(), header.size());
}

void ClipJob::write_frame(size_t like, const void* samples, uint64_t bytes) {
    const std::string line = format_frame_line(clip_.frame_parameters(like));
    output_->write(line.data(), line.size());
    output_->write(samples, bytes);
    progress_.frames_done(1);
}

void ClipJob::finish() {
    if (output_ != nullptr) output_->finish();
    if (options_.wants_statistics) print_statistics(progress_, frames_.counts(), heap_bytes_);
}

}  // namespace tool
