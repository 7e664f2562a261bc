// What is on record comes from the journal first, then from the lists, then from files that are there: those on no
// record are new.

#include "commands/verify.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "offload/destination.h"
#include "offload/escaped_names.h"
#include "offload/file_digests.h"
#include "offload/folder_walk.h"
#include "offload/journal.h"
#include "offload/parallel.h"
#include "offload/sum_list.h"
#include "offload/whole_file.h"
#include "ui/error_text.h"
#include "ui/file_names.h"
#include "ui/interrupt.h"
#include "ui/problem_text.h"
#include "ui/screen.h"
#include "ui/text_columns.h"
#include "ui/translation.h"

namespace tool {
namespace {

/// What a file should be.
struct Expected {
    std::optional<uint64_t> bytes;
    Digests digests;
};
using ExpectedFiles = std::map<std::string, Expected, std::less<>>;

enum class Finding { good, missing, changed, unreadable, fresh };
constexpr Finding k_findings[] = {Finding::good, Finding::missing, Finding::changed, Finding::unreadable,
                                  Finding::fresh};

/// The word for it in JSON; what people read is tr("report", word_for(finding)).
const char* word_for(Finding finding) {
    constexpr const char* k_names[] = {"ok", marked("report", "missing"), marked("report", "changed"),
                                       marked("report", "unreadable"), marked("report", "new")};
    return k_names[static_cast<int>(finding)];
}

std::string count_text(Finding finding, size_t count) {
    switch (finding) {
        case Finding::good:
            return formatted(tr("report", "%llu ok"), number(count));
        case Finding::missing:
            return formatted(tr("report", "%llu missing"), number(count));
        case Finding::changed:
            return formatted(tr("report", "%llu changed"), number(count));
        case Finding::unreadable:
            return formatted(tr("report", "%llu unreadable"), number(count));
        case Finding::fresh:
            break;
    }
    return formatted(tr("report", "%llu new"), number(count));
}

/// True for a list from a system whose lines end in a carriage return and a newline.
bool every_line_ends_in_return(std::string_view text) {
    const auto returns = std::count(text.begin(), text.end(), '\r');
    size_t ends = 0;
    for (size_t at = text.find("\r\n"); at != std::string_view::npos; at = text.find("\r\n", at + 2))
        ++ends;
    const auto newlines = std::count(text.begin(), text.end(), '\n');
    return returns > 0 && newlines == static_cast<std::ptrdiff_t>(ends) && text.back() == '\n';
}

class Verification {
public:
    explicit Verification(const VerifyOptions& options)
        : options_(options),
          screen_(options.is_json || options.is_quiet ? Screen::Style::none : Screen::style_for_terminal(),
                  [this] { return picture(); }) {}

    int run();

private:
    void open_root();
    void read_journal();
    void read_own_lists();
    void read_list(std::string_view text, std::string_view name);
    void compare_presence();
    void compare_contents(size_t index);
    [[nodiscard]] DigestSet kinds_for(const Expected& expected) const;
    [[nodiscard]] bool is_own_name(std::string_view path) const;
    void report(Finding finding, const std::string& path, const std::string& detail = "");
    void note(const std::string& text);
    void summarise(int exit_code);
    [[nodiscard]] int exit_code() const;
    [[nodiscard]] std::vector<std::string> picture();
    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

