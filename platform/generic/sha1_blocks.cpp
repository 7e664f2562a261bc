// Processors whose instructions for SHA-1 are not used.

#include "platform/sha1_blocks.h"

namespace vell {

Sha1TakeBlocks sha1_by_instructions() noexcept {
    return nullptr;
}

}  // namespace vell
