// What goes wrong in the tool. Each command documents exit codes of its own beside these.
#pragma once

#include <string>

namespace tool {

// Exit codes that every command has.
inline constexpr int k_exit_done = 0;
inline constexpr int k_exit_other = 1;         ///< something that has no code of its own
inline constexpr int k_exit_command_line = 2;  ///< a command line that cannot be carried out

/// Thrown inside the tool and turned into a message and an exit code by main.
struct Failure {
    int code;
    std::string message;  ///< what, which file, where
};

}  // namespace tool
