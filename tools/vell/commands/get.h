// Downloading a file over HTTP: what was cut goes on, what is there is whole.
#pragma once

#include <cstdint>
#include <string>

#include "offload/digest.h"
#include "ui/failure.h"

namespace tool {

// Exit codes, beside those in failure.h; they mean what offload's do.
inline constexpr int k_exit_get_interrupted = 3;  ///< the same command goes on
inline constexpr int k_exit_get_mismatch = 4;     ///< a digest is another than wanted
inline constexpr int k_exit_get_no_space = 5;

struct GetOptions {
    std::string url;
    std::string path;
    Digests digests;  ///< wanted; empty ones are not compared
    uint32_t timeout_seconds = 60;
    bool overwrites = false;
    bool is_quiet = false;
    bool is_json = false;
};

/// Downloads options.url to options.path. @return the exit code; throws Failure when nothing was begun.
[[nodiscard]] int get(const GetOptions& options);

}  // namespace tool
