// Lists of digests: every line that is understood survives being written and read again, and merging keeps it.

#include "offload/sum_list.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const tool::DigestKind kind : tool::k_digest_kinds) {
        const std::string merged = tool::merge_sum_lists(kind, text, {});
        if (kind != tool::DigestKind::xxh3 && tool::merge_sum_lists(kind, merged, {}) != merged) std::abort();
    }
    const std::string_view line = std::string_view(text).substr(0, text.find('\n'));
    const auto parsed = tool::parse_sum_line(line);
    if (!parsed) return 0;
    const auto kind = parsed->kind ? parsed->kind : tool::list_kind("", parsed->digest);
    if (!kind || !tool::is_digest(parsed->digest, *kind)) std::abort();
    for (std::string again : {tool::format_sum_line(*kind, parsed->digest, parsed->path),
                              tool::format_tagged_line(*kind, parsed->digest, parsed->path)}) {
        if (again.empty()) continue;  // what a list cannot express
        again.pop_back();
        const auto read = tool::parse_sum_line(again);
        if (!read || read->path != parsed->path || read->digest != parsed->digest) std::abort();
    }
    return 0;
}
