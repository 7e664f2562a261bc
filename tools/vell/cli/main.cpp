// vell: the library's command line. Starts and stops the library around the command that was asked for.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli/arguments.h"
#include "ui/failure.h"
#include "ui/translation.h"
#include "vellcore/processing_pool.h"
#include "vellcore/startup.h"

namespace {

class Library {
public:
    Library(const std::string& program, const tool::Invocation& invocation) {
        const mode_t callers_mask = umask(0);
        vl_fast_initialize(program.empty() ? nullptr : program.c_str(), invocation.needs.heap_set);
        umask(callers_mask);
        if (invocation.needs.processing_pool) smp_initialize(static_cast<int>(invocation.threads));
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

int run(int argc, char** argv) {
    const std::string program = program_path(argv[0]);
    tool::choose_language(program);
    tool::Invocation invocation;
    int exit_code = tool::k_exit_done;
    if (!tool::parse_command_line(argc, argv, invocation, exit_code)) return exit_code;
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is told of by the write
    const Library library(program, invocation);
    return invocation.command();
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
