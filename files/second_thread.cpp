// The helper thread: no signal handler of the host's runs on it, faults excepted.

#include "files/second_thread.h"

#include <thread>

#include "platform/crash.h"
#include "platform/posix/file_calls.h"
#include "platform/posix/signals_blocked.h"
#include "platform/thread_name.h"

namespace vell {

SecondThread::SecondThread(void (*work)(void*), void* context) noexcept : work_(work), context_(context) {
    static const bool has_processors = std::thread::hardware_concurrency() > 1;
    if (!has_processors) return;
    const SignalsBlocked signals_blocked;
    is_running_ = file_calls.create_thread(&thread_, nullptr, run, this) == 0;
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
