#include "offload/folder_walk.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace tool {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view digits_at(std::string_view text, size_t at) {
    size_t end = at;
    while (end < text.size() && is_digit(text[end]))
        ++end;
    return text.substr(at, end - at);
}

/// Below, at or above 0, as the numbers' values are.
int compare_numbers(std::string_view a, std::string_view b) {
    a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
    b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

}  // namespace

timespec timespec_of(int64_t ns) {
    constexpr int64_t k_second = 1'000'000'000;
    const int64_t seconds = ns >= 0 ? ns / k_second : -((-ns + k_second - 1) / k_second);
    return {static_cast<time_t>(seconds), static_cast<long>(ns - seconds * k_second)};
}

Descriptor open_folder(int root, std::string_view path) {
    constexpr int k_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
    Descriptor folder(disk_calls.open(root, ".", k_flags, 0));
    for (size_t from = 0; folder.is_open() && from < path.size();) {
        const size_t end = std::min(path.find('/', from), path.size());
        folder =
            Descriptor(disk_calls.open(folder.get(), std::string(path.substr(from, end - from)).c_str(), k_flags, 0));
        from = end + 1;
    }
    return folder;
}

std::string_view folder_of(std::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view name_of(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

std::string joined_path(std::string_view folder, std::string_view name) {
    return folder.empty() ? std::string(name) : std::string(folder) + "/" + std::string(name);
}

bool comes_before(std::string_view a, std::string_view b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (is_digit(a[i]) && is_digit(b[j])) {
            const std::string_view left = digits_at(a, i), right = digits_at(b, j);
            const int order = compare_numbers(left, right);
            if (order != 0) return order < 0;
            i += left.size();
            j += right.size();
            continue;
        }
        if (a[i] != b[j]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
        ++i;
        ++j;
    }
    if (a.size() - i != b.size() - j) return a.size() - i < b.size() - j;
    return a < b;  // they differ in leading zeros at most
}

int read_names(int folder, std::vector<std::string>& names) {
    Descriptor own(fcntl(folder, F_DUPFD_CLOEXEC, 0));
    if (!own.is_open()) return errno;
    const std::unique_ptr<DIR, CloseFolder> stream(fdopendir(own.get()));
    if (stream == nullptr) return errno;
    own.release();
    int error = 0;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        error = errno;
        if (entry == nullptr) break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    std::sort(names.begin(), names.end(), comes_before);
    return error;
}

FolderContents list_tree(int root, const std::function<bool(std::string_view)>& is_skipped,
                         const std::function<bool()>& is_stopped) {
    FolderContents contents;
    std::vector<std::string> waiting = {""};  // the next folder last
    while (!waiting.empty() && !(is_stopped && is_stopped())) {
        const std::string path = waiting.back();
        waiting.pop_back();
        std::vector<std::string> names, subfolders;
        const Descriptor folder = open_folder(root, path);
        const int error = folder.is_open() ? read_names(folder.get(), names) : errno;
        if (error != 0) contents.left_out.push_back({path, problem_with(ProblemKind::unlistable, error), true});
        for (const std::string& name : names) {
            std::string below = joined_path(path, name);
            struct stat facts {};
            if (is_skipped && is_skipped(below)) continue;
            if (disk_calls.facts(folder.get(), name.c_str(), &facts) != 0) {
                contents.left_out.push_back({below, system_problem(errno), true});
            } else if (S_ISDIR(facts.st_mode)) {
                contents.folders.push_back({below, 0, nanoseconds_of(facts.st_mtim), facts.st_mode});
                subfolders.push_back(std::move(below));
            } else if (S_ISREG(facts.st_mode)) {
                contents.files.push_back({std::move(below), static_cast<uint64_t>(facts.st_size),
                                          nanoseconds_of(facts.st_mtim), facts.st_mode});
            } else {
                contents.left_out.push_back(
                    {std::move(below), {.kind = ProblemKind::special_file, .mode = facts.st_mode}, false});
            }
        }
        waiting.insert(waiting.end(), subfolders.rbegin(), subfolders.rend());
    }
    return contents;
}

}  // namespace tool
