// The option --hash.
#pragma once

#include <string>
#include <vector>

#include "offload/digest.h"

namespace tool {

/// Reads the values of --hash: names, several with commas between. No values: `otherwise`.
/// Throws Failure for a name that is none.
[[nodiscard]] DigestSet parse_digest_set(const std::vector<std::string>& values, DigestSet otherwise);

}  // namespace tool
