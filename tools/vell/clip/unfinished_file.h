// A file that is only there when it is whole.
#pragma once

#include <string>

namespace tool {

/// A new file beside `path` that takes its place in the end. It is removed when the object goes before that, and when
/// a signal ends the process. One at a time.
class UnfinishedFile {
public:
    /// Throws Failure when no file can be made beside `path`.
    explicit UnfinishedFile(const std::string& path);
    ~UnfinishedFile();
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    [[nodiscard]] const char* temporary_path() const { return temporary_.c_str(); }
    /// Has the file on disk, renames it to `path` and has its name on disk. @return 0, or the system's error number.
    [[nodiscard]] int keep();

private:
    std::string path_;
    std::string temporary_;
};

}  // namespace tool
