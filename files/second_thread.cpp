// The helper thread: no signal handler of the host's runs on it, faults excepted.

#include "files/second_thread.h"

#include <csignal>
#include <initializer_list>
#include <thread>

#include "platform/crash.h"
#include "platform/posix/file_calls.h"
#include "platform/thread_name.h"

namespace vell {

SecondThread::SecondThread(void (*work)(void*), void* context) noexcept : work_(work), context_(context) {
    static const bool has_processors = std::thread::hardware_concurrency() > 1;
    if (!has_processors) return;
    sigset_t blocked;
    sigset_t previous;
    sigfillset(&blocked);
    for (const int fault : {SIGILL, SIGSEGV, SIGBUS, SIGFPE, SIGSYS, SIGTRAP})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    is_running_ = file_calls.create_thread(&thread_, nullptr, run, this) == 0;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

SecondThread::~SecondThread() {
    if (is_running_) pthread_join(thread_, nullptr);
}

void* SecondThread::run(void* self) {
    const auto* mine = static_cast<SecondThread*>(self);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    set_system_thread_name("VL-Files");
    ensure_alternate_stack();
    mine->work_(mine->context_);
    return nullptr;
}

}  // namespace vell
