// Where a result goes: a file that appears under its name only when it is whole, or a stream.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace tool {

/// The bytes of one result, in order. All functions throw Failure.
class ClipOutput {
public:
    virtual ~ClipOutput() = default;
    virtual void write(const void* data, size_t bytes) = 0;
    /// Makes the result whole. Without it a file is removed again when the object goes.
    virtual void finish() = 0;
};

/// Opens the output of a command.
///
/// @param path   "-" is standard output. A file is written beside its place and renamed at the end; what is there
///               and is no regular file (a device, a pipe) is written to as it is.
/// @param input  the clip that is read: writing over it is refused.
[[nodiscard]] std::unique_ptr<ClipOutput> open_clip_output(const std::string& path, const std::string& input);

}  // namespace tool
