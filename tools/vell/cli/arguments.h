// How a command describes its command line. The argument parser is behind it, in arguments.cpp alone.
//
//     void describe_hash(Arguments& program) {
//         auto options = std::make_shared<HashOptions>();
//         Arguments command = program.command("hash", "print the digests of files");
//         command.values("PATH", options->paths, "files and folders");
//         command.run([options] { return print_digests(*options); });
//     }
//
// References must stay good until the command has run: the function given to run() keeps what they refer to.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

/// What has to be started beside the library's short form.
struct Needs {
    bool heap_set = false;
    bool processing_pool = false;
};

/// What the command line asks for.
struct Invocation {
    std::function<int()> command;  ///< the chosen command's work; answers the exit code or throws Failure
    Needs needs;
    uint32_t threads = 0;  ///< of the processing pool; 0: one per core
};

/// One command, or the program itself.
class Arguments {
public:
    /// Answers what is wrong with a value, or nothing.
    using Check = std::string (*)(const std::string& text);

    Arguments(CLI::App& app, Invocation& invocation) : app_(app), invocation_(invocation) {}

    /// A command below this one, and one that only has commands below it.
    [[nodiscard]] Arguments command(const char* name, const char* help);
    [[nodiscard]] Arguments group(const char* name, const char* help);
    /// Text below the help, where the exit codes go.
    void footer(const char* text);

    /// A value without a name, in the order of the calls.
    void value(const char* name, std::string& value, const char* help);
    void optional_value(const char* name, std::string& value, const char* help);
    /// One or more values, or none when they are optional; the last of a command's values without a name.
    void values(const char* name, std::vector<std::string>& values, const char* help);
    void optional_values(const char* name, std::vector<std::string>& values, const char* help);

    /// "--name TEXT"
    void option(const char* name, std::string& value, const char* help, Check check = nullptr);
    /// "--name TEXT", which may be repeated.
    void repeated_option(const char* name, std::vector<std::string>& values, const char* help, Check check = nullptr);
    /// "--name NUMBER" from low to high.
    struct Range {
        uint32_t low, high;
    };
    void option(const char* name, uint32_t& value, Range range, const char* help);
    void required_option(const char* name, uint32_t& value, Range range, const char* help);
    void flag(const char* name, bool& value, const char* help);
    /// "--threads N" of the processing pool.
    void processing_threads();

    /// What the command does when it is the one.
    void run(std::function<int()> command, Needs needs = {});

private:
    CLI::App& app_;
    Invocation& invocation_;
};

/// Parses the command line. False when there is nothing to run: help or a problem was printed, and `exit_code` says
/// which.
[[nodiscard]] bool parse_command_line(int argc, char** argv, Invocation& invocation, int& exit_code);

// Every command in a file of its own: <command>_arguments.cpp.
void describe_offload(Arguments& program);
void describe_verify(Arguments& program);
void describe_hash(Arguments& program);
void describe_clip(Arguments& program);
void describe_doctor(Arguments& program);
void describe_ls(Arguments& program);
void describe_get(Arguments& program);
void describe_listen(Arguments& program);

}  // namespace tool
