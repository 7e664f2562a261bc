// The helper thread: no signal handler of the host's runs on it, faults excepted.

#include "files/second_thread.h"

#include <thread>

#include "platform/posix/file_calls.h"
#include "platform/posix/signals_blocked.h"
#include "platform/thread_identity.h"

namespace vell {

SecondThread::SecondThread(void (*work)(void*), void* context) noexcept : work_(work), context_(context) {
    if (std::thread::hardware_concurrency() < 2) return;
    const SignalsBlocked signals_blocked;
    is_running_ = file_calls.create_thread(&thread_, nullptr, run, this) == 0;
}

SecondThread::~SecondThread() {
    if (is_running_) pthread_join(thread_, nullptr);
}

void* SecondThread::run(void* self) {
    const auto* mine = static_cast<SecondThread*>(self);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    identify_thread("VL-Files");
    mine->work_(mine->context_);
    return nullptr;
}

}  // namespace vell
