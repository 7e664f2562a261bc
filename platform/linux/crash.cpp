// Fatal signals and the stack that they are reported on.

#include "platform/crash.h"

#include <pthread.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

namespace vell {
namespace {

// Signal numbers 4, 9, 11, 12 and 15 are the contract. 12 is a bad system call on one system and SIGUSR2 here, whose
// default action ends the process as well, so both are taken.
struct Redirection {
    int signal_number;
    void (*handler)(int);  // ours; null while not redirected
    struct sigaction previous;
};
Redirection redirections[] = {{SIGILL, nullptr, {}},  {SIGKILL, nullptr, {}}, {SIGSEGV, nullptr, {}},
                              {SIGUSR2, nullptr, {}}, {SIGTERM, nullptr, {}}, {SIGSYS, nullptr, {}}};

std::atomic<bool> crash_reported{false};
std::atomic<pthread_t> crashing_thread{};

size_t alternate_stack_bytes() noexcept {
    constexpr size_t k_report_bytes = 64 * 1024;
    const size_t smallest = getauxval(AT_MINSIGSTKSZ);
    return k_report_bytes + (smallest != 0 ? smallest : static_cast<size_t>(MINSIGSTKSZ));
}

/// Takes the stack away from the thread that ends and gives its memory back.
void release_alternate_stack(void* memory) noexcept {
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
    munmap(memory, alternate_stack_bytes());
}

struct StackKey {
    pthread_key_t key{};
    bool usable = false;
};

/// Made while the library is loaded.
const StackKey stack_key = [] {
    StackKey made;
    made.usable = pthread_key_create(&made.key, release_alternate_stack) == 0;
    return made;
}();

}  // namespace

void install_fatal_handlers(void (*handler)(int)) noexcept {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_ONSTACK;
    sigfillset(&action.sa_mask);
    for (Redirection& each : redirections) {
        struct sigaction previous {};
        if (sigaction(each.signal_number, &action, &previous) != 0 || each.handler != nullptr) continue;
        each.previous = previous;
        each.handler = handler;
    }
}

void restore_fatal_handlers() noexcept {
    for (Redirection& each : redirections) {
        if (each.handler == nullptr) continue;
        struct sigaction present {};
        if (sigaction(each.signal_number, nullptr, &present) == 0 && present.sa_handler == each.handler)
            sigaction(each.signal_number, &each.previous, nullptr);
        each.handler = nullptr;
    }
}

bool ensure_alternate_stack() noexcept {
    stack_t present{};
    if (sigaltstack(nullptr, &present) != 0) return false;
    if ((present.ss_flags & SS_DISABLE) == 0) return true;
    if (!stack_key.usable) return false;
    void* memory = mmap(nullptr, alternate_stack_bytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    stack_t fresh{};
    fresh.ss_sp = memory;
    fresh.ss_size = alternate_stack_bytes();
    if (sigaltstack(&fresh, nullptr) == 0 && pthread_setspecific(stack_key.key, memory) == 0) return true;
    release_alternate_stack(memory);
    return false;
}

bool begin_crash_report() noexcept {
    if (crash_reported.exchange(true)) return false;
    crashing_thread.store(pthread_self());
    return true;
}

bool is_reporting_crash() noexcept {
    return crash_reported.load(std::memory_order_relaxed) &&
           pthread_equal(crashing_thread.load(std::memory_order_relaxed), pthread_self()) != 0;
}

}  // namespace vell
