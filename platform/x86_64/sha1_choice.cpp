// Whether this processor has the SHA extensions.

#include <cpuid.h>

#include "platform/sha1_blocks.h"
#include "platform/x86_64/sha1_blocks.h"

namespace vell {

Sha1TakeBlocks sha1_by_instructions() noexcept {
    constexpr unsigned k_sha_bit = 1U << 29;  // leaf 7, EBX; such a processor has SSE 4.1 too
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0 || (ebx & k_sha_bit) == 0) return nullptr;
    return sha1_take_blocks_by_extension;
}

}  // namespace vell
