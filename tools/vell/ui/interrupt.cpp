#include "ui/interrupt.h"

#include <csignal>

namespace tool {
namespace {

CancelFlag signal_came{false};

void remember(int) {
    signal_came.store(true, std::memory_order_relaxed);
}

}  // namespace

void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = remember;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present {};
        if (sigaction(signal_number, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) {
            sigaction(signal_number, &action, nullptr);
        }
    }
}

bool is_interrupted() {
    return signal_came.load(std::memory_order_relaxed);
}

const CancelFlag& interrupt_flag() {
    return signal_came;
}

void set_interrupted(bool is_interrupted) {
    signal_came.store(is_interrupted, std::memory_order_relaxed);
}

}  // namespace tool
