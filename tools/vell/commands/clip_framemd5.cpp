// vell clip framemd5: every frame's MD5 sum. A sum cannot be shared out, so as many frames as there are threads are
// summed at once, one each.

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <numeric>
#include <vector>

#include "clip/exit_codes.h"
#include "clip/job.h"
#include "clip/share_out.h"
#include "commands/clip_commands.h"
#include "ui/translation.h"
#include "vellcore/hash_functions.h"

namespace tool {
namespace {

struct Digest {
    unsigned char bytes[16];
};

Digest sum_frame(const unsigned char* samples, uint64_t bytes) {
    md5_state_s state;
    vl_md5_init(&state);
    for (uint64_t done = 0; done < bytes;) {
        const uint64_t part = std::min<uint64_t>(bytes - done, 1 << 30);
        vl_md5_append(&state, samples + done, static_cast<int>(part));
        done += part;
    }
    Digest digest{};
    vl_md5_finish(&state, digest.bytes);
    return digest;
}

/// The head of the list. A clip without a frame rate counts as one of 25 frames a second.
void print_head(const ClipFormat& format) {
    const bool has_rate = format.rate.numerator != 0 && format.rate.denominator != 0;
    const Ratio rate = has_rate ? format.rate : Ratio{25, 1};
    const uint32_t divisor = std::gcd(rate.numerator, rate.denominator);
    const bool has_aspect = format.aspect.numerator != 0 || format.aspect.denominator != 0;
    const Ratio aspect = has_aspect ? format.aspect : Ratio{0, 1};
    std::printf("#format: frame checksums\n#version: 2\n#hash: MD5\n");
    std::printf("#tb 0: %u/%u\n", rate.denominator / divisor, rate.numerator / divisor);
    std::printf("#media_type 0: video\n#codec_id 0: rawvideo\n");
    std::printf("#dimensions 0: %ux%u\n", format.width, format.height);
    std::printf("#sar 0: %u/%u\n", aspect.numerator, aspect.denominator);
    std::printf("#stream#, dts,        pts, duration,     size, hash\n");
}

void print_line(size_t frame, uint64_t bytes, const Digest& digest) {
    std::printf("0, %10zu, %10zu,        1, %8" PRIu64 ", ", frame, frame, bytes);
    for (const unsigned char byte : digest.bytes)
        std::printf("%02x", byte);
    std::printf("\n");
}

}  // namespace

void print_frame_sums(const ClipOptions& options) {
    ClipReader clip(options.input);
    ClipJob job(options, clip, /*own_bytes*/ 0);
    const uint64_t bytes = clip.format().frame_bytes();
    print_head(clip.format());
    LockedFrames group(job.frames());
    for (size_t first = 0; first < clip.frame_count();) {
        const auto wanted = static_cast<size_t>(smp_numprocs());
        const size_t end = std::min(first + wanted, clip.frame_count());
        size_t next = first;
        do
            group.add(next++);
        while (next < end && job.frames().has_room());
        std::vector<Digest> digests(next - first);
        share_out([&](int32_t share, int32_t shares) {
            const RowRange mine = rows_of_share(digests.size(), share, shares);
            for (uint64_t i = mine.first; i < mine.end; ++i)
                digests[i] = sum_frame(group.samples()[i], bytes);
        });
        group.release();
        for (const Digest& digest : digests)
            print_line(first++, bytes, digest);
        if (std::ferror(stdout) != 0) break;
        job.frames_done(digests.size());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw Failure{k_exit_unwritable, tr("problem", "standard output: cannot be written")};
    }
    job.finish();
}

}  // namespace tool
