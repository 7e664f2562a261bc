// vell doctor

#include <memory>

#include "cli/arguments.h"
#include "commands/doctor.h"
#include "ui/failure.h"
#include "ui/translation.h"

namespace tool {

void describe_doctor(Arguments& program) {
    const auto path = std::make_shared<std::string>(".");
    Arguments doctor = program.command("doctor", tr("help", "print what the library found on this machine and chose"));
    doctor.footer(tr("help", "Exit codes:\n  0  done\n  1  the answer cannot be printed\n  2  wrong command line"));
    doctor.optional_value("PATH", *path, tr("help", "file or folder to ask about uncached transfers (default: .)"));
    const auto run = [path] {
        print_diagnosis(*path);
        return k_exit_done;
    };
    doctor.run(run, {.heap_set = true, .processing_pool = true});
}

}  // namespace tool
