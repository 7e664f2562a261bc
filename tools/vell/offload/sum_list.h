// Lists of digests in the form of md5sum, sha1sum and xxhsum, one file a line:
//
//     <digest>  <path>              what all of them write; "<digest> *<path>" is read as well
//     \<digest>  <escaped path>     a path with a backslash, a newline or a carriage return in MD5SUMS and SHA1SUMS; in
//                                   the XXH lists only one with a newline, since xxhsum 0.8.1 takes backslashes as they
//                                   are (and passes over the escaped line with a warning)
//     XXH3 (<path>) = <digest>      in XXH3SUMS: xxhsum knows that digest only by its name, and has no way to write
//                                   a path with a newline there, so those are not in that list
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "offload/digest.h"

namespace tool {

struct SumLine {
    std::string digest;
    std::string path;
    std::optional<DigestKind> kind;  ///< when the line names it
};

/// One line, with its newline; empty for what the list cannot express.
[[nodiscard]] std::string format_sum_line(DigestKind kind, std::string_view digest, std::string_view path);
/// The same in the form that names the digest: "MD5 (path) = digest".
[[nodiscard]] std::string format_tagged_line(DigestKind kind, std::string_view digest, std::string_view path);
/// Reads a line without its newline. Nothing for what is none.
[[nodiscard]] std::optional<SumLine> parse_sum_line(std::string_view line);

/// The list's text with the new lines in place of those of the same paths, sorted by path; a new line without a digest
/// takes an old one away. Lines that are none stay at the top.
[[nodiscard]] std::string merge_sum_lists(DigestKind kind, std::string_view old_text,
                                          const std::vector<SumLine>& added);

/// The kind that a list's name tells ("MD5SUMS", "card.md5"), or else the only one that fits the digest's length.
[[nodiscard]] std::optional<DigestKind> list_kind(std::string_view list_name, std::string_view digest);

}  // namespace tool
