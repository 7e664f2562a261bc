#include "offload/journal.h"

#include <charconv>
#include <optional>
#include <vector>

#include "offload/escaped_names.h"

namespace tool {
namespace {

constexpr std::string_view k_header = "vell-offload 1";
constexpr const char* k_verified = "verified";
constexpr const char* k_copied = "copied";

std::string check_of(std::string_view text) {
    Digester digester(DigestKind::xxh64);
    digester.add(text.data(), text.size());
    return digester.finish();
}

/// Tabs part the fields, so they are escaped too.
std::string field_of(std::string_view path) {
    std::string text;
    for (const char byte : escape_name(path))
        text += byte == '\t' ? "\\t" : std::string(1, byte);
    return text;
}

std::optional<std::string> path_of(std::string_view field) {
    std::string text;
    for (size_t i = 0; i < field.size(); ++i) {
        const bool is_pair = field[i] == '\\' && i + 1 < field.size();
        if (is_pair && field[i + 1] == 't') {
            text += '\t';
        } else {
            text += field[i];
            if (is_pair) text += field[i + 1];
        }
        if (is_pair) ++i;
    }
    return unescape_name(text);
}

std::vector<std::string_view> split(std::string_view text, char at) {
    std::vector<std::string_view> parts;
    for (size_t from = 0; from <= text.size();) {
        const size_t end = std::min(text.find(at, from), text.size());
        parts.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return parts;
}

template <typename Number>
bool read_number(std::string_view text, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool read_digests(std::string_view text, Digests& digests) {
    for (const std::string_view part : split(text, ',')) {
        const size_t equals = part.find('=');
        if (equals == std::string_view::npos) return false;
        const auto kind = digest_kind_named(part.substr(0, equals));
        if (!kind || !is_digest(part.substr(equals + 1), *kind)) return false;
        digest_of(digests, *kind) = part.substr(equals + 1);
    }
    return true;
}

std::optional<JournalEntry> parse_line(std::string_view line) {
    const size_t last = line.rfind('\t');
    if (last == std::string_view::npos || line.substr(last + 1) != check_of(line.substr(0, last))) return std::nullopt;
    const std::vector<std::string_view> fields = split(line.substr(0, last), '\t');
    JournalEntry entry;
    if (fields.size() != 6 || (fields[0] != k_verified && fields[0] != k_copied)) return std::nullopt;
    entry.is_verified = fields[0] == k_verified;
    if (!read_number(fields[1], entry.bytes) || !read_number(fields[2], entry.source_ns) ||
        !read_number(fields[3], entry.own_ns) || !read_digests(fields[4], entry.digests)) {
        return std::nullopt;
    }
    auto path = path_of(fields[5]);
    if (!path || !is_inside_path(*path)) return std::nullopt;
    entry.path = std::move(*path);
    return entry;
}

}  // namespace

std::string journal_header() {
    return std::string(k_header) + "\n";
}

std::string journal_line(const JournalEntry& entry) {
    std::string line = entry.is_verified ? k_verified : k_copied;
    line += "\t" + std::to_string(entry.bytes) + "\t" + std::to_string(entry.source_ns) + "\t" +
            std::to_string(entry.own_ns) + "\t";
    const char* separator = "";
    for (const DigestKind kind : k_digest_kinds) {
        if (digest_of(entry.digests, kind).empty()) continue;
        line += std::string(separator) + names_of(kind).option + "=" + digest_of(entry.digests, kind);
        separator = ",";
    }
    line += "\t" + field_of(entry.path);
    return line + "\t" + check_of(line) + "\n";
}

JournalEntries parse_journal(std::string_view text, size_t& bad_lines) {
    JournalEntries entries;
    bad_lines = 0;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line == k_header || line.empty()) continue;
        auto entry = end == std::string_view::npos ? std::nullopt : parse_line(line);
        if (!entry) {
            ++bad_lines;
            continue;
        }
        std::string path = entry->path;
        entries.insert_or_assign(std::move(path), std::move(*entry));
    }
    return entries;
}

}  // namespace tool
