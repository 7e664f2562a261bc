// What the library found on this machine and chose.
#pragma once

#include <string>

namespace tool {

/// Prints it; `path` is the file or folder that uncached transfers are asked about.
void print_diagnosis(const std::string& path);

}  // namespace tool
