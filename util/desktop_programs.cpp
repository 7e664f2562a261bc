// Programs that the host starts beside itself. Those that nobody waits for are remembered and reaped when the next one
// starts, under `children_lock`.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/posix/file_calls.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/message_log.h"
#include "vellcore/vector.h"

namespace vell {
namespace {

constexpr int k_unknown_status = -1;
constexpr uint32_t k_signal_bit = 0x80000000;

Mutex children_lock;
constinit Immortal<vl_vector<pid_t>> children;  // started and not waited for

/// In a forked child they are nobody's children: only their parent can wait for them.
const ForkEntry fork_entry(ForkOrder::children, children_lock, []() noexcept { children.value.release(); });

pid_t wait_for(pid_t child, int& status, int options) noexcept {
    pid_t ended = 0;
    while ((ended = waitpid(child, &status, options)) < 0 && errno == EINTR) {
    }
    return ended;
}

void reap_children() noexcept {
    const ScopedLock lock(children_lock);
    for (uint32_t i = children.value.count(); i-- > 0;) {
        int ignored = 0;
        if (wait_for(children.value[i], ignored, WNOHANG) != 0) children.value.remove(i);
    }
}

void remember(pid_t child) noexcept {
    const ScopedLock lock(children_lock);
    children.value.append(child);
}

/// The exit code, the signal with bit 31 set, or all ones.
int read_status(int status) noexcept {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return static_cast<int>(k_signal_bit | static_cast<uint32_t>(WTERMSIG(status)));
    return k_unknown_status;
}

int start(pid_t& child, const char* executable, char* const* arguments) noexcept {
    if (executable == nullptr || arguments == nullptr) return EINVAL;
    return file_calls.spawn(&child, executable, nullptr, nullptr, arguments, environ);
}

}  // namespace
}  // namespace vell

bool cocoa_run_executable_with_args(const char* executable, char* const* argument_vector, int32_t wait,
                                    int32_t* status) noexcept {
    const vell::CancelShield shield;
    vell::reap_children();
    if (status != nullptr) *status = 0;
    pid_t child = 0;
    const int error = vell::start(child, executable, argument_vector);
    if (error != 0) {
        msgwarn("Failed to start '%s' - %d", executable != nullptr ? executable : "", error);
        if (status != nullptr) *status = vell::k_unknown_status;
        return false;
    }
    if (wait == 0) {
        vell::remember(child);
        return true;
    }
    int word = 0;
    const bool is_told = vell::wait_for(child, word, 0) == child;
    if (status != nullptr) *status = is_told ? vell::read_status(word) : vell::k_unknown_status;
    return true;
}

bool cocoa_open_file_with_executable(const char* executable, const char* first, const char* second,
                                     uint32_t wait) noexcept {
    // The system takes the texts as constant although its type does not say so.
    char* const arguments[] = {const_cast<char*>(executable), const_cast<char*>(first), const_cast<char*>(second),
                               nullptr};
    return cocoa_run_executable_with_args(executable, arguments, wait != 0 ? 1 : 0, nullptr);
}
