// Results and JSON go to the standard output, problems to the standard error.

#include "ui/offload_report.h"

#include <algorithm>
#include <cstdio>

#include "ui/byte_size.h"
#include "ui/file_names.h"
#include "ui/problem_text.h"
#include "ui/text_columns.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr double k_megabyte = 1e6;
constexpr Outcome k_outcomes[] = {Outcome::verified, Outcome::copied, Outcome::skipped, Outcome::failed};

/// The word for it in JSON; what people read is tr("report", word_for(outcome)).
const char* word_for(Outcome outcome) {
    constexpr const char* k_names[] = {marked("report", "verified"), marked("report", "copied"),
                                       marked("report", "skipped"), marked("report", "failed")};
    return k_names[static_cast<int>(outcome)];
}

std::string json_number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

std::string json_field(const char* key, uint64_t value) {
    return ",\"" + std::string(key) + "\":" + std::to_string(value);
}

std::string digest_fields(const Digests& digests) {
    std::string text;
    for (const DigestKind kind : k_digest_kinds) {
        if (!digest_of(digests, kind).empty()) {
            text += ",\"" + std::string(names_of(kind).option) + "\":\"" + digest_of(digests, kind) + "\"";
        }
    }
    return text;
}

std::string count_text(Outcome outcome, uint64_t count) {
    switch (outcome) {
        case Outcome::verified:
            return formatted(tr("report", "%llu verified"), number(count));
        case Outcome::copied:
            return formatted(tr("report", "%llu copied (not read back)"), number(count));
        case Outcome::skipped:
            return formatted(tr("report", "%llu skipped"), number(count));
        case Outcome::failed:
            break;
    }
    return formatted(tr("report", "%llu failed"), number(count));
}

/// A word at the start of a line. Those that lines begin with are as wide as the widest of them.
std::string word_text(const char* word) {
    const size_t columns = widest_of({tr("report", "verified"), tr("report", "copied"), tr("report", "skipped"),
                                      tr("report", "failed"), tr("report", "left out")});
    return padded(word, columns);
}

std::string dropped_text(const Destination& destination) {
    return formatted(tr("report", "dropped: %s"), problem_text(destination.drop_reason()).c_str());
}

Screen::Style style_of(const OffloadCommand& command) {
    if (command.is_json) return Screen::Style::repeated;
    return command.is_quiet ? Screen::Style::none : Screen::style_for_terminal();
}

}  // namespace

OffloadReport::OffloadReport(const OffloadCommand& command, const OffloadPlan& plan)
    : command_(command),
      plan_(plan),
      start_(std::chrono::steady_clock::now()),
      screen_(style_of(command), [this] { return picture(); }) {}

double OffloadReport::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

std::string OffloadReport::start_event() const {
    uint64_t bytes = 0;
    for (const FileEntry& file : plan_.contents.files)
        bytes += file.bytes;
    std::string line = "{\"event\":\"start\"," + json_name("source", plan_.source.path) + ",\"destinations\":[";
    const char* separator = "{";
    for (const auto& destination : plan_.destinations) {
        line += separator + json_name("destination", destination->path()) + "}";
        separator = ",{";
    }
    line += "],\"hash\":[";
    separator = "\"";
    for (const DigestKind kind : command_.options.digests.kinds()) {
        line += std::string(separator) + names_of(kind).option + "\"";
        separator = ",\"";
    }
    return line + "]" + json_field("files", plan_.contents.files.size()) + json_field("bytes", bytes) +
           ",\"verify\":" + (command_.options.verifies ? "true}" : "false}");
}

void OffloadReport::start() {
    if (command_.is_json) screen_.print(stdout, start_event());
    screen_.start();
}

void OffloadReport::left_out(const LeftOut& what) {
    if (command_.is_json) {
        screen_.print(stdout, "{\"event\":\"left_out\"," + json_name("path", what.path) +
                                  ",\"reason\":" + json_string(problem_text(what.reason)) +
                                  ",\"failure\":" + (what.is_failure ? "true}" : "false}"));
    } else if (what.is_failure || !command_.is_quiet) {
        screen_.print(stderr, word_text(what.is_failure ? tr("report", "failed") : tr("report", "left out")) + "  " +
                                  printable_name(plan_.source.path + (what.path.empty() ? "" : "/") + what.path) +
                                  ": " + problem_text(what.reason));
    }
}

void OffloadReport::warning(const std::string& path, const Problem& problem) {
    const std::string text = printable_name(path) + ": " + problem_text(problem);
    if (command_.is_json) {
        screen_.print(stdout, "{\"event\":\"note\",\"text\":" + json_string(text) + "}");
    } else {
        screen_.print(stderr, "vell: " + text);
    }
}

