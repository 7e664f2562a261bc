// Command lines: arguments separated by zero bytes.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/command_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::vector<const char*> arguments;
    for (size_t at = 0; at < bytes.size(); at += std::char_traits<char>::length(bytes.c_str() + at) + 1)
        arguments.push_back(bytes.c_str() + at);
    static_cast<void>(vell::parse_command_line(static_cast<int32_t>(arguments.size()), arguments.data()));
    return 0;
}
