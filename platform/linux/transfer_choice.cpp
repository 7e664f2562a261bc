// Which back end carries the transfers of files.

#include <cstdlib>
#include <cstring>

#include "platform/first_use.h"
#include "platform/transfer_backend.h"

namespace vell {
namespace {

const TransferBackend& choose() noexcept {
    const char* wanted = std::getenv("VELLCORE_AIO");
    const bool is_ring_wanted = wanted != nullptr && std::strcmp(wanted, "uring") == 0;
    const TransferBackend* ring = is_ring_wanted ? ring_backend() : nullptr;
    return ring != nullptr ? *ring : threads_backend;
}

}  // namespace

const TransferBackend& preferred_backend() noexcept {
    static constinit FirstUse choice;
    static constinit const TransferBackend* chosen = &threads_backend;
    choice.run([] { chosen = &choose(); });
    return *chosen;
}

}  // namespace vell
