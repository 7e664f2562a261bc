// What a destination knows about the files it holds: an append-only text file, one line for each file that was copied.
//
//     vell-offload 1
//     verified<TAB>bytes<TAB>source time<TAB>own time<TAB>md5=...,xxh128=...<TAB>path<TAB>check
//
// Times are nanoseconds since 1970, the path is escaped as md5sum does (and tabs as \t), the check is the XXH64 of the
// line up to and without its last tab. A line that is torn, damaged or foreign does not count. The last line about a
// path holds.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "offload/digest.h"

namespace tool {

inline constexpr const char* k_journal_name = ".vell-offload";

struct JournalEntry {
    std::string path;
    uint64_t bytes = 0;
    int64_t source_ns = 0;  ///< the source's time of change
    int64_t own_ns = 0;     ///< the copy's, which may be coarser
    Digests digests;
    bool is_verified = false;  ///< the copy was read back
};

using JournalEntries = std::map<std::string, JournalEntry, std::less<>>;

/// The first line, and the line of one file; both with their newline.
[[nodiscard]] std::string journal_header();
[[nodiscard]] std::string journal_line(const JournalEntry& entry);

/// Reads a journal's text. `bad_lines` counts what does not count.
[[nodiscard]] JournalEntries parse_journal(std::string_view text, size_t& bad_lines);

}  // namespace tool
