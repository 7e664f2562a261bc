// Reading text files whose size is not known before: the kernel's (/proc and /sys) and small ones of the desktop.
#pragma once

#include <cstddef>
#include <string>

namespace vell {

/// Reads the start of the file at `path` into `text` and terminates it there; `capacity` counts the terminator.
/// @return  the bytes read, at most capacity - 1; 0 with an empty text when the file cannot be read.
size_t read_small_file(const char* path, char* text, size_t capacity) noexcept;

/// The same for a file of one line, without its line end and the blanks before it.
size_t read_small_line(const char* path, char* text, size_t capacity) noexcept;

/// Reads an open file from where it stands to its end.
/// @return  false, with an empty text, when it cannot be read, is longer than `most_bytes` or memory is short.
bool read_whole_file(int file, size_t most_bytes, std::string& text) noexcept;

}  // namespace vell
