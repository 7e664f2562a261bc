// A line per name or sequence: size, time, name. Sizes are right-aligned, names come last and escaped, so that nothing
// in a name can take over a terminal.

#include "commands/ls.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>

#include "commands/sequence_folding.h"
#include "ui/file_names.h"
#include "ui/translation.h"
#include "vellcore/file_operations.h"

namespace tool {
namespace {

/// What one line tells: a name, or a sequence of names.
struct Line {
    const ListedName* name = nullptr;        ///< the first of a sequence's
    const FileSequence* sequence = nullptr;  ///< null for a single name
    uint64_t size = 0;
    int64_t modified_s = 0;
};

/// The files of a folder that sequences are looked for in: no links and no others.
std::vector<size_t> foldable(const std::vector<ListedName>& names) {
    std::vector<size_t> indexes;
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i].kind == ListedKind::file && !names[i].is_link) indexes.push_back(i);
    return indexes;
}

/// A sequence's members become indexes into `names`.
std::vector<FileSequence> sequences_in(const std::vector<ListedName>& names) {
    const std::vector<size_t> indexes = foldable(names);
    std::vector<std::string_view> texts;
    texts.reserve(indexes.size());
    for (const size_t index : indexes)
        texts.push_back(names[index].name);
    std::vector<FileSequence> sequences = fold_sequences(texts);
    for (FileSequence& sequence : sequences)
        for (size_t& member : sequence.members)
            member = indexes[member];
    return sequences;
}

/// One line per single name, and per sequence one at the place of its first name.
std::vector<Line> lines_of(const std::vector<ListedName>& names, const std::vector<FileSequence>& sequences) {
    std::vector<const FileSequence*> sequence_of(names.size());
    for (const FileSequence& sequence : sequences)
        for (const size_t member : sequence.members)
            sequence_of[member] = &sequence;
    std::map<const FileSequence*, size_t> line_of;
    std::vector<Line> lines;
    for (size_t i = 0; i < names.size(); ++i) {
        const FileSequence* sequence = sequence_of[i];
        const auto [at, is_new] =
            sequence != nullptr ? line_of.try_emplace(sequence, lines.size()) : std::pair(line_of.end(), true);
        if (is_new) lines.push_back({&names[i], sequence, 0, names[i].modified_s});
        Line& line = is_new ? lines.back() : lines[at->second];
        line.size += names[i].size;
        line.modified_s = std::max(line.modified_s, names[i].modified_s);
    }
    return lines;
}

const char* kind_text(const Line& line) {
    if (line.sequence != nullptr) return "sequence";
    switch (line.name->kind) {
        case ListedKind::file:
            return "file";
        case ListedKind::folder:
            return "folder";
        case ListedKind::link:
            return "link";
        case ListedKind::other:
            break;
    }
    return "other";
}

std::string path_of(const Line& line, const std::string& below) {
    return below + (line.sequence != nullptr ? line.sequence->name() : line.name->name);
}

std::string local_time_text(int64_t seconds) {
    tm parts{};
    char text[64];
    const auto time = static_cast<time_t>(seconds);
    if (localtime_r(&time, &parts) == nullptr) return "?";
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts)};
}

std::string utc_text(int64_t seconds) {
    tm parts{};
    char text[64];
    const auto time = static_cast<time_t>(seconds);
    if (gmtime_r(&time, &parts) == nullptr) return "?";
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string size_text(const Line& line) {
    char text[32] = "-";
    if (std::string_view kind = kind_text(line); kind == "file" || kind == "sequence")
        file_size_label(static_cast<float>(line.size), text, sizeof text);
    return text;
}

/// "  417 files, 1 missing" for a sequence.
std::string count_text(const Line& line) {
    if (line.sequence == nullptr) return "";
    const uint64_t missing = line.sequence->missing();
    return "  " + (missing == 0 ? formatted(tr("report", "%llu files"), number(line.sequence->members.size()))
                                : formatted(tr("report", "%llu files, %llu missing"),
                                            number(line.sequence->members.size()), number(missing)));
}

const char* mark_of(const ListedName& name) {
    if (name.kind == ListedKind::folder) return "/";
    return name.is_link ? "@" : "";
}

void print_line(const Line& line, const std::string& below) {
    const std::string name =
        printable_name(path_of(line, below)) + (line.sequence == nullptr ? mark_of(*line.name) : "");
    std::printf("%9s  %s  %s%s\n", size_text(line).c_str(), local_time_text(line.modified_s).c_str(), name.c_str(),
                count_text(line).c_str());
}

std::string json_of_sequence(const FileSequence& sequence) {
    std::string text = "," + json_name("prefix", sequence.prefix) + "," + json_name("suffix", sequence.suffix) +
                       ",\"padding\":" + std::to_string(sequence.padding) + ",\"ranges\":";
    for (const FrameRange& range : sequence.ranges)
        text += (&range == sequence.ranges.data() ? "[[" : ",[") + std::to_string(range.first) + "," +
                std::to_string(range.last) + "]";
    return text + "],\"files\":" + std::to_string(sequence.members.size()) +
           ",\"missing\":" + std::to_string(sequence.missing());
}

void print_json(const Line& line, const std::string& below) {
    std::string text = std::string("{\"type\":\"") + kind_text(line) + "\"," + json_name("path", path_of(line, below));
    if (line.sequence != nullptr) text += json_of_sequence(*line.sequence);
    if (line.name->is_link) text += ",\"link\":true";
    text += ",\"size\":" + std::to_string(line.size) + ",\"modified\":\"" + utc_text(line.modified_s) + "\"}";
    std::puts(text.c_str());
}

}  // namespace

int print_listing(const LsOptions& options) {
    bool has_shown = false;
    const bool has_read_all = for_each_folder(options, [&](const ListedFolder& folder) {
        const std::vector<FileSequence> sequences =
            options.folds ? sequences_in(folder.names) : std::vector<FileSequence>();
        for (const Line& line : lines_of(folder.names, sequences))
            options.is_json ? print_json(line, folder.below) : print_line(line, folder.below);
        has_shown = has_shown || !folder.names.empty();
    });
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw Failure{k_exit_other, tr("problem", "cannot print the listing")};
    if (!has_read_all) return k_exit_unread_folder;
    if (has_shown || options.pattern.empty()) return k_exit_done;
    throw Failure{k_exit_no_match,
                  formatted(tr("problem", "nothing matches %s"), printable_name(options.pattern).c_str())};
}

}  // namespace tool
