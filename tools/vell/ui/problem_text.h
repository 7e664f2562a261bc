// The words for what went wrong in an offload, a verification or while hashing.
#pragma once

#include <string>

#include "offload/problem.h"
#include "ui/failure.h"

namespace tool {

[[nodiscard]] std::string problem_text(const Problem& problem);

/// "a symbolic link": what a file of that mode is called.
[[nodiscard]] const char* kind_text(mode_t mode);

/// The message and the exit code of a job that could not begin.
[[nodiscard]] Failure failure_of(const JobRefused& refused);

}  // namespace tool
