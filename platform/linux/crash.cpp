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
constexpr int k_fatal_signals[] = {SIGILL, SIGKILL, SIGSEGV, SIGUSR2, SIGTERM, SIGSYS};

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

const StackKey& stack_key() noexcept {
    static const StackKey made = [] {
        StackKey fresh;
        fresh.usable = pthread_key_create(&fresh.key, release_alternate_stack) == 0;
        return fresh;
    }();
    return made;
}

}  // namespace

void install_fatal_handlers(void (*handler)(int)) noexcept {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int signal_number : k_fatal_signals)
        sigaction(signal_number, &action, nullptr);
}

void ensure_alternate_stack() noexcept {
    stack_t present{};
    if (sigaltstack(nullptr, &present) != 0 || (present.ss_flags & SS_DISABLE) == 0) return;
    const StackKey& owner = stack_key();
    if (!owner.usable) return;
    void* memory = mmap(nullptr, alternate_stack_bytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    stack_t fresh{};
    fresh.ss_sp = memory;
    fresh.ss_size = alternate_stack_bytes();
    if (sigaltstack(&fresh, nullptr) != 0 || pthread_setspecific(owner.key, memory) != 0)
        release_alternate_stack(memory);
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
