// vell clip info: a clip's header in words, and how long it is.

#include <cstdio>

#include "clip/exit_codes.h"
#include "clip/reader.h"
#include "commands/clip_commands.h"
#include "ui/byte_size.h"
#include "ui/labelled_lines.h"
#include "ui/translation.h"

namespace tool {
namespace {

std::string ratio_text(Ratio ratio) {
    if (ratio.numerator == 0 || ratio.denominator == 0) return tr("report", "unknown");
    return formatted("%u:%u", ratio.numerator, ratio.denominator);
}

}  // namespace

void print_clip_info(const ClipOptions& options) {
    const ClipReader clip(options.input);
    const ClipFormat& format = clip.format();
    LabelledLines lines;
    lines.add(tr("report", "clip"), clip.path());
    lines.add(tr("report", "size"), formatted("%ux%u", format.width, format.height));
    lines.add(tr("report", "chroma"), formatted(format.plane_count == 1 ? tr("report", "%s, %u bit, %u plane")
                                                                        : tr("report", "%s, %u bit, %u planes"),
                                                format.chroma_name.c_str(), format.bits, format.plane_count));
    lines.add(tr("report", "frame rate"), ratio_text(format.rate));
    lines.add(tr("report", "pixel aspect"), ratio_text(format.aspect));
    lines.add(tr("report", "frames"),
              formatted(tr("report", "%llu of %llu bytes"), number(clip.frame_count()), number(format.frame_bytes())));
    if (format.rate.numerator != 0 && format.rate.denominator != 0) {
        lines.add(tr("report", "duration"),
                  formatted(tr("report", "%.3f s"),
                            static_cast<double>(clip.frame_count()) * format.rate.denominator / format.rate.numerator));
    }
    std::string header = format_clip_header(format);
    header.pop_back();  // its newline
    lines.add(tr("report", "header"), header);
    lines.print(stdout);
    if (std::fflush(stdout) != 0) throw Failure{k_exit_unwritable, tr("problem", "standard output: cannot be written")};
}

}  // namespace tool
