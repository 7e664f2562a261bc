#include "platform/standard_error.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

namespace vell {
namespace {

constexpr int k_first_own_descriptor = 3;  // past the standard streams
constexpr int k_not_kept = -2;

std::atomic<int> kept{k_not_kept};

}  // namespace

void keep_standard_error() noexcept {
    if (kept.load() != k_not_kept) return;
    kept.store(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, k_first_own_descriptor));
}

int original_standard_error() noexcept {
    const int descriptor = kept.load(std::memory_order_relaxed);
    return descriptor == k_not_kept ? STDERR_FILENO : descriptor;
}

}  // namespace vell
