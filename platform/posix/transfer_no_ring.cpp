// For systems and builds without submission rings.

#include "platform/transfer_backend.h"

namespace vell {

const TransferBackend* ring_backend() noexcept {
    return nullptr;
}

}  // namespace vell
