// vell clip: the commands on raw video clips.

#include <memory>

#include "cli/arguments.h"
#include "commands/clip_commands.h"
#include "ui/byte_size.h"
#include "ui/failure.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr const char* k_exit_codes = marked("help",
                                            "Exit codes:\n"
                                            "  0  done\n"
                                            "  1  something that has no code of its own\n"
                                            "  2  wrong command line, or input and output are the same file\n"
                                            "  3  the input cannot be opened or read\n"
                                            "  4  the input is no YUV4MPEG2 clip, or of a kind that is not supported\n"
                                            "  5  the clip is truncated\n"
                                            "  6  the output cannot be written (a full disk, for instance)\n"
                                            "  7  the heap is too small for one frame\n"
                                            "A result appears under its name only when it is whole.");

/// The options as they are written, and as the commands take them.
struct ClipArguments {
    ClipOptions options;
    std::string heap_text;
};

std::string size_problem(const std::string& text) {
    if (parse_byte_size(text)) return "";
    return formatted(tr("problem", "'%s' is no size: write 64M, 2G or bytes"), text.c_str());
}

Arguments describe(Arguments& clip, const char* name, const char* help, bool has_output,
                   void (*work)(const ClipOptions&), const std::shared_ptr<ClipArguments>& arguments) {
    Arguments command = clip.command(name, help);
    command.footer(tr("help", k_exit_codes));
    command.value("IN", arguments->options.input, tr("help", "a YUV4MPEG2 clip"));
    if (has_output) command.value("OUT", arguments->options.output, tr("help", "the result; - for standard output"));
    const auto run = [arguments, work] {
        if (!arguments->heap_text.empty()) arguments->options.heap_bytes = *parse_byte_size(arguments->heap_text);
        work(arguments->options);
        return k_exit_done;
    };
    command.run(run, {.heap_set = false, .processing_pool = true});
    return command;
}

/// A command that works on every frame.
Arguments describe_job(Arguments& clip, const char* name, const char* help, bool has_output,
                       void (*work)(const ClipOptions&), const std::shared_ptr<ClipArguments>& arguments) {
    Arguments command = describe(clip, name, help, has_output, work, arguments);
    command.option("--heap", arguments->heap_text,
                   tr("help", "memory for frames, for example 64M or 2G (default: from the machine)"), size_problem);
    command.processing_threads();
    command.flag("--stats", arguments->options.wants_statistics,
                 tr("help", "print what the run took, to standard error"));
    return command;
}

}  // namespace

void describe_clip(Arguments& program) {
    const auto arguments = std::make_shared<ClipArguments>();
    Arguments clip = program.group("clip", tr("help", "work on a raw video clip"));
    clip.footer(tr("help", k_exit_codes));
    describe(clip, "info", tr("help", "print what a clip is"), /*has_output*/ false, print_clip_info, arguments);
    describe_job(clip, "framemd5", tr("help", "print the MD5 sum of every frame"), /*has_output*/ false,
                 print_frame_sums, arguments);
    describe_job(clip, "proxy", tr("help", "write the clip at half its size"), /*has_output*/ true, write_proxy,
                 arguments);
    Arguments average = describe_job(clip, "average", tr("help", "write the mean over a window of frames"),
                                     /*has_output*/ true, write_average, arguments);
    average.required_option("--window", arguments->options.window, {1, k_largest_window},
                            tr("help", "frames in the mean, around each frame; fewer at the ends"));
    describe_job(clip, "reverse", tr("help", "write the frames last to first"), /*has_output*/ true, write_reverse,
                 arguments);
}

}  // namespace tool
