// The part of a download that is there: "<path>.vell-part", and "<path>.vell-part-origin", which tells what it is a
// part of. Without the second the first is worth nothing.
#pragma once

#include <cstdint>
#include <string>

#include "offload/descriptor.h"

namespace tool {

/// What a part belongs to.
struct PartOrigin {
    uint64_t size = 0;    ///< of the whole
    std::string version;  ///< as the server calls it
};

/// The answers of its functions are 0 or the system's error number.
class PartFile {
public:
    /// Opens what an earlier download from the URL left, or a new file. Throws Failure when that is not possible, or
    /// another program is at work on it.
    PartFile(const std::string& path, const std::string& url);

    [[nodiscard]] const std::string& path() const { return part_path_; }
    /// Bytes that are there, those that wait for being written included.
    [[nodiscard]] uint64_t bytes() const { return written_bytes_ + waiting_bytes_; }
    [[nodiscard]] const PartOrigin& origin() const { return origin_; }

    /// Empties it. An origin without a version is not kept: the next download begins anew.
    [[nodiscard]] int begin_anew(const PartOrigin& origin);
    [[nodiscard]] int add(const void* data, size_t bytes);
    /// Writes what waits. With `sync` it is on the disk then.
    [[nodiscard]] int flush(bool sync);
    /// What the volume has room for beside it; all ones when the system does not tell.
    [[nodiscard]] uint64_t free_bytes() const;

    /// Gives it its name; a file that had the name leaves its permissions.
    [[nodiscard]] int keep(bool replaces);
    /// The next download begins anew.
    void distrust();
    /// Nothing is left.
    void remove();

private:
    void open();
    void load_origin();

    const std::string part_path_;
    const std::string name_, part_name_, origin_name_;  // in the folder
    const std::string url_digest_;                      // the URL itself may hold a password
    Descriptor folder_;
    Descriptor file_;
    AlignedBytes buffer_;
    uint64_t written_bytes_ = 0;
    size_t waiting_bytes_ = 0;  // in the buffer
    PartOrigin origin_;
};

}  // namespace tool
