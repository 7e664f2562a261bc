// Reading the kernel's small text files (/proc and /sys).
#pragma once

#include <cstddef>

namespace vell {

/// Reads the start of the file at `path` into `text` and terminates it there; `capacity` counts the terminator.
/// @return  the bytes read, at most capacity - 1; 0 with an empty text when the file cannot be read.
size_t read_small_file(const char* path, char* text, size_t capacity) noexcept;

/// The same for a file of one line, without its line end and the blanks before it.
size_t read_small_line(const char* path, char* text, size_t capacity) noexcept;

}  // namespace vell
