// Standard error turned into the log file, so that what the host and its libraries write there is kept too.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "files/app_folders.h"
#include "platform/posix/file_calls.h"
#include "platform/standard_error.h"

namespace vell {

bool redirect_standard_error(const char* path) noexcept {
    constexpr mode_t k_file_mode = 0666;
    // The file is opened before standard error is touched: were it closed first and the open refused, the next file
    // of the process would get its descriptor and with it everybody's error output.
    const int file = file_calls.open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, k_file_mode);
    if (file < 0) return false;
    std::fflush(stderr);
    if (file != STDERR_FILENO) keep_standard_error();
    // Kept: children inherit descriptor 2, so their errors land in the log; every other descriptor closes on exec.
    if (file == STDERR_FILENO) return fcntl(file, F_SETFD, 0) == 0;
    const bool is_moved = dup2(file, STDERR_FILENO) == STDERR_FILENO;
    file_calls.close(file);
    if (is_moved) std::setvbuf(stderr, nullptr, _IONBF, 0);
    return is_moved;
}

}  // namespace vell
