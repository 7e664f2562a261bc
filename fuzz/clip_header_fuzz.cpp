// Clip headers and frame lines: what is understood must survive being written and read again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "clip/y4m_format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view line(reinterpret_cast<const char*>(data), size);
    line = line.substr(0, line.find('\n'));
    std::string problem;
    if (const auto format = tool::parse_clip_header(line, problem)) {
        const std::string written = tool::format_clip_header(*format);
        std::string_view header = written;
        while (!header.empty() && header.back() == '\n')
            header.remove_suffix(1);
        const auto again = tool::parse_clip_header(header, problem);
        if (!again || again->frame_bytes() != format->frame_bytes()) std::abort();
        if (tool::format_clip_header(*again) != written) std::abort();
    } else if (problem.empty()) {
        std::abort();  // A refusal says why.
    }
    static_cast<void>(tool::parse_frame_line(line));
    return 0;
}
