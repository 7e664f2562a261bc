// What goes wrong in the tool. Each command documents exit codes of its own beside these.
#pragma once

#include <string>

namespace tool {

// Exit codes that every command has.
inline constexpr int k_exit_done = 0;
inline constexpr int k_exit_other = 1;         ///< something that has no code of its own
inline constexpr int k_exit_command_line = 2;  ///< a command line that cannot be carried out

// Exit codes of offload, verify and hash. What comes first holds: 4, 3, 5, 1.
inline constexpr int k_exit_incomplete = 1;   ///< some files failed
inline constexpr int k_exit_interrupted = 3;  ///< the same command again goes on
inline constexpr int k_exit_mismatch = 4;     ///< a copy differs from its source or from what is on record
inline constexpr int k_exit_no_space = 5;

/// Thrown inside the tool and turned into a message and an exit code by main.
struct Failure {
    int code;
    std::string message;  ///< what, which file, where
};

}  // namespace tool
