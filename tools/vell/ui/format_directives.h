// What a format string expects.
#pragma once

namespace tool {

/// True when printf takes the same arguments for both formats. A translation may name them by number: "%2$s".
[[nodiscard]] bool take_same_arguments(const char* format, const char* translation);

}  // namespace tool
