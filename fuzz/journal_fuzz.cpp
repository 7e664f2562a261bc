// Journals: whatever stands in one, no path leads outside, and what counts survives being written and read again.

#include "offload/journal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "offload/escaped_names.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void check(const std::string& text) {
    size_t bad_lines = 0;
    const tool::JournalEntries entries = tool::parse_journal(text, bad_lines);
    std::string again = tool::journal_header();
    for (const auto& [path, entry] : entries) {
        if (path != entry.path || !tool::is_inside_path(path)) std::abort();
        again += tool::journal_line(entry);
    }
    const tool::JournalEntries read = tool::parse_journal(again, bad_lines);
    if (bad_lines != 0 || read.size() != entries.size()) std::abort();
    for (const auto& [path, entry] : read) {
        const auto before = entries.find(path);
        if (before == entries.end() || before->second.digests != entry.digests) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    check(text);
    // Random bytes do not hit the check at a line's end, so it is added to one of them.
    const std::string line = text.substr(0, text.find('\n'));
    tool::Digester digester(tool::DigestKind::xxh64);
    digester.add(line.data(), line.size());
    check(line + "\t" + digester.finish() + "\n" + text);
    return 0;
}
