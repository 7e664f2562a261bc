// Small files read and replaced as a whole.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace tool {

/// Answers are 0 or the system's error number. Links are not followed.
[[nodiscard]] int read_whole_file_at(int folder, const char* name, std::string& text);
/// The file is either as it was or whole and on disk, also after a power cut. A new one gets 0666 without `mask`.
[[nodiscard]] int write_whole_file_at(int folder, const char* name, std::string_view text, mode_t mask);

}  // namespace tool
