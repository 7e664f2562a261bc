// SHA-1's block function in plain code, and the choice among block functions; for the tests and the benchmarks.
#pragma once

#include "platform/sha1_blocks.h"

namespace vell {

void sha1_take_blocks_plainly(uint32_t (&chain)[5], const unsigned char* data, size_t blocks);

}  // namespace vell
