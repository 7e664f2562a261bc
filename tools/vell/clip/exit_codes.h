// The exit codes of the commands on clips, beside those in failure.h.
#pragma once

#include "ui/failure.h"

namespace tool {

inline constexpr int k_exit_unreadable = 3;  ///< the input cannot be opened or read
inline constexpr int k_exit_bad_header = 4;  ///< the input is no YUV4MPEG2 clip, or one of a kind that is not supported
inline constexpr int k_exit_truncated = 5;   ///< the clip ends inside its header or a frame
inline constexpr int k_exit_unwritable = 6;  ///< the output cannot be made or written, a full disk for instance
inline constexpr int k_exit_small_heap = 7;  ///< --heap does not hold one frame with what its processing needs

}  // namespace tool
