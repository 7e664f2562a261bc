// SHA-1 with the SHA extensions, for processors that have them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

void sha1_take_blocks_by_extension(uint32_t (&chain)[5], const unsigned char* data, size_t blocks);

}  // namespace vell
