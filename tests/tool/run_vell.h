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

/// Starts the tool. Its output and errors go to files in `folder` unless `output` names another place.
inline pid_t start_vell(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                        const std::string& output = "") {
    const pid_t child = fork();
    if (child != 0) return child;
    const std::string out = output.empty() ? folder / "stdout" : output;
    const int out_file = open(out.c_str(), O_WRONLY | O_CREAT | (output.empty() ? O_TRUNC : 0), 0666);
    const int error_file = open((folder / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(out_file, STDOUT_FILENO);
    dup2(error_file, STDERR_FILENO);
    setenv("LC_ALL", "C", 1);  // the tests read English, whoever runs them
    std::vector<char*> texts;
    std::string program = VELL_PROGRAM;
    texts.push_back(program.data());
    for (const std::string& argument : arguments)
        texts.push_back(const_cast<char*>(argument.c_str()));
    texts.push_back(nullptr);
    execv(VELL_PROGRAM, texts.data());
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
                          const std::string& output = "") {
    return await_vell(folder, start_vell(folder, arguments, output));
}
