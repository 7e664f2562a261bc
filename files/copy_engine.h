// The one engine under all copies: one source through a buffered reader to any number of buffered writers.
//
// A copy is whole only when every byte that the source had when it was opened arrived, and no writer counts an error
// after its file was closed. A destination that is the source under another name, or an earlier destination, is left
// as it is: it holds the bytes already.
//
// The engine logs nothing. Readers and writers are closed on return, whatever happened.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "vellcore/buffered_file_reader.h"
#include "vellcore/buffered_file_writer.h"
#include "vellcore/file_operations.h"

namespace vell {

inline constexpr size_t k_most_destinations = 16;

struct CopyJob {
    const char* source;
    const char* const* destinations;
    size_t destination_count;               // at most k_most_destinations; 0 only reads
    file_copy_callback on_block = nullptr;  // sees every block before it is written; null and 0 at the end
    void* context = nullptr;                // of on_block
    unsigned long long* bytes_copied;       // grows by every block written to all destinations
    bool takes_empty_source = true;
    bool overwrites = true;   // else a file that exists, or appears meanwhile, is left alone
    bool is_flushed = false;  // the destinations' content is on the disk before the copy counts as written
};

/// The reader and the writers of a copy: the caller's, or ones that are made when they are first asked for and live as
/// long as this object.
class CopyTools {
public:
    CopyTools() noexcept = default;
    CopyTools(fReadBuffer* reader, fWriteBuffer* writer) noexcept : reader_(reader), writers_{writer} {}
    void use_writer(size_t destination, fWriteBuffer* writer) noexcept { writers_[destination] = writer; }

    /// Null when memory is short.
    [[nodiscard]] fReadBuffer* reader() noexcept;

    /// Opens a destination of the job. Null with errno when it cannot be opened; EEXIST for a file that the job leaves
    /// alone.
    [[nodiscard]] fWriteBuffer* open_writer(const CopyJob& job, size_t destination) noexcept;

private:
    [[nodiscard]] fWriteBuffer* writer(size_t destination) noexcept;

    std::unique_ptr<fReadBuffer> own_reader_;
    std::array<std::unique_ptr<fWriteBuffer>, k_most_destinations> own_writers_;
    fReadBuffer* reader_ = nullptr;
    std::array<fWriteBuffer*, k_most_destinations> writers_{};
};

enum class CopyFault { none, source_open, source_read, destination_open, destination_exists, write };

struct CopyResult {
    CopyFault fault = CopyFault::none;
    size_t destination = 0;             // of destination_open and destination_exists
    unsigned long long last_block = 0;  // bytes of the block written last, or refused
};

[[nodiscard]] CopyResult run_copy(const CopyJob& job, CopyTools& tools) noexcept;

}  // namespace vell
