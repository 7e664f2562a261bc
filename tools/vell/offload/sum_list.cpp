#include "offload/sum_list.h"

#include <algorithm>
#include <map>

#include "offload/escaped_names.h"

namespace tool {
namespace {

bool is_xxhash(DigestKind kind) {
    return kind == DigestKind::xxh64 || kind == DigestKind::xxh3 || kind == DigestKind::xxh128;
}

bool needs_escape(DigestKind kind, std::string_view path) {
    return path.find_first_of(is_xxhash(kind) ? "\n" : "\\\n\r") != std::string_view::npos;
}

std::string lower_case(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower;
}

bool is_some_digest(std::string_view text) {
    return std::any_of(std::begin(k_digest_kinds), std::end(k_digest_kinds),
                       [text](DigestKind kind) { return is_digest(text, kind); });
}

std::optional<SumLine> with_path(std::string digest, std::string_view path, bool is_escaped,
                                 std::optional<DigestKind> kind) {
    if (path.empty()) return std::nullopt;
    if (!is_escaped) return SumLine{std::move(digest), std::string(path), kind};
    auto plain = unescape_name(path);
    if (!plain) return std::nullopt;
    return SumLine{std::move(digest), std::move(*plain), kind};
}

/// "MD5 (path) = digest"
std::optional<SumLine> parse_tagged(std::string_view line, bool is_escaped) {
    for (const DigestKind kind : k_digest_kinds) {
        const std::string start = std::string(names_of(kind).tag) + " (";
        const size_t close = line.rfind(") = ");
        if (!line.starts_with(start) || close == std::string_view::npos || close < start.size()) continue;
        std::string digest = lower_case(line.substr(close + 4));
        if (!is_digest(digest, kind)) return std::nullopt;
        return with_path(std::move(digest), line.substr(start.size(), close - start.size()), is_escaped, kind);
    }
    return std::nullopt;
}

}  // namespace

std::string format_sum_line(DigestKind kind, std::string_view digest, std::string_view path) {
    const bool escapes = needs_escape(kind, path);
    if (kind == DigestKind::xxh3) return escapes ? "" : format_tagged_line(kind, digest, path);
    return (escapes ? "\\" : "") + std::string(digest) + "  " + (escapes ? escape_name(path) : std::string(path)) +
           "\n";
}

std::string format_tagged_line(DigestKind kind, std::string_view digest, std::string_view path) {
    const bool escapes = needs_escape(kind, path);
    return (escapes ? "\\" : "") + std::string(names_of(kind).tag) + " (" +
           (escapes ? escape_name(path) : std::string(path)) + ") = " + std::string(digest) + "\n";
}

std::optional<SumLine> parse_sum_line(std::string_view line) {
    const bool is_escaped = line.starts_with('\\');
    if (is_escaped) line.remove_prefix(1);
    const size_t blank = line.find(' ');
    if (blank == std::string_view::npos || blank + 2 > line.size()) return std::nullopt;
    std::string digest = lower_case(line.substr(0, blank));
    const char kind_mark = line[blank + 1];
    if (!is_some_digest(digest) || (kind_mark != ' ' && kind_mark != '*')) return parse_tagged(line, is_escaped);
    return with_path(std::move(digest), line.substr(blank + 2), is_escaped, std::nullopt);
}

std::string merge_sum_lists(DigestKind kind, std::string_view old_text, const std::vector<SumLine>& added) {
    std::string text;
    std::map<std::string, std::string> digests;  // by path
    while (!old_text.empty()) {
        const size_t end = std::min(old_text.find('\n'), old_text.size());
        const std::string_view line = old_text.substr(0, end);
        old_text.remove_prefix(std::min(end + 1, old_text.size()));
        const auto parsed = parse_sum_line(line);
        if (parsed && is_digest(parsed->digest, kind)) {
            digests.insert_or_assign(parsed->path, parsed->digest);
        } else {
            text += std::string(line) + "\n";
        }
    }
    for (const SumLine& line : added) {
        if (line.digest.empty()) {
            digests.erase(line.path);
        } else {
            digests.insert_or_assign(line.path, line.digest);
        }
    }
    for (const auto& [path, digest] : digests)
        text += format_sum_line(kind, digest, path);
    return text;
}

std::optional<DigestKind> list_kind(std::string_view list_name, std::string_view digest) {
    const std::string name = lower_case(list_name);
    std::optional<DigestKind> only;
    size_t fitting = 0;
    for (const DigestKind kind : k_digest_kinds) {
        if (!is_digest(digest, kind)) continue;
        const bool is_named = name.find(names_of(kind).option) != std::string::npos;
        // "xxh3" is in no other's name, "md5" neither.
        if (is_named) return kind;
        only = kind;
        ++fitting;
    }
    // 32 digits are MD5 far more often than XXH128, 16 are XXH64.
    if (fitting > 1) return digest.size() == names_of(DigestKind::md5).digits ? DigestKind::md5 : DigestKind::xxh64;
    return only;
}

}  // namespace tool
