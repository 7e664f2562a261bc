// The crash report, and what leads to it. Runs on whichever thread received the signal.

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/crash_report.h"
#include "platform/crash.h"
#include "vellcore/message_log.h"
#include "vellcore/startup.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

#define VELL_CRASH_STARS "********************************************************"

std::atomic<pthread_t> starting_thread{};

/// The calling thread's name; the one that started the library is not in the thread table and is called "VL-Main".
const char* name_for_report() noexcept {
    const char* name = mp_get_thread_name();
    const bool is_starter = pthread_equal(starting_thread.load(), pthread_self()) != 0;
    return is_starter && std::strcmp(name, "Unknown") == 0 ? "VL-Main" : name;
}

/// Lets the thread whose report is under way finish it; its abort ends the process.
void wait_for_first_report() noexcept {
    const timespec second{.tv_sec = 1, .tv_nsec = 0};
    nanosleep(&second, nullptr);
}

}  // namespace

void remember_starting_thread() noexcept {
    starting_thread.store(pthread_self());
}

}  // namespace vell

int32_t vellExceptionFilter(int32_t code, void*) noexcept {
    const char* thread_name = vell::name_for_report();
    msgerror(VELL_CRASH_STARS);
    msgcont("Fatal Error, Exception: 0x%08x, Thread: %s", static_cast<unsigned>(code), thread_name);
    msgcont(VELL_CRASH_STARS);
    msgcont("%s", "");
    return 0;
}

void sig_handler(int signal_number) noexcept {
    if (vell::begin_crash_report()) {
        vellExceptionFilter(signal_number, nullptr);
    } else if (!vell::is_reporting_crash()) {
        vell::wait_for_first_report();
    }
    // The handlers stay: another thread's crash must wait above and not end the process its own way.
    std::abort();
}
