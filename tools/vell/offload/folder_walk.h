// Folders by descriptor, and everything below one of them. No symbolic link is followed below the root, and a path may
// be longer than the system takes in one call.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "offload/descriptor.h"
#include "offload/problem.h"

namespace tool {

/// Opens the folder at `path` below `root`; "" is the root itself. Not open with errno set on failure.
[[nodiscard]] Descriptor open_folder(int root, std::string_view path);

/// One folder's names, sorted. 0 or the system's error number.
[[nodiscard]] int read_names(int folder, std::vector<std::string>& names);

/// The two halves of a path: "a/b" and "c" of "a/b/c".
[[nodiscard]] std::string_view folder_of(std::string_view path);
[[nodiscard]] std::string_view name_of(std::string_view path);
[[nodiscard]] std::string joined_path(std::string_view folder, std::string_view name);

[[nodiscard]] constexpr int64_t nanoseconds_of(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

[[nodiscard]] timespec timespec_of(int64_t nanoseconds);

struct FileEntry {
    std::string path;  ///< below the root
    uint64_t bytes = 0;
    int64_t changed_ns = 0;  ///< time of the last change of the contents, since 1970
    mode_t mode = 0;
};

/// A name that cannot be copied: a link, a device, something unreadable.
struct LeftOut {
    std::string path;
    Problem reason;
    bool is_failure;  ///< it should have been readable
};

struct FolderContents {
    std::vector<FileEntry> folders;  ///< parents before what is in them
    std::vector<FileEntry> files;    ///< natural order, folder by folder
    std::vector<LeftOut> left_out;
};

/// Lists everything below `root`. `is_skipped` names what is passed over silently; null: nothing.
/// Stops early when `is_stopped` answers true; null: never.
[[nodiscard]] FolderContents list_tree(int root, const std::function<bool(std::string_view path)>& is_skipped = nullptr,
                                       const std::function<bool()>& is_stopped = nullptr);

/// "img2" before "img10": digits count by their value, other bytes as they are. A total order.
[[nodiscard]] bool comes_before(std::string_view a, std::string_view b);

}  // namespace tool
