// Child processes. No state: a child is known only to the call that started it.

#include "vellcore/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/file_calls.h"
#include "vellcore/message_log.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

constexpr int64_t k_ns_per_ms = 1'000'000;

/// Starts the program. @return 0, or the system's error number.
int start(pid_t& child, const char* program, char* const* arguments) noexcept {
    if (program == nullptr || arguments == nullptr) return EINVAL;
    return file_calls.spawn(&child, program, nullptr, nullptr, arguments, environ);
}

/// Reads the system's status word: the low seven bits are the signal, 0 for an exit and all ones for a stop.
void read_status(int status, ProcessResultStruct& result) noexcept {
    if (WIFSIGNALED(status)) {
        result.signalled = true;
        result.signal = WTERMSIG(status);
        result.exit_code = result.signal + 128;
    } else if (WIFEXITED(status)) {
        result.exited = true;
        result.exit_code = WEXITSTATUS(status);
    }
}

}  // namespace
}  // namespace vell

bool SpawnAndLoopUntilFinished(const char* program, char* const* argument_vector, bool wait, void (*callback)(void*),
                               void* callback_argument, ProcessResultStruct& result, int32_t interval_milliseconds) {
    result = {false, -1, false, false, 0};
    pid_t child = 0;
    const int error = vell::start(child, program, argument_vector);
    if (error != 0) {
        errno = error;
        msgerror("_spawnvp failed (%s)", os_errormsg());
        return false;
    }
    result.started = true;
    if (!wait) return true;
    int status = 0;
    for (pid_t ended = 0; (ended = waitpid(child, &status, WNOHANG)) != child; status = 0) {
        if (ended != 0) {
            msgerror("_spawnvp waitpid failed (%s)", os_errormsg());
            return false;
        }
        if (callback != nullptr) callback(callback_argument);
        if (interval_milliseconds > 0) mp_timedwait(interval_milliseconds * vell::k_ns_per_ms);
    }
    vell::read_status(status, result);
    return true;
}
