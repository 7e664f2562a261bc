// vell: the library's command line. The only file that knows the argument parser.

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "byte_size.h"
#include "clip_commands.h"
#include "doctor.h"
#include "failure.h"
#include "vellcore/processing_pool.h"
#include "vellcore/startup.h"

namespace {

constexpr const char* k_exit_codes =
    "Exit codes:\n"
    "  0  done\n"
    "  1  something that has no code of its own\n"
    "  2  wrong command line, or input and output are the same file\n"
    "  3  the input cannot be opened or read\n"
    "  4  the input is no YUV4MPEG2 clip, or of a kind that is not supported\n"
    "  5  the clip is truncated\n"
    "  6  the output cannot be written (a full disk, for instance)\n"
    "  7  the heap is too small for one frame\n"
    "A result appears under its name only when it is whole.";

struct CommandLine {
    tool::ClipOptions clip;
    std::string doctor_path = ".";
    int threads = 0;
    bool needs_heap_set = false;
    std::function<void()> command;
};

std::string size_problem(const std::string& text) {
    return tool::parse_byte_size(text) ? "" : "'" + text + "' is no size: write 64M, 2G or bytes";
}

/// Starts and stops the library around a command.
class Library {
public:
    Library(const std::string& program, const CommandLine& line) {
        const mode_t callers_mask = umask(0);
        vl_fast_initialize(program.empty() ? nullptr : program.c_str(), line.needs_heap_set);
        umask(callers_mask);
        smp_initialize(line.threads);
    }
    ~Library() { vl_closedown(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

/// The program's path: as it was called, or as the shell found it.
std::string program_path(const std::string& called) {
    if (called.find('/') != std::string::npos) return called;
    const char* list = std::getenv("PATH");
    std::string rest = list != nullptr ? list : "";
    while (!rest.empty()) {
        const size_t end = std::min(rest.find(':'), rest.size());
        std::string candidate = rest.substr(0, end) + "/" + called;
        if (end > 0 && access(candidate.c_str(), X_OK) == 0) return candidate;
        rest.erase(0, end + 1);
    }
    return "";
}

void add_job_options(CLI::App& command, CommandLine& line) {
    command
        .add_option_function<std::string>(
            "--heap", [&line](const std::string& text) { line.clip.heap_bytes = *tool::parse_byte_size(text); },
            "memory for frames, for example 64M or 2G (default: from the machine)")
        ->check(CLI::Validator(size_problem, "SIZE"));
    command.add_option("--threads", line.threads, "processing threads (default: one per core)")
        ->check(CLI::Range(1, 128));
    command.add_flag("--stats", line.clip.wants_statistics, "print what the run took, to standard error");
}

CLI::App* add_clip_command(CLI::App& clip, CommandLine& line, const char* name, const char* text, bool has_output,
                           void (*run)(const tool::ClipOptions&)) {
    CLI::App* command = clip.add_subcommand(name, text);
    command->add_option("IN", line.clip.input, "a YUV4MPEG2 clip")->required();
    if (has_output) command->add_option("OUT", line.clip.output, "the result; - for standard output")->required();
    command->callback([&line, run] { line.command = [&line, run] { run(line.clip); }; });
    return command;
}

void describe(CLI::App& app, CommandLine& line) {
    app.require_subcommand(1);
    app.set_version_flag("--version", "vell " VELL_VERSION);
    app.footer(k_exit_codes);
    CLI::App* clip = app.add_subcommand("clip", "work on a raw video clip");
    clip->require_subcommand(1);
    clip->footer(k_exit_codes);
    add_clip_command(*clip, line, "info", "print what a clip is", false, tool::print_clip_info);
    CLI::App* jobs[] = {
        add_clip_command(*clip, line, "framemd5", "print the MD5 sum of every frame", false, tool::print_frame_sums),
        add_clip_command(*clip, line, "proxy", "write the clip at half its size", true, tool::write_proxy),
        add_clip_command(*clip, line, "average", "write the mean over a window of frames", true, tool::write_average),
        add_clip_command(*clip, line, "reverse", "write the frames last to first", true, tool::write_reverse)};
    for (CLI::App* job : jobs)
        add_job_options(*job, line);
    clip->get_subcommand("average")
        ->add_option("--window", line.clip.window, "frames in the mean, around each frame; fewer at the ends")
        ->required()
        ->check(CLI::Range(1u, tool::k_largest_window));
    CLI::App* doctor = app.add_subcommand("doctor", "print what the library found on this machine and chose");
    doctor->add_option("PATH", line.doctor_path, "file or folder to ask about uncached transfers (default: .)");
    doctor->callback([&line] {
        line.needs_heap_set = true;
        line.command = [&line] { tool::print_diagnosis(line.doctor_path); };
    });
}

int run(int argc, char** argv) {
    CommandLine line;
    CLI::App app{"Works on raw video clips and looks into the library underneath.", "vell"};
    describe(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // The parser would only say that a command is missing.
        const std::vector<std::string> unknown = app.remaining(/*recurse*/ true);
        if (error.get_name() == "RequiredError" && !unknown.empty()) {
            std::fprintf(stderr, "vell: '%s' is not understood\n", unknown.front().c_str());
        }
        return app.exit(error) == 0 ? tool::k_exit_done : tool::k_exit_command_line;
    }
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is told of by the write
    const Library library(program_path(argv[0]), line);
    line.command();
    return tool::k_exit_done;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const tool::Failure& failure) {
        std::fprintf(stderr, "vell: %s\n", failure.message.c_str());
        return failure.code;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vell: %s\n", error.what());
        return tool::k_exit_other;
    }
}
