// Outputs. A file goes through fWriteBuffer; what cannot be cut back at its end, as a pipe, gets plain writes.

#include "clip/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "clip/exit_codes.h"
#include "clip/unfinished_file.h"
#include "ui/error_text.h"
#include "ui/translation.h"
#include "vellcore/buffered_file_writer.h"

namespace tool {
namespace {

constexpr int k_write_buffer_bytes = 4 << 20;  // each of two

[[noreturn]] void fail(const std::string& path, const std::string& what, int error) {
    throw Failure{k_exit_unwritable, path + ": " + what + (error != 0 ? ": " + error_text(error) : "")};
}

/// Standard output, or a device or pipe under a name.
class StreamOutput final : public ClipOutput {
public:
    StreamOutput(std::string name, int descriptor) : name_(std::move(name)), descriptor_(descriptor) {}
    ~StreamOutput() override {
        if (descriptor_ > STDERR_FILENO) close(descriptor_);
    }
    void write(const void* data, size_t bytes) override {
        const auto* rest = static_cast<const unsigned char*>(data);
        while (bytes > 0) {
            const ssize_t written = ::write(descriptor_, rest, bytes);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) fail(name_, tr("problem", "cannot be written"), errno);
            rest += written;
            bytes -= static_cast<size_t>(written);
        }
    }
    void finish() override {}

private:
    std::string name_;
    int descriptor_;
};

/// Why writes to a file fail: asks with one more byte, since the writer only counts its errors.
int reason_of_failure(const char* path, off_t position) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return errno;
    const int error = pwrite(file, "", 1, position) == 1 && fsync(file) == 0 ? 0 : errno;
    close(file);
    return error;
}

class FileOutput final : public ClipOutput {
public:
    explicit FileOutput(const std::string& path) : path_(path), file_(path), writer_(-1, /*allocate*/ true) {
        writer_.set_buffer(k_write_buffer_bytes, /*double_buffered*/ true);
        if (!writer_.open_file(file_.temporary_path(), /*size*/ 0, /*write_through*/ true)) {
            fail(path_, tr("problem", "cannot be written"), errno);
        }
    }
    void write(const void* data, size_t bytes) override {
        const size_t written = writer_.write_file(data, 1, bytes);
        if (written != bytes || writer_.error() != 0) give_up();
    }
    void finish() override {
        writer_.close_file(/*final*/ true);
        if (writer_.error() != 0) give_up();
        const int error = file_.keep();
        if (error != 0) fail(path_, tr("problem", "cannot be put in its place"), error);
    }

private:
    [[noreturn]] void give_up() {
        const auto position = static_cast<off_t>(writer_.get_file_position());
        writer_.close_file(/*final*/ true);
        fail(path_, formatted(tr("problem", "writing failed near byte %llu"), number(static_cast<uint64_t>(position))),
             reason_of_failure(file_.temporary_path(), position));
    }

    std::string path_;
    UnfinishedFile file_;  // outlives the writer: the file is closed before it is removed
    fWriteBuffer writer_;
};

/// The path behind symbolic links, so that a link is not replaced by what it should lead to.
std::string resolved(const std::string& path) {
    char* real = realpath(path.c_str(), nullptr);
    if (real == nullptr) return path;
    std::string text(real);
    std::free(real);
    return text;
}

}  // namespace

std::unique_ptr<ClipOutput> open_clip_output(const std::string& path, const std::string& input) {
    if (path == "-") return std::make_unique<StreamOutput>(tr("problem", "standard output"), STDOUT_FILENO);
    if (path.empty()) throw Failure{k_exit_command_line, tr("problem", "the output has no name")};
    struct stat there {};
    struct stat source {};
    const bool is_there = stat(path.c_str(), &there) == 0;
    if (is_there && stat(input.c_str(), &source) == 0 && there.st_dev == source.st_dev &&
        there.st_ino == source.st_ino) {
        throw Failure{k_exit_command_line, path + ": " + tr("problem", "is the input clip; choose another output")};
    }
    // The folder alone would let a protected file be replaced.
    if (is_there && access(path.c_str(), W_OK) != 0) fail(path, tr("problem", "cannot be written"), errno);
    if (!is_there || S_ISREG(there.st_mode)) return std::make_unique<FileOutput>(resolved(path));
    const int stream = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (stream < 0) fail(path, tr("problem", "cannot be written"), errno);
    return std::make_unique<StreamOutput>(path, stream);
}

}  // namespace tool