    const VerifyOptions& options_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    Descriptor root_;
    ExpectedFiles expected_;
    std::vector<FileEntry> to_read_;
    std::string list_inside_;  ///< the list's path below the folder, if it lies there
    std::atomic<uint64_t> bytes_wanted_{0};
    std::atomic<uint64_t> bytes_done_{0};
    std::mutex lock_;  ///< guards the two below
    size_t counts_[std::size(k_findings)] = {};
    std::string current_;
    Screen screen_;
};

void Verification::open_root() {
    root_ = Descriptor(disk_calls.open(AT_FDCWD, options_.folder.c_str(), O_RDONLY | O_DIRECTORY, 0));
    if (!root_.is_open()) {
        throw Failure{k_exit_command_line, printable_name(options_.folder) + ": " + error_text(errno)};
    }
}

void Verification::note(const std::string& text) {
    if (options_.is_json) {
        screen_.print(stdout, "{\"event\":\"note\",\"text\":" + json_string(text) + "}");
    } else {
        screen_.print(stderr, "vell: " + text);
    }
}

void Verification::read_journal() {
    std::string text;
    const int error = read_whole_file_at(root_.get(), k_journal_name, text);
    if (error == ENOENT) return;
    if (error != 0) return note(std::string(k_journal_name) + ": " + error_text(error));
    size_t bad_lines = 0;
    for (auto& [path, entry] : parse_journal(text, bad_lines))
        expected_[path] = {entry.bytes, entry.digests};
    if (bad_lines > 0) {
        note(std::string(k_journal_name) + ": " +
             formatted(tr("problem", "%llu damaged or foreign lines do not count"), number(bad_lines)));
    }
}

void Verification::read_list(std::string_view text, std::string_view name) {
    size_t bad_lines = 0;
    // Our own lists have none, but a name may end in one.
    const bool has_carriage_returns = !options_.list.empty() && every_line_ends_in_return(text);
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (has_carriage_returns) line.remove_suffix(1);
        if (line.empty() || line.starts_with('#')) continue;
        auto parsed = parse_sum_line(line);
        if (parsed && parsed->path.starts_with("./")) parsed->path.erase(0, 2);
        if (!parsed || !is_inside_path(parsed->path)) {
            ++bad_lines;
            continue;
        }
        const auto kind = parsed->kind ? parsed->kind : list_kind(name, parsed->digest);
        if (!kind) continue;
        std::string& known = digest_of(expected_[parsed->path].digests, *kind);
        if (known.empty()) known = parsed->digest;  // the journal's comes first
    }
    if (bad_lines > 0)
        note(printable_name(name) + ": " + formatted(tr("problem", "%llu lines are no digests"), number(bad_lines)));
}

void Verification::read_own_lists() {
    for (const DigestKind kind : k_digest_kinds) {
        std::string text;
        const char* name = names_of(kind).list_name;
        const int error = read_whole_file_at(root_.get(), name, text);
        if (error == 0) read_list(text, name);
        if (error != 0 && error != ENOENT) note(std::string(name) + ": " + error_text(error));
    }
}

bool Verification::is_own_name(std::string_view path) const {
    if (path == k_journal_name || path == list_inside_) return true;
    return std::any_of(std::begin(k_digest_kinds), std::end(k_digest_kinds),
                       [path](DigestKind kind) { return path == names_of(kind).list_name; });
}

DigestSet Verification::kinds_for(const Expected& expected) const {
    DigestSet kinds;
    for (const DigestKind kind : options_.digests.kinds()) {
        if (!digest_of(expected.digests, kind).empty()) kinds.add(kind);
    }
    const auto fastest = fastest_digest(expected.digests);
    if (kinds.is_empty() && fastest) kinds.add(*fastest);
    return kinds;
}

/// Finds what needs no reading, and collects what does.
void Verification::compare_presence() {
    const FolderContents contents = list_tree(root_.get(), nullptr, is_interrupted);
    std::set<std::string_view> present;
    for (const FileEntry& file : contents.files) {
        present.insert(file.path);
        const auto expected = expected_.find(file.path);
        if (expected == expected_.end()) {
            if (!is_own_name(file.path)) report(Finding::fresh, file.path);
        } else if (expected->second.bytes && *expected->second.bytes != file.bytes) {
            report(Finding::changed, file.path,
                   formatted(tr("problem", "%llu bytes instead of %llu"), number(file.bytes),
                             number(*expected->second.bytes)));
        } else {
            to_read_.push_back(file);
            bytes_wanted_ += file.bytes;
        }
    }
    for (const LeftOut& what : contents.left_out) {
        present.insert(what.path);
        if (what.is_failure) {
            report(Finding::unreadable, what.path, problem_text(what.reason));
        } else {
            report(expected_.count(what.path) != 0 ? Finding::changed : Finding::fresh, what.path,
                   problem_text(what.reason));
        }
    }
    for (const FileEntry& folder : contents.folders) {
        if (expected_.count(folder.path) == 0) continue;
        present.insert(folder.path);
        report(Finding::changed, folder.path, tr("kind of file", "a folder"));
    }
    for (const auto& [path, expected] : expected_) {
        if (present.count(path) == 0 && !is_interrupted()) report(Finding::missing, path);
    }
}

void Verification::compare_contents(size_t index) {
    const FileEntry& file = to_read_[index];
    const Expected& expected = expected_.find(file.path)->second;
    {
        const std::lock_guard lock(lock_);
        current_ = file.path;
    }
    const DigestSet kinds = kinds_for(expected);
    const Descriptor folder = open_folder(root_.get(), folder_of(file.path));
    const FileDigests actual =
        digests_of_file(folder.get(), std::string(name_of(file.path)), kinds, /*follows_link*/ false, interrupt_flag(),
                        [this](uint64_t bytes) { bytes_done_ += bytes; });
    if (is_interrupted()) return;
    if (actual.problem) return report(Finding::unreadable, file.path, problem_text(actual.problem));
    for (const DigestKind kind : kinds.kinds()) {
        if (digest_of(actual.digests, kind) != digest_of(expected.digests, kind)) {
            return report(
                Finding::changed, file.path,
                formatted(tr("problem", "%s is %s instead of %s"), names_of(kind).tag,
                          digest_of(actual.digests, kind).c_str(), digest_of(expected.digests, kind).c_str()));
        }
    }
    report(Finding::good, file.path);
}

void Verification::report(Finding finding, const std::string& path, const std::string& detail) {
    {
        const std::lock_guard lock(lock_);
        ++counts_[static_cast<int>(finding)];
    }
    if (options_.is_json) {
        std::string line =
            "{\"event\":\"file\"," + json_name("path", path) + ",\"result\":\"" + word_for(finding) + "\"";
        if (!detail.empty()) line += ",\"detail\":" + json_string(detail);
        return screen_.print(stdout, line + "}");
    }
    if (finding == Finding::good || (finding == Finding::fresh && options_.is_quiet)) return;
    const size_t columns =
        widest_of({tr("report", "missing"), tr("report", "changed"), tr("report", "unreadable"), tr("report", "new")});
    const std::string label = padded(tr("report", word_for(finding)), columns) + " ";
    screen_.print(stdout, label + printable_name(path) + (detail.empty() ? "" : ": " + detail));
}

std::vector<std::string> Verification::picture() {
    const std::lock_guard lock(lock_);
    const size_t columns = Screen::columns();
    return {fitted(bar_text(bytes_done_, bytes_wanted_, seconds(), columns), columns),
            fitted(printable_name(current_), columns)};
}

int Verification::exit_code() const {
    const auto count = [this](Finding finding) { return counts_[static_cast<int>(finding)]; };
    if (count(Finding::missing) > 0 || count(Finding::changed) > 0) return k_exit_mismatch;
    if (is_interrupted()) return k_exit_interrupted;
    return count(Finding::unreadable) > 0 ? k_exit_incomplete : k_exit_done;
}

void Verification::summarise(int exit_code) {
    std::string text = options_.is_json ? "{\"event\":\"summary\"" : printable_name(options_.folder) + ":";
    const char* separator = " ";
    for (const Finding finding : k_findings) {
        const size_t count = counts_[static_cast<int>(finding)];
        if (options_.is_json) {
            text += ",\"" + std::string(word_for(finding)) + "\":" + std::to_string(count);
        } else if (count > 0 || finding == Finding::good) {
            text += separator + count_text(finding, count);
            separator = tr("report", ", ");
        }
    }
    if (options_.is_json) {
        screen_.print(stdout, text + ",\"bytes\":" + std::to_string(bytes_done_) +
                                  ",\"exit_code\":" + std::to_string(exit_code) + "}");
    } else if (is_interrupted()) {
        screen_.print(stderr, text + "; " + tr("problem", "interrupted"));
    } else if (!options_.is_quiet) {
        screen_.print(stdout, text);
    }
}

int Verification::run() {
    open_root();
    if (options_.list.empty()) {
        read_journal();
        read_own_lists();
    } else {
        std::string text;
        const int error = read_whole_file_at(AT_FDCWD, options_.list.c_str(), text);
        if (error != 0) throw Failure{k_exit_command_line, printable_name(options_.list) + ": " + error_text(error)};
        read_list(text, name_of(options_.list));
        const std::string start = options_.folder + (options_.folder.back() == '/' ? "" : "/");
        if (options_.list.starts_with(start)) list_inside_ = options_.list.substr(start.size());
    }
    if (expected_.empty()) {
        throw Failure{k_exit_command_line, printable_name(options_.list.empty() ? options_.folder : options_.list) +
                                               ": " + tr("problem", "there is no digest to compare with")};
    }
    screen_.start();
    compare_presence();
    for_each_index(to_read_.size(), std::max(2U, std::thread::hardware_concurrency()), [this](size_t index) {
        if (!is_interrupted()) compare_contents(index);
        return !is_interrupted();
    });
    screen_.stop();
    summarise(exit_code());
    if (!has_printed_all() && exit_code() == k_exit_done) return k_exit_incomplete;
    return exit_code();
}

}  // namespace

int verify(const VerifyOptions& options) {
    catch_interrupts();
    return Verification(options).run();
}

}  // namespace tool
