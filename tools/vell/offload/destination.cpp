#include "offload/destination.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace tool {
namespace {

constexpr mode_t k_folder_mode = 0777;
constexpr mode_t k_file_mode = 0666;
constexpr std::string_view k_temporary_start = ".vell-";
constexpr std::string_view k_temporary_end = ".part";
constexpr size_t k_temporary_digits = 16;

/// Makes a folder with its parents. 0 or the system's error number.
int make_folders(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (disk_calls.make_folder(AT_FDCWD, part.c_str(), k_folder_mode) != 0 && errno != EEXIST) {
            const int error = errno;
            struct stat facts {};
            if (stat(part.c_str(), &facts) != 0) return error;  // a parent on a read-only disk is there already
        }
        if (end == std::string::npos) return 0;
    }
}

/// Errors that every further file would meet as well.
bool concerns_all_files(int error) {
    constexpr int k_errors[] = {ENOSPC, EDQUOT, EROFS, EIO, ENODEV, ENXIO, ESTALE, ENOTCONN, ESHUTDOWN, EMEDIUMTYPE};
    return std::find(std::begin(k_errors), std::end(k_errors), error) != std::end(k_errors);
}

}  // namespace

std::string temporary_name() {
    static const uint32_t run = std::random_device()();
    static std::atomic<uint32_t> count{0};
    char digits[k_temporary_digits + 1];
    std::snprintf(digits, sizeof digits, "%08x%08x", run, count.fetch_add(1));
    return std::string(k_temporary_start) + digits + std::string(k_temporary_end);
}

bool is_temporary_name(std::string_view name) {
    if (name.size() != k_temporary_start.size() + k_temporary_digits + k_temporary_end.size()) return false;
    return name.starts_with(k_temporary_start) && name.ends_with(k_temporary_end) &&
           name.substr(k_temporary_start.size(), k_temporary_digits).find_first_not_of("0123456789abcdef") ==
               std::string_view::npos;
}

int read_small_file(int file, std::string& text) {
    constexpr size_t k_max_bytes = 16 * 1024 * 1024;  // of what is not a regular file: a device may have no end
    struct stat facts {};
    if (disk_calls.file_facts(file, &facts) != 0) return errno;
    const size_t max_bytes = S_ISREG(facts.st_mode) ? SIZE_MAX : k_max_bytes;
    char buffer[65536];
    for (text.clear();;) {
        if (text.size() > max_bytes) return EFBIG;
        const ssize_t bytes = disk_calls.read(file, buffer, sizeof buffer, static_cast<off_t>(text.size()));
        if (bytes < 0 && errno != EINTR) return errno;
        if (bytes == 0) return 0;
        if (bytes > 0) text.append(buffer, static_cast<size_t>(bytes));
    }
}

int append_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t bytes = disk_calls.append(file, text.data(), text.size());
        if (bytes < 0 && errno != EINTR) return errno;
        if (bytes > 0) text.remove_prefix(static_cast<size_t>(bytes));
    }
    return 0;
}

int Destination::open_root() {
    struct stat facts {};
    was_there_ = stat(path_.c_str(), &facts) == 0;
    const int error = make_folders(path_);
    if (error != 0) return error;
    root_ = Descriptor(disk_calls.open(AT_FDCWD, path_.c_str(), O_RDONLY | O_DIRECTORY, 0));
    return root_.is_open() ? 0 : errno;
}

int Destination::open_journal() {
    constexpr int k_flags = O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK;
    journal_ = Descriptor(disk_calls.open(root_.get(), k_journal_name, k_flags, k_file_mode));
    if (!journal_.is_open()) return errno;
    if (flock(journal_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return EWOULDBLOCK;
    std::string text;
    const int error = read_small_file(journal_.get(), text);
    if (error != 0) return error;
    has_history_ = !text.empty();
    entries_ = parse_journal(text, bad_lines_);
    // What is added must not grow onto a line that was torn.
    if (has_history_) return text.back() == '\n' ? 0 : append_all(journal_.get(), "\n");
    const int write_error = append_all(journal_.get(), journal_header());
    if (write_error != 0) return write_error;
    return disk_calls.sync_data(journal_.get()) == 0 && disk_calls.sync(root_.get()) == 0 ? 0 : errno;
}

void Destination::open() {
    const int error = open_root();
    if (error != 0) return drop(system_problem(error));
    const int journal_error = open_journal();
    if (journal_error == EWOULDBLOCK) return drop(problem_with(ProblemKind::destination_in_use, journal_error));
    if (journal_error != 0)
        drop({.kind = ProblemKind::journal_unusable, .error = journal_error, .detail = path_of(k_journal_name)});
}

bool Destination::facts_of(std::string_view path, struct stat& facts) {
    const std::shared_ptr<Descriptor> where = folder(folder_of(path));
    return where != nullptr && disk_calls.facts(where->get(), std::string(name_of(path)).c_str(), &facts) == 0 &&
           S_ISREG(facts.st_mode);
}

bool Destination::has_file(const std::string& path, uint64_t bytes) {
    struct stat facts {};
    return was_there_ && facts_of(path, facts) && static_cast<uint64_t>(facts.st_size) == bytes;
}

const JournalEntry* Destination::find_unchanged(const FileEntry& file) {
    const auto found = entries_.find(file.path);
    if (found == entries_.end()) return nullptr;
    const JournalEntry& entry = found->second;
    if (entry.bytes != file.bytes || entry.source_ns != file.changed_ns) return nullptr;
    struct stat facts {};
    const bool is_unchanged = facts_of(file.path, facts) && static_cast<uint64_t>(facts.st_size) == entry.bytes &&
                              nanoseconds_of(facts.st_mtim) == entry.own_ns;
    return is_unchanged ? &entry : nullptr;
}

const JournalEntry* Destination::find_proven(const FileEntry& file, const DigestSet& digests, bool wants_verified) {
    const JournalEntry* entry = find_unchanged(file);
    const bool is_proof =
        entry != nullptr && has_digests(entry->digests, digests) && (entry->is_verified || !wants_verified);
    return is_proof ? entry : nullptr;
}

int Destination::record(const std::vector<JournalEntry>& entries) {
    std::string text;
    for (const JournalEntry& entry : entries)
        text += journal_line(entry);
    const int error = append_all(journal_.get(), text);
    if (error != 0) return error;
    return disk_calls.sync_data(journal_.get()) == 0 ? 0 : errno;
}

std::shared_ptr<Descriptor> Destination::folder(std::string_view path) {
    const std::lock_guard lock(folders_lock_);
    std::weak_ptr<Descriptor>& known = folders_[std::string(path)];
    std::shared_ptr<Descriptor> folder = known.lock();
    if (folder != nullptr) return folder;
    Descriptor opened = open_folder(root_.get(), path);
    if (!opened.is_open()) return nullptr;
    folder = std::make_shared<Descriptor>(std::move(opened));
    known = folder;
    recent_folder_ = folder;
    return folder;
}

void Destination::drop(const Problem& reason) {
    const std::lock_guard lock(drop_lock_);
    if (is_dropped()) return;
    drop_reason_ = reason;
    is_dropped_.store(true, std::memory_order_release);
}

Problem Destination::drop_reason() const {
    const std::lock_guard lock(drop_lock_);
    return drop_reason_;
}

void Destination::consider(int error) {
    if (concerns_all_files(error)) return drop(system_problem(error));
    struct stat facts {};
    const bool is_gone = error == ENOENT && disk_calls.file_facts(root_.get(), &facts) == 0 && facts.st_nlink == 0;
    if (is_gone) drop(problem_with(ProblemKind::folder_gone, error));
}

}  // namespace tool
