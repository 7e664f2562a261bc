// SHA-1 by instructions of the processor.
//
// To port: a processor family that has such instructions answers with a function that uses them, after asking the
// processor (x86_64/); one without answers null (generic/).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vell {

/// Takes `blocks` whole blocks of 64 bytes into the chaining value.
using Sha1TakeBlocks = void (*)(uint32_t (&chain)[5], const unsigned char* data, size_t blocks);

/// The function for this processor; null when it has no such instructions.
[[nodiscard]] Sha1TakeBlocks sha1_by_instructions() noexcept;

}  // namespace vell
