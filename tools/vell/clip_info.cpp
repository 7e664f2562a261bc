// vell clip info: a clip's header in words, and how long it is.

#include <cstdio>

#include "byte_size.h"
#include "clip_commands.h"
#include "clip_exit_codes.h"
#include "clip_reader.h"

namespace tool {
namespace {

void print_ratio(const char* label, Ratio ratio) {
    if (ratio.numerator == 0 || ratio.denominator == 0) {
        std::printf("%s unknown\n", label);
    } else {
        std::printf("%s %u:%u\n", label, ratio.numerator, ratio.denominator);
    }
}

}  // namespace

void print_clip_info(const ClipOptions& options) {
    const ClipReader clip(options.input);
    const ClipFormat& format = clip.format();
    std::printf("clip:         %s\n", clip.path().c_str());
    std::printf("size:         %ux%u\n", format.width, format.height);
    std::printf("chroma:       %s, %u bit, %u plane%s\n", format.chroma_name.c_str(), format.bits, format.plane_count,
                format.plane_count == 1 ? "" : "s");
    print_ratio("frame rate:  ", format.rate);
    print_ratio("pixel aspect:", format.aspect);
    std::printf("frames:       %zu of %llu bytes\n", clip.frame_count(),
                static_cast<unsigned long long>(format.frame_bytes()));
    if (format.rate.numerator != 0 && format.rate.denominator != 0) {
        std::printf("duration:     %.3f s\n",
                    static_cast<double>(clip.frame_count()) * format.rate.denominator / format.rate.numerator);
    }
    const std::string header = format_clip_header(format);
    std::printf("header:       %s", header.c_str());
    if (std::fflush(stdout) != 0) throw Failure{k_exit_unwritable, "standard output: cannot be written"};
}

}  // namespace tool
