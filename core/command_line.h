// What the host's command line asks of the library: a pure function of the arguments.
#pragma once

#include <cstdint>

namespace vell {

/// What the switches of a command line say.
struct CommandLine {
    uint32_t debug_count = 0;  // letters that raise the log's level
    int32_t processors = 0;    // processing threads asked for; 0 or less = one per core
};

/// Reads the switches after argument 0. Letters after a "-" are read from left to right: "d" counts one debug level
/// and reading goes on; "p" takes a number (the rest of the argument, or else the next argument) and ends the
/// argument; any other character ends it. The letters are accepted in both cases; a later number replaces an earlier
/// one.
[[nodiscard]] CommandLine parse_command_line(int32_t argument_count, const char* const* argument_vector) noexcept;

}  // namespace vell
