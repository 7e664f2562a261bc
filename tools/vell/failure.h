// What goes wrong in the tool, and the exit codes that scripts see.
#pragma once

#include <string>

namespace tool {

enum ExitCode : int {
    k_exit_done = 0,
    k_exit_other = 1,         ///< something that has no code of its own
    k_exit_command_line = 2,  ///< options, or input and output being the same file
    k_exit_unreadable = 3,    ///< the input cannot be opened or read
    k_exit_bad_header = 4,    ///< the input is no YUV4MPEG2 clip, or one of a kind that is not supported
    k_exit_truncated = 5,     ///< the clip ends inside its header or a frame
    k_exit_unwritable = 6,    ///< the output cannot be made or written, a full disk for instance
    k_exit_small_heap = 7,    ///< --heap does not hold one frame with what its processing needs
};

/// Thrown inside the tool and turned into a message and an exit code by main.
struct Failure {
    ExitCode code;
    std::string message;  ///< what, which file, where
};

}  // namespace tool
