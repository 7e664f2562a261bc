// The signals that a thread of the library's starts with.
#pragma once

#include <pthread.h>

#include <csignal>
#include <initializer_list>

namespace vell {

/// While it lives, the calling thread blocks what a thread that it starts is to block: the host's signal handlers
/// belong on the host's threads. A fault is the thread's own: blocked, it would end the process without a crash report.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGILL, SIGSEGV, SIGBUS, SIGFPE, SIGSYS, SIGTRAP})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &previous_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t previous_{};
};

}  // namespace vell
