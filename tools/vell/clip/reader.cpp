// Frames are found by looking at each frame's line once: the lines may differ in length, and a clip that ends too
// early is told of before any work is done.

#include "clip/reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "clip/exit_codes.h"
#include "ui/error_text.h"
#include "ui/translation.h"
#include "vellcore/file_io.h"

namespace tool {
namespace {

constexpr int k_read_ahead_blocks = 8;
constexpr int k_block_bytes = 1 << 20;
constexpr uint64_t k_lost = UINT64_MAX;  // stream position that no frame lies behind

[[noreturn]] void fail(int code, const std::string& path, const std::string& what) {
    throw Failure{code, path + ": " + what};
}

uint64_t size_of_regular_file(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0)
        fail(k_exit_unreadable, path, formatted(tr("problem", "cannot be read: %s"), error_text(errno).c_str()));
    if (!S_ISREG(facts.st_mode)) fail(k_exit_unreadable, path, tr("problem", "is not a regular file"));
    return static_cast<uint64_t>(facts.st_size);
}

void open_input(fReadBuffer& reader, const std::string& path, bool direct) {
    errno = 0;
    if (reader.open_file(path.c_str(), /*shared*/ true, /*prefetch*/ false, direct)) return;
    fail(k_exit_unreadable, path,
         errno != 0 ? formatted(tr("problem", "cannot be opened: %s"), error_text(errno).c_str())
                    : tr("problem", "cannot be opened"));
}

uint64_t rounded_down(uint64_t value, uint64_t unit) {
    return value / unit * unit;
}
uint64_t rounded_up(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}

std::string place(size_t frame, uint64_t position) {
    return formatted(tr("problem", "frame %llu at byte %llu"), number(frame), number(position));
}

}  // namespace

ClipReader::ClipReader(const std::string& path) : path_(path), stream_(-1), direct_(-1) {
    // One large read tells whether it failed; the pieces of a split one do not.
    fReadBuffer::set_xfer_breakvalue(0);
    const uint64_t file_bytes = size_of_regular_file(path);
    open_input(direct_, path, /*direct*/ false);
    read_header(file_bytes);
    find_frames(file_bytes);
    direct_.close_file();
    open_input(direct_, path, /*direct*/ true);
    open_input(stream_, path, /*direct*/ true);
    stream_.cfg_buffers(k_read_ahead_blocks, k_block_bytes, k_block_bytes);
}

std::string ClipReader::frame_parameters(size_t frame) const {
    const auto found = frame_parameters_.find(frame);
    return found != frame_parameters_.end() ? found->second : std::string();
}

uint64_t ClipReader::buffer_bytes() const {
    return format_.frame_bytes() + 2 * direct_.alignment;
}

/// The text from `position` to the next line end, or as far as a line may reach.
ClipReader::Line ClipReader::read_line(uint64_t position, size_t longest, uint64_t file_bytes) {
    const uint64_t unit = direct_.alignment;
    const uint64_t start = rounded_down(position, unit);
    const uint64_t text_end = position + std::min<uint64_t>(longest, file_bytes - position);
    std::vector<char> text(rounded_up(text_end, unit) - start);
    if (direct_.read_raw_bytes(text.data(), start, text.size(), text.size()) == 0) {
        fail(k_exit_unreadable, path_, formatted(tr("problem", "cannot be read at byte %llu"), number(start)));
    }
    const auto begin = text.begin() + static_cast<ptrdiff_t>(position - start);
    const auto limit = text.begin() + static_cast<ptrdiff_t>(text_end - start);
    const auto end = std::find(begin, limit, '\n');
    return {std::string(begin, end), end != limit, end == limit && text_end == file_bytes};
}

void ClipReader::read_header(uint64_t file_bytes) {
    const Line line = file_bytes > 0 ? read_line(0, k_longest_header, file_bytes) : Line();
    std::string problem = tr("problem", "not a YUV4MPEG2 clip");
    const auto parsed = parse_clip_header(line.text, problem);
    if (!line.has_end && is_clip_header(line.text)) {
        if (line.meets_end) fail(k_exit_truncated, path_, tr("problem", "truncated: ends inside the header"));
        problem = formatted(tr("problem", "the header does not end within %llu bytes"), number(k_longest_header));
    }
    if (!parsed || !line.has_end) fail(k_exit_bad_header, path_, problem);
    format_ = *parsed;
    first_frame_line_ = line.text.size() + 1;
}

void ClipReader::find_frames(uint64_t file_bytes) {
    const uint64_t frame_bytes = format_.frame_bytes();
    for (uint64_t position = first_frame_line_; position < file_bytes;) {
        const size_t frame = frame_starts_.size();
        const Line line = read_line(position, k_longest_frame_line, file_bytes);
        const auto parameters = parse_frame_line(line.text);
        if (line.meets_end && (parameters || is_start_of_frame_line(line.text))) {
            fail(k_exit_truncated, path_,
                 formatted(tr("problem", "truncated: ends inside the line of %s"), place(frame, position).c_str()));
        }
        if (!parameters || !line.has_end)
            fail(k_exit_bad_header, path_,
                 formatted(tr("problem", "no FRAME line: %s"), place(frame, position).c_str()));
        const uint64_t start = position + line.text.size() + 1;
        if (file_bytes - start < frame_bytes) {
            fail(k_exit_truncated, path_,
                 formatted(tr("problem", "truncated: %s needs %llu bytes, %llu are there"), place(frame, start).c_str(),
                           number(frame_bytes), number(file_bytes - start)));
        }
        if (!parameters->empty()) frame_parameters_[frame] = *parameters;
        frame_starts_.push_back(start);
        position = start + frame_bytes;
    }
}

/// Takes a frame that lies ahead of the stream, at most one frame away. False for any other.
bool ClipReader::read_streamed(uint64_t position, void* buffer) {
    const uint64_t frame_bytes = format_.frame_bytes();
    const uint64_t nearest = stream_position_ == 0 ? first_frame_line_ : stream_position_;
    if (position < nearest || position - nearest > k_longest_frame_line) return false;
    const uint64_t gap = position - stream_position_;
    stream_position_ = k_lost;  // after a failure nobody knows where the stream stands
    if (stream_.skip_file(1, gap) != gap) return false;
    if (stream_.read_file(buffer, 1, frame_bytes) != frame_bytes) return false;
    stream_position_ = position + frame_bytes;
    return true;
}

bool ClipReader::read_directly(uint64_t position, void* buffer) {
    const uint64_t unit = direct_.alignment;
    const uint64_t frame_bytes = format_.frame_bytes();
    const uint64_t start = rounded_down(position, unit);
    const uint64_t wanted = rounded_up(position + frame_bytes, unit) - start;
    if (direct_.read_raw_bytes(buffer, start, wanted, buffer_bytes()) != wanted) return false;
    // A read counts in full at the end of the file: a clip that shrinks meanwhile shows in its size only.
    if (io_get_filesize64(direct_.file_handle, path_.c_str()) < position + frame_bytes) return false;
    std::memmove(buffer, static_cast<unsigned char*>(buffer) + (position - start), frame_bytes);
    return true;
}

void ClipReader::read_frame(size_t frame, void* buffer) {
    const uint64_t position = frame_starts_[frame];
    if (read_streamed(position, buffer) || read_directly(position, buffer)) return;
    fail(k_exit_unreadable, path_, formatted(tr("problem", "cannot be read: %s"), place(frame, position).c_str()));
}

}  // namespace tool
