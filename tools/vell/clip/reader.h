// A clip on disk: its format, where its frames are, and their bytes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "clip/y4m_format.h"
#include "vellcore/buffered_file_reader.h"

namespace tool {

/// Opens a clip and finds all its frames. Frames that follow each other are read ahead; any other is fetched with a
/// read of its own. One thread at a time.
class ClipReader {
public:
    /// Throws Failure when the file cannot be read, is no clip, or is truncated.
    explicit ClipReader(const std::string& path);

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const ClipFormat& format() const { return format_; }
    [[nodiscard]] size_t frame_count() const { return frame_starts_.size(); }
    /// The parameters of the frame's line, as they came: "" or " Ixyz".
    [[nodiscard]] std::string frame_parameters(size_t frame) const;

    /// Bytes that a buffer for read_frame needs: a frame's, and room for whole transfer units around them.
    [[nodiscard]] uint64_t buffer_bytes() const;
    /// Reads a frame to the start of `buffer`. Throws Failure.
    void read_frame(size_t frame, void* buffer);

private:
    struct Line {
        std::string text;        // without the line end
        bool has_end = false;    // else what there is of it
        bool meets_end = false;  // of the file: nothing follows the text
    };

    void read_header(uint64_t file_bytes);
    void find_frames(uint64_t file_bytes);
    [[nodiscard]] Line read_line(uint64_t position, size_t longest, uint64_t file_bytes);
    [[nodiscard]] bool read_streamed(uint64_t position, void* buffer);
    [[nodiscard]] bool read_directly(uint64_t position, void* buffer);

    std::string path_;
    ClipFormat format_;
    uint64_t first_frame_line_ = 0;                   // file position
    std::vector<uint64_t> frame_starts_;              // file positions of the frames' first samples
    std::map<size_t, std::string> frame_parameters_;  // of the frames that have any
    fReadBuffer stream_;                              // read-ahead, forwards only
    fReadBuffer direct_;                              // reads anywhere
    uint64_t stream_position_ = 0;                    // of the stream's next byte
};

}  // namespace tool
