// The only file that knows the argument parser.

#include "arguments.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "failure.h"

namespace tool {
namespace {

void add_check(CLI::Option& option, Arguments::Check check) {
    if (check != nullptr) option.check(CLI::Validator([check](std::string& text) { return check(text); }, ""));
}

void describe_program(CLI::App& app, Invocation& invocation) {
    app.require_subcommand(1);
    app.set_version_flag("--version", "vell " VELL_VERSION);
    app.footer("vell COMMAND --help tells a command's options and its exit codes.");
    Arguments program(app, invocation);
    describe_offload(program);
    describe_verify(program);
    describe_hash(program);
    describe_clip(program);
    describe_doctor(program);
    describe_ls(program);
}

}  // namespace

Arguments Arguments::command(const char* name, const char* help) {
    return {*app_.add_subcommand(name, help), invocation_};
}

Arguments Arguments::group(const char* name, const char* help) {
    return {*app_.add_subcommand(name, help)->require_subcommand(1), invocation_};
}

void Arguments::footer(const char* text) {
    app_.footer(text);
}

void Arguments::value(const char* name, std::string& value, const char* help) {
    app_.add_option(name, value, help)->required();
}

void Arguments::optional_value(const char* name, std::string& value, const char* help) {
    app_.add_option(name, value, help);
}

void Arguments::values(const char* name, std::vector<std::string>& values, const char* help) {
    app_.add_option(name, values, help)->required();
}

void Arguments::optional_values(const char* name, std::vector<std::string>& values, const char* help) {
    app_.add_option(name, values, help);
}

void Arguments::option(const char* name, std::string& value, const char* help, Check check) {
    add_check(*app_.add_option(name, value, help), check);
}

void Arguments::repeated_option(const char* name, std::vector<std::string>& values, const char* help, Check check) {
    add_check(*app_.add_option(name, values, help)->allow_extra_args(false), check);
}

void Arguments::option(const char* name, uint32_t& value, Range range, const char* help) {
    app_.add_option(name, value, help)->check(CLI::Range(range.low, range.high));
}

void Arguments::required_option(const char* name, uint32_t& value, Range range, const char* help) {
    app_.add_option(name, value, help)->required()->check(CLI::Range(range.low, range.high));
}

void Arguments::flag(const char* name, bool& value, const char* help) {
    app_.add_flag(name, value, help);
}

void Arguments::processing_threads() {
    constexpr uint32_t k_most_threads = 128;
    option("--threads", invocation_.threads, {1, k_most_threads}, "processing threads (default: one per core)");
}

void Arguments::run(std::function<int()> command, Needs needs) {
    app_.callback([&invocation = invocation_, command = std::move(command), needs] {
        invocation.command = command;
        invocation.needs = needs;
    });
}

bool parse_command_line(int argc, char** argv, Invocation& invocation, int& exit_code) {
    CLI::App app{"Offloads and proves camera media, works on raw video clips, looks into the library underneath.",
                 "vell"};
    describe_program(app, invocation);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        // The parser would only say that a command is missing.
        const std::vector<std::string> unknown = app.remaining(/*recurse*/ true);
        if (error.get_name() == "RequiredError" && !unknown.empty()) {
            std::fprintf(stderr, "vell: '%s' is not understood\n", unknown.front().c_str());
        }
        exit_code = app.exit(error) == 0 ? k_exit_done : k_exit_command_line;
        return false;
    }
}

}  // namespace tool
