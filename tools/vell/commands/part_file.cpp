#include "commands/part_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "offload/digest.h"
#include "offload/whole_file.h"
#include "ui/error_text.h"
#include "ui/failure.h"
#include "ui/file_names.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr size_t k_buffer_bytes = size_t{1} << 20;
constexpr mode_t k_file_mode = 0666;
constexpr mode_t k_permissions = 0777;
constexpr std::string_view k_origin_title = "part of a download, 1";

std::string digest_of_text(const std::string& text) {
    Digester digester(DigestKind::xxh128);
    digester.add(text.data(), text.size());
    return digester.finish();
}

/// Takes the next line off a text.
std::string take_line(std::string& text) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    return line;
}

mode_t callers_mask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

int write_at(int file, const unsigned char* data, size_t bytes, uint64_t offset) {
    while (bytes > 0) {
        const ssize_t written = disk_calls.write(file, data, bytes, static_cast<off_t>(offset));
        if (written < 0 && errno != EINTR) return errno;
        if (written <= 0) continue;
        data += written;
        bytes -= static_cast<size_t>(written);
        offset += static_cast<uint64_t>(written);
    }
    return 0;
}

[[noreturn]] void fail(const std::string& path, const std::string& problem) {
    throw Failure{k_exit_other, printable_name(path) + ": " + problem};
}

}  // namespace

PartFile::PartFile(const std::string& path, const std::string& url)
    : part_path_(path + ".vell-part"),
      name_(path.substr(path.rfind('/') + 1)),
      part_name_(name_ + ".vell-part"),
      origin_name_(part_name_ + "-origin"),
      url_digest_(digest_of_text(url)),
      buffer_(aligned_bytes(k_buffer_bytes)) {
    const std::string folder = path.substr(0, path.size() - name_.size());
    folder_ = Descriptor(disk_calls.open(AT_FDCWD, folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY, 0));
    if (!folder_.is_open()) fail(path, error_text(errno));
    open();
    load_origin();
}

/// Another download may have given the file its final name between the opening and the lock: then it is not ours.
void PartFile::open() {
    constexpr int k_flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
    for (;;) {
        file_ = Descriptor(disk_calls.open(folder_.get(), part_name_.c_str(), k_flags, k_file_mode));
        struct stat opened {
        }, named{};
        if (!file_.is_open() || disk_calls.file_facts(file_.get(), &opened) != 0) fail(part_path_, error_text(errno));
        if (!S_ISREG(opened.st_mode)) fail(part_path_, tr("problem", "is not a regular file"));
        if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            fail(part_path_, tr("problem", "another download is at work here"));
        if (disk_calls.facts(folder_.get(), part_name_.c_str(), &named) == 0 && named.st_ino == opened.st_ino &&
            named.st_dev == opened.st_dev) {
            written_bytes_ = static_cast<uint64_t>(opened.st_size);
            return;
        }
    }
}

void PartFile::load_origin() {
    std::string text;
    PartOrigin origin;
    const bool is_there = read_whole_file_at(folder_.get(), origin_name_.c_str(), text) == 0 &&
                          take_line(text) == k_origin_title && take_line(text) == url_digest_;
    const std::string size = take_line(text);
    origin.version = take_line(text);
    const auto [end, error] = std::from_chars(size.data(), size.data() + size.size(), origin.size);
    const bool is_good = is_there && error == std::errc{} && end == size.data() + size.size() &&
                         !origin.version.empty() && written_bytes_ <= origin.size;
    if (is_good) origin_ = origin;
}

int PartFile::begin_anew(const PartOrigin& origin) {
    // In this order a crash leaves no part with the wrong origin.
    distrust();
    waiting_bytes_ = 0;
    written_bytes_ = 0;
    if (disk_calls.cut(file_.get(), 0) != 0) return errno;
    if (origin.version.empty()) return 0;
    origin_ = origin;
    return write_whole_file_at(folder_.get(), origin_name_.c_str(),
                               std::string(k_origin_title) + "\n" + url_digest_ + "\n" + std::to_string(origin.size) +
                                   "\n" + origin.version + "\n",
                               callers_mask());
}

int PartFile::add(const void* data, size_t bytes) {
    const auto* rest = static_cast<const unsigned char*>(data);
    while (bytes > 0) {
        const size_t piece = std::min(bytes, k_buffer_bytes - waiting_bytes_);
        std::memcpy(buffer_.get() + waiting_bytes_, rest, piece);
        waiting_bytes_ += piece;
        rest += piece;
        bytes -= piece;
        if (waiting_bytes_ < k_buffer_bytes) break;
        const int error = flush(/*sync*/ false);
        if (error != 0) return error;
    }
    return 0;
}

int PartFile::flush(bool sync) {
    const int error = write_at(file_.get(), buffer_.get(), waiting_bytes_, written_bytes_);
    if (error != 0) {
        waiting_bytes_ = 0;  // what is not written is loaded again
        return error;
    }
    written_bytes_ += waiting_bytes_;
    waiting_bytes_ = 0;
    return !sync || disk_calls.sync_data(file_.get()) == 0 ? 0 : errno;
}

uint64_t PartFile::free_bytes() const {
    struct statvfs space {};
    return disk_calls.space(file_.get(), &space) == 0 ? uint64_t{space.f_frsize} * space.f_bavail : ~uint64_t{0};
}

int PartFile::keep(bool replaces) {
    struct stat old {};
    if (replaces && disk_calls.facts(folder_.get(), name_.c_str(), &old) == 0 && S_ISREG(old.st_mode))
        disk_calls.set_mode(file_.get(), old.st_mode & k_permissions);
    if (disk_calls.sync(file_.get()) != 0) return errno;
    if (disk_calls.rename(folder_.get(), part_name_.c_str(), name_.c_str(), replaces) != 0) return errno;
    distrust();
    return disk_calls.sync(folder_.get()) == 0 ? 0 : errno;
}

void PartFile::distrust() {
    disk_calls.remove(folder_.get(), origin_name_.c_str());
    origin_ = {};
}

void PartFile::remove() {
    distrust();
    disk_calls.remove(folder_.get(), part_name_.c_str());
}

}  // namespace tool
