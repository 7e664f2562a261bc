// Reads the source block by block and hands every block to the callback and to all writers. While it does, further
// blocks are being read ahead and filled buffers are being written.

#include "files/copy_engine.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <span>

namespace vell {

fReadBuffer* CopyTools::reader() noexcept {
    if (reader_ != nullptr) return reader_;
    constexpr int k_buffers = 8;
    constexpr int k_block_bytes = 1'048'576;
    own_reader_.reset(new (std::nothrow) fReadBuffer(-1));
    if (own_reader_ != nullptr) own_reader_->cfg_buffers(k_buffers, k_block_bytes, k_block_bytes);
    return reader_ = own_reader_.get();
}

fWriteBuffer* CopyTools::writer(size_t destination) noexcept {
    if (writers_[destination] != nullptr) return writers_[destination];
    constexpr int k_buffer_bytes = 16'777'216;
    auto& made = own_writers_[destination];
    made.reset(new (std::nothrow) fWriteBuffer(-1, /*allocate*/ true));
    if (made != nullptr) made->set_buffer(k_buffer_bytes, /*double_buffered*/ true);
    return writers_[destination] = made.get();
}

fWriteBuffer* CopyTools::open_writer(const CopyJob& job, size_t destination) noexcept {
    fWriteBuffer* opened = writer(destination);
    errno = 0;
    if (opened == nullptr) return nullptr;
    opened->must_be_new_ = !job.overwrites;
    const bool is_open = opened->open_file(job.destinations[destination], 0, /*write_through*/ true);
    opened->must_be_new_ = false;
    if (!is_open) return nullptr;
    opened->syncs_on_close_ = job.is_flushed;
    return opened;
}

namespace {

/// Which file a path or descriptor stands for.
struct FileIdentity {
    dev_t device;
    ino_t inode;
    bool operator==(const FileIdentity&) const = default;
};

/// Opening a pipe would wait for somebody at its other end. Sets errno for one.
bool is_pipe(const struct stat& facts) noexcept {
    if (!S_ISFIFO(facts.st_mode)) return false;
    errno = ESPIPE;
    return true;
}

/// One copy on its way. Closes what it opened.
class Copy {
public:
    Copy(const CopyJob& job, CopyTools& tools) noexcept : job_(job), tools_(tools) {}
    ~Copy() {
        close_writers();
        if (reader_ != nullptr) reader_->close_file();
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    CopyResult run() noexcept {
        if (!open_source()) return {CopyFault::source_open};
        const bool has_data = !next_piece().empty();
        const bool is_empty = reader_->file_size == 0 && !reader_->block_failed();
        if (!has_data && !(is_empty && job_.takes_empty_source)) return {CopyFault::source_read};
        for (size_t i = 0; i < job_.destination_count; ++i) {
            const CopyFault fault = open_destination(i);
            if (fault != CopyFault::none) return {fault, i};
        }
        return copy_blocks();
    }

private:
    [[nodiscard]] bool open_source() noexcept;
    [[nodiscard]] CopyFault open_destination(size_t index) noexcept;
    [[nodiscard]] CopyResult copy_blocks() noexcept;
    [[nodiscard]] std::span<const unsigned char> next_piece() noexcept;
    [[nodiscard]] bool write(std::span<const unsigned char> piece) noexcept;
    bool close_writers() noexcept;

    [[nodiscard]] bool is_known(const FileIdentity& file) const noexcept {
        const auto known = std::span(known_.data(), known_count_);
        return std::find(known.begin(), known.end(), file) != known.end();
    }

    const CopyJob& job_;
    CopyTools& tools_;
    fReadBuffer* reader_ = nullptr;
    std::array<fWriteBuffer*, k_most_destinations> writers_{};  // the open ones
    size_t writer_count_ = 0;
    std::array<FileIdentity, k_most_destinations + 1> known_{};  // the source and the open destinations
    size_t known_count_ = 0;
};

bool Copy::open_source() noexcept {
    struct stat facts {};
    if (stat(job_.source, &facts) == 0 && is_pipe(facts)) return false;
    fReadBuffer* reader = tools_.reader();
    if (reader == nullptr || !reader->open_file(job_.source, /*shared*/ true, /*prefetch*/ false, /*direct*/ true))
        return false;
    reader_ = reader;
    if (fstat(reader->file_handle, &facts) == 0) known_[known_count_++] = {facts.st_dev, facts.st_ino};
    return true;
}

CopyFault Copy::open_destination(size_t index) noexcept {
    const char* path = job_.destinations[index];
    struct stat facts {};
    if (stat(path, &facts) == 0) {
        // Creating the source anew would empty it.
        if (is_known({facts.st_dev, facts.st_ino})) return CopyFault::none;
        if (is_pipe(facts)) return CopyFault::destination_open;
    }
    fWriteBuffer* writer = tools_.open_writer(job_, index);
    if (writer == nullptr) {
        const bool has_appeared = !job_.overwrites && errno == EEXIST;
        return has_appeared ? CopyFault::destination_exists : CopyFault::destination_open;
    }
    writers_[writer_count_++] = writer;
    if (stat(path, &facts) == 0) known_[known_count_++] = {facts.st_dev, facts.st_ino};
    return CopyFault::none;
}

/// What the present block still holds of the file, or the next block. A block may be longer than the file: that
/// rounding is not data.
std::span<const unsigned char> Copy::next_piece() noexcept {
    if (reader_->unread() == 0 && reader_->getNextBlock() == 0) return {};
    const unsigned long long position = reader_->next_read_position - reader_->unread();
    const unsigned long long left = reader_->file_size - std::min(position, reader_->file_size);
    return {reader_->cursor, static_cast<size_t>(std::min<unsigned long long>(reader_->unread(), left))};
}

bool Copy::write(std::span<const unsigned char> piece) noexcept {
    for (fWriteBuffer* writer : std::span(writers_.data(), writer_count_)) {
        if (writer->write_file(piece.data(), 1, piece.size()) < piece.size() || writer->error() != 0) return false;
    }
    return true;
}

CopyResult Copy::copy_blocks() noexcept {
    unsigned long long delivered = 0;
    unsigned long long last_block = 0;
    for (auto piece = next_piece(); !piece.empty() && !reader_->block_failed(); piece = next_piece()) {
        last_block = piece.size();
        if (job_.on_block != nullptr) job_.on_block(piece.data(), last_block, job_.context);
        if (!write(piece)) return {CopyFault::write, 0, last_block};
        delivered += last_block;
        *job_.bytes_copied += last_block;
        reader_->skip_file(1, piece.size());
    }
    if (reader_->block_failed() || delivered < reader_->file_size) return {CopyFault::source_read, 0, last_block};
    if (job_.on_block != nullptr) job_.on_block(nullptr, 0, job_.context);
    // The last blocks are still in the writers' buffers: only closing tells whether they arrived.
    if (!close_writers()) return {CopyFault::write, 0, last_block};
    return {CopyFault::none, 0, last_block};
}

/// False when a write failed.
bool Copy::close_writers() noexcept {
    bool is_whole = true;
    for (fWriteBuffer* writer : std::span(writers_.data(), writer_count_)) {
        writer->close_file(/*final*/ true);
        is_whole = is_whole && writer->error() == 0;
    }
    writer_count_ = 0;
    return is_whole;
}

}  // namespace

CopyResult run_copy(const CopyJob& job, CopyTools& tools) noexcept {
    return Copy(job, tools).run();
}

}  // namespace vell
