// The only file that knows the argument parser.

#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "ui/failure.h"
#include "ui/text_columns.h"
#include "ui/translation.h"

namespace tool {
namespace {

/// Help in the user's language, laid out by columns: the parser counts bytes.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() {
        label("Usage", tr("help", "Usage"));
        label("OPTIONS", tr("help", "OPTIONS"));
        label("SUBCOMMAND", tr("help", "SUBCOMMAND"));
        label("Positionals", tr("help", "Positionals"));
        label("Options", tr("help", "Options"));
        label("Subcommands", tr("help", "Subcommands"));
        label("REQUIRED", tr("help", "REQUIRED"));
        label("TEXT", tr("help", "TEXT"));
    }

    std::string make_description(const CLI::App* app) const override { return app->get_description() + "\n"; }

    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override {
        std::string text = "\n" + get_label(group) + ":\n";
        for (const CLI::Option* option : options)
            text += make_option(option, is_positional);
        return text;
    }

    std::string make_option(const CLI::Option* option, bool is_positional) const override {
        return laid_out(make_option_name(option, is_positional) + make_option_opts(option), option->get_description());
    }

    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode) const override {
        std::string text;
        for (const CLI::App* command : app->get_subcommands({}))
            text += laid_out(command->get_name(), command->get_description());
        return text.empty() ? "" : "\n" + get_label("Subcommands") + ":\n" + text;
    }

private:
    /// Two columns. What is too long for the first one has a line of its own.
    [[nodiscard]] std::string laid_out(const std::string& name, const std::string& description) const {
        const std::string left = "  " + name;
        const bool is_long = columns_of(left) >= get_column_width();
        return (is_long ? left + "\n" + padded("", get_column_width()) : padded(left, get_column_width())) +
               description + "\n";
    }
};

void add_check(CLI::Option& option, Arguments::Check check) {
    if (check != nullptr) option.check(CLI::Validator([check](std::string& text) { return check(text); }, ""));
}

CLI::Validator range_check(Arguments::Range range) {
    const auto check = [range](std::string& text) {
        uint32_t value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= range.low && value <= range.high) return std::string();
        return formatted(tr("problem", "'%s' is no number from %u to %u"), text.c_str(), range.low, range.high);
    };
    return {check, formatted("%u-%u", range.low, range.high)};
}

void describe_program(CLI::App& app, Invocation& invocation) {
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", tr("help", "print this help and exit"));
    app.set_version_flag("--version", "vell " VELL_VERSION, tr("help", "print the version and exit"));
    app.footer(tr("help", "vell COMMAND --help tells a command's options and its exit codes."));
    Arguments program(app, invocation);
    describe_offload(program);
    describe_verify(program);
    describe_hash(program);
    describe_clip(program);
    describe_doctor(program);
    describe_ls(program);
    describe_get(program);
    describe_listen(program);
}

/// The command that the parser was at, and what it is called with those above it.
const CLI::App& innermost_command(const CLI::App& app, std::string& name) {
    const CLI::App* command = &app;
    for (name = app.get_name(); !command->get_subcommands().empty(); name += " " + command->get_name())
        command = command->get_subcommands().front();
    return *command;
}

std::string option_named_in(const CLI::App& command, const std::string& text) {
    std::string longest;
    for (const CLI::Option* option : command.get_options()) {
        const std::string name = option->get_name();
        if (text.find(name) != std::string::npos && name.size() > longest.size()) longest = name;
    }
    return longest;
}

/// What is wrong with the command line. The parser's own texts are English only.
std::string problem_text(const CLI::App& app, const CLI::App& command, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(/*recurse*/ true);
    if (!unknown.empty()) return formatted(tr("problem", "'%s' is not understood"), unknown.front().c_str());
    if (error.get_name() == "RequiredError") {
        for (const CLI::Option* option : command.get_options()) {
            if (!option->get_required() || option->count() > 0) continue;
            return formatted(tr("problem", "%s is missing"), option->get_name().c_str());
        }
        return tr("problem", "a command is missing");
    }
    const std::string option = option_named_in(command, error.what());
    if (error.get_name() == "ArgumentMismatch") {
        return formatted(tr("problem", "%s: its value is missing, or there is one too many"), option.c_str());
    }
    // What our own checks say is translated already.
    if (error.get_name() == "ValidationError") return error.what();
    return formatted(tr("problem", "%s: such a value is not possible"), option.c_str());
}

int explain(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error) == 0 ? k_exit_done : k_exit_command_line;
    std::string name;
    const CLI::App& command = innermost_command(app, name);
    std::fprintf(stderr, "vell: %s\n", problem_text(app, command, error).c_str());
    std::fprintf(stderr, "%s\n",
                 formatted(tr("problem", "Run with --help for more information: %s --help"), name.c_str()).c_str());
    return k_exit_command_line;
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
    app_.add_option(name, value, help)->type_name(tr("help", "NUMBER"))->check(range_check(range));
}

void Arguments::required_option(const char* name, uint32_t& value, Range range, const char* help) {
    app_.add_option(name, value, help)->required()->type_name(tr("help", "NUMBER"))->check(range_check(range));
}

void Arguments::flag(const char* name, bool& value, const char* help) {
    app_.add_flag(name, value, help);
}

void Arguments::processing_threads() {
    constexpr uint32_t k_most_threads = 128;
    option("--threads", invocation_.threads, {1, k_most_threads},
           tr("help", "processing threads (default: one per core)"));
}

void Arguments::run(std::function<int()> command, Needs needs) {
    app_.callback([&invocation = invocation_, command = std::move(command), needs] {
        invocation.command = command;
        invocation.needs = needs;
    });
}

bool parse_command_line(int argc, char** argv, Invocation& invocation, int& exit_code) {
    CLI::App app{
        tr("help", "Offloads and proves camera media, works on raw video clips, looks into the library underneath."),
        "vell"};
    describe_program(app, invocation);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        exit_code = explain(app, error);
        return false;
    }
}

}  // namespace tool
