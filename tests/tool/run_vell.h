// Runs the built tool.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/temporary_folder.h"

struct RunResult {
    int code;            ///< exit code, or 128 + signal
    std::string output;  ///< standard output
    std::string errors;  ///< standard error
    long peak_kib;       ///< peak resident memory
};

/// What is run, and the variables that are added to its environment. The tests read English, whoever runs them.
struct Program {
    std::string path = VELL_PROGRAM;
    std::vector<std::string> environment = {"LC_ALL=C"};
};

/// Starts the tool. Its output and errors go to files in `folder` unless `output` names another place.
inline pid_t start_vell(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                        const std::string& output = "", const Program& program = {}) {
    const pid_t child = fork();
    if (child != 0) return child;
    const std::string out = output.empty() ? folder / "stdout" : output;
    const int out_file = open(out.c_str(), O_WRONLY | O_CREAT | (output.empty() ? O_TRUNC : 0), 0666);
    const int error_file = open((folder / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(out_file, STDOUT_FILENO);
    dup2(error_file, STDERR_FILENO);
    for (const std::string& variable : program.environment)
        putenv(const_cast<char*>(variable.c_str()));
    std::vector<char*> texts;
    texts.push_back(const_cast<char*>(program.path.c_str()));
    for (const std::string& argument : arguments)
        texts.push_back(const_cast<char*>(argument.c_str()));
    texts.push_back(nullptr);
    execv(program.path.c_str(), texts.data());
    _exit(127);
}

inline RunResult await_vell(const TemporaryFolder& folder, pid_t child) {
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {code, read_whole_file(folder / "stdout"), read_whole_file(folder / "stderr"), usage.ru_maxrss};
}

inline RunResult run_vell(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                          const std::string& output = "", const Program& program = {}) {
    return await_vell(folder, start_vell(folder, arguments, output, program));
}
