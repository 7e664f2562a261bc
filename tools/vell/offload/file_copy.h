// One file from its source to all destinations, read once.
#pragma once

#include <sys/types.h>

#include <vector>

#include "offload/copy_target.h"

namespace tool {

struct SourceRoot {
    std::string path;  ///< as it was given
    Descriptor folder;
};

/// Copies `file` and has every target ready to settle, failed, or abandoned when the work is interrupted. `targets`
/// did not begin yet. @return the source's digests; `file` becomes what the open source really is.
[[nodiscard]] Digests copy_to_targets(const SourceRoot& source, FileEntry& file, const DigestSet& digests,
                                      const CancelFlag& cancel,
                                      const std::vector<std::unique_ptr<CopyTarget>>& targets);

/// True for files that are copied by one thread alone.
[[nodiscard]] constexpr bool is_small(uint64_t bytes) {
    return bytes <= k_block_bytes;
}

}  // namespace tool
