// The switches of readers and writers.

#include "files/io_settings.h"

#include "vellcore/buffered_file_reader.h"

namespace vell {

constinit IoSettings io_settings;

}  // namespace vell

using vell::io_settings;

int rwBufferConfigure(int align, bool no_write_through, bool no_direct_io, bool no_overlapped_io) noexcept {
    constexpr int k_usual_alignment = 8192;
    const int alignment = align > 0 ? align : k_usual_alignment;
    io_settings.alignment.store(static_cast<uint64_t>(alignment), std::memory_order_relaxed);
    io_settings.write_through.store(!no_write_through, std::memory_order_relaxed);
    io_settings.direct_io.store(!no_direct_io, std::memory_order_relaxed);
    io_settings.overlapped_io.store(!no_overlapped_io, std::memory_order_relaxed);
    return alignment;
}

void rwBufferConfigGet(int& align, bool& no_write_through, bool& no_direct_io, bool& no_overlapped_io) noexcept {
    align = static_cast<int>(io_settings.alignment.load(std::memory_order_relaxed));
    no_write_through = !io_settings.write_through.load(std::memory_order_relaxed);
    no_direct_io = !io_settings.direct_io.load(std::memory_order_relaxed);
    no_overlapped_io = !io_settings.overlapped_io.load(std::memory_order_relaxed);
}