std::string OffloadReport::file_event(const Destination& destination, const FileResult& result) const {
    std::string line = "{\"event\":\"file\"," + json_name("destination", destination.path()) + "," +
                       json_name("path", result.path) + json_field("bytes", result.bytes) + ",\"result\":\"" +
                       word_for(result.outcome) + "\"" + digest_fields(result.digests);
    if (result.outcome == Outcome::failed) {
        line += ",\"error\":" + json_string(problem_text(result.problem)) +
                ",\"mismatch\":" + (result.is_mismatch() ? "true" : "false");
    }
    return line + "}";
}

void OffloadReport::file(size_t index, const FileResult& result) {
    const bool is_failed = result.outcome == Outcome::failed;
    const Destination& destination = *plan_.destinations[index];
    if (command_.is_json) return screen_.print(stdout, file_event(destination, result));
    const bool has_bars = style_of(command_) == Screen::Style::redrawn;  // they tell of what goes well
    if (!is_failed && (has_bars || command_.is_quiet)) return;
    const std::string word = word_text(tr("report", word_for(result.outcome)));
    screen_.print(is_failed ? stderr : stdout,
                  (has_bars && may_colour() ? "\033[31m" + word + "\033[0m  " : word + "  ") +
                      printable_name(destination.path_of(result.path)) +
                      (is_failed ? ": " + problem_text(result.problem) : ""));
}

void OffloadReport::current(const std::string& path) {
    const std::lock_guard lock(lock_);
    current_ = path;
}

std::string OffloadReport::progress_event(const Destination& destination) const {
    return "{\"event\":\"progress\"," + json_name("destination", destination.path()) +
           json_field("bytes_done", destination.progress.bytes_done) +
           json_field("bytes_wanted", destination.progress.bytes_wanted) + ",\"seconds\":" + json_number(seconds()) +
           "}";
}

std::string OffloadReport::bar_line(const Destination& destination) const {
    const std::string path = printable_name(destination.path());
    const size_t columns = Screen::columns();
    if (destination.is_dropped()) return fitted(path + "  " + dropped_text(destination), columns);
    return progress_line(destination.progress.bytes_done, destination.progress.bytes_wanted, seconds(), path, columns);
}

std::vector<std::string> OffloadReport::picture() {
    std::vector<std::string> lines;
    for (const auto& destination : plan_.destinations)
        lines.push_back(command_.is_json ? progress_event(*destination) : bar_line(*destination));
    if (command_.is_json) return lines;
    const std::lock_guard lock(lock_);
    lines.push_back(fitted(printable_name(current_), Screen::columns()));
    return lines;
}

void OffloadReport::summarise(const Destination& destination, const DestinationCounts& counts) {
    const double rate = counts.seconds > 0 ? static_cast<double>(counts.bytes) / counts.seconds / k_megabyte : 0;
    if (command_.is_json) {
        std::string line = "{\"event\":\"summary\"," + json_name("destination", destination.path());
        for (const Outcome outcome : k_outcomes)
            line += json_field(word_for(outcome), counts.of(outcome));
        line += json_field("bytes", counts.bytes) + ",\"seconds\":" + json_number(counts.seconds) +
                ",\"mb_per_s\":" + json_number(rate);
        if (destination.is_dropped()) line += ",\"dropped\":" + json_string(problem_text(destination.drop_reason()));
        return screen_.print(stdout, line + "}");
    }
    if (command_.is_quiet && !destination.is_dropped()) return;
    std::string line = printable_name(destination.path()) + ": ";
    for (const Outcome outcome : k_outcomes) {
        if (counts.of(outcome) == 0) continue;
        line += count_text(outcome, counts.of(outcome)) + tr("report", ", ");
    }
    line += formatted(tr("report", "%s in %.1f s, %.1f MB/s"), format_byte_size(counts.bytes).c_str(), counts.seconds,
                      rate);
    if (destination.is_dropped()) line += "; " + dropped_text(destination);
    screen_.print(destination.is_dropped() ? stderr : stdout, line);
}

void OffloadReport::finish(const OffloadResult& result, int exit_code) {
    screen_.stop();
    for (size_t i = 0; i < result.destinations.size(); ++i)
        summarise(*plan_.destinations[i], result.destinations[i]);
    if (command_.is_json) {
        screen_.print(stdout, "{\"event\":\"end\",\"exit_code\":" + std::to_string(exit_code) +
                                  ",\"interrupted\":" + (result.is_cancelled ? "true}" : "false}"));
    } else if (result.is_cancelled) {
        screen_.print(stderr, std::string("vell: ") + tr("report", "interrupted; the same command goes on from here"));
    }
}

}  // namespace tool
