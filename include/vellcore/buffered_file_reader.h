#pragma once
// fReadBuffer: reads a file from front to back in large aligned blocks, with up to seven more blocks being read
// while the caller works on the present one.

#include <cstddef>
#include <cstdint>

#include "export.h"

namespace vell {
struct Transfer;
}

/// Sets how readers and writers of the whole process transfer data. Files opened from here on follow it.
///
/// @param align             alignment of uncached transfers, bytes; 0 and below mean 8192.
/// @param no_write_through  writers go through the system's file cache.
/// @param no_direct_io      readers go through the system's file cache.
/// @param no_overlapped_io  handed to io_open64, which ignores it.
/// Kept: the switches are negations, so that false everywhere turns every feature on, which is also how a process
/// begins.
/// @return  the alignment set.
VELL_API int rwBufferConfigure(int align, bool no_write_through, bool no_direct_io, bool no_overlapped_io) noexcept;

/// Gives the same four values back.
VELL_API void rwBufferConfigGet(int& align, bool& no_write_through, bool& no_direct_io,
                                bool& no_overlapped_io) noexcept;

/// A sequential reader. It belongs to one thread at a time and has no lock of its own; readers on different threads
/// do not disturb each other.
///
///     fReadBuffer reader(-1);
///     reader.cfg_buffers(8, 1048576, 1048576);
///     if (!reader.open_file(path, /*shared*/ true, /*prefetch*/ false, /*direct*/ true)) ...
///     while (reader.getNextBlock() != 0) {
///         use(reader.cursor, reader.unread());
///         reader.skip_file(1, reader.unread());
///     }
///
/// Data is taken block by block (getNextBlock, cursor, unread), in pieces of any size (read_file, skip_file,
/// read_float), or from anywhere in the file (read_raw_bytes). Failures of transfers are logged as "AIO(...)" lines;
/// after one the reader answers 0 until it is opened or closed anew or, with one buffer, positioned.
///
/// A regular file that tells a size of 0 is read until it ends, without reading ahead: the system's information files
/// (/proc) are of that kind. Its `file_size` grows with every block. Devices that tell 0 have nothing to read.
///
/// Buffers (os_alloc) are made with the first block and kept over files; the destructor frees them. The fields are
/// for reading; a host that writes them takes over.
class VELL_API fReadBuffer {
public:
    struct buffer_slot {
        void* data;
        int request;                      ///< transfer number; -1 when none
        unsigned long long valid_length;  ///< not 0 while a read is in flight into the slot
    };

    /// @param handle  -1 for a reader that opens its own file; else a descriptor from io_open64, read from offset 0,
    ///                which stays the caller's. A size of 0 sets `failed`.
    explicit fReadBuffer(int handle) noexcept;
    /// Ends reads in flight, also those from a caller's handle.
    virtual ~fReadBuffer();
    fReadBuffer(const fReadBuffer&) = delete;
    fReadBuffer& operator=(const fReadBuffer&) = delete;

    /// Opens a file, closing the one before.
    ///
    /// @param shared    false: fails while anybody else holds the file exclusively (see io_open64).
    /// @param prefetch  begin to read the first block at once.
    /// @param direct    keep the file's data out of the system's cache, unless rwBufferConfigure switched that off.
    ///                  Blocks are then aligned to the configured alignment, else to the page size.
    /// @return  false, with `failed` set, when the file cannot be opened. Nothing is logged.
    bool open_file(const char* name, bool shared, bool prefetch, bool direct) noexcept;

    /// Ends reads in flight, closes the file (never a caller's handle) and forgets the position. The buffers stay.
    /// @return  true.
    bool close_file() noexcept;

    /// Chooses the buffers; takes effect when they are made.
    ///
    /// @param count             1 to 8; what lies outside is cut. With 2 and more, reads run ahead and positioning is
    ///                          forwards only. Ignored, together with the sizes, once buffers of another count exist.
    /// @param block_size        bytes, at least the alignment.
    /// @param first_block_size  bytes of the block at offset 0, at least the alignment; below 1 leaves it as it is.
    ///                          Reading ahead starts with the first block only when both sizes are equal.
    void cfg_buffers(int count, int block_size, int first_block_size) noexcept;

    /// Makes the buffers unless they are there and large enough. False after the error line "FileBuffer: Failed to
    /// allocate buffer space (KiB/index)": the reader goes on with as many as there are.
    bool ensure_buffers() noexcept;

    /// Serves `length` bytes of the caller's memory, which must outlive their use. They are the present block.
    void set_memory_buffer(const void* data, size_t length) noexcept;

    /// The block size, bytes (not a pointer).
    [[nodiscard]] unsigned long long get_buffer() const noexcept { return block_size; }

    /// Says whether the data is little-endian, as a new reader assumes.
    void set_endian(bool little) noexcept { swap = machine_little_endian != little; }
    [[nodiscard]] bool get_endian() const noexcept { return machine_little_endian != swap; }

    /// Moves on to the next block.
    /// @return  its length in bytes, from the block's start, which after set_position may lie before the cursor; 0 at
    ///          the end of the file and on failure.
    /// Kept: a block that was not read ahead has its length rounded up to the alignment at the end of the file. The
    /// bytes past the file's end are zeros.
    /// @waits   for the block's transfer. Not a cancellation point.
    unsigned long long getNextBlock() noexcept;

    /// The next four bytes as an IEEE-754 single in the data's byte order. Kept: infinities and NaNs are answered as
    /// 0.0, fewer than four bytes as -1.0.
    float read_float() noexcept;

    /// Sets how read_raw_bytes splits, for all readers: values from 65537 on are the size of a piece; smaller ones
    /// switch splitting off and leave the size (1.5 MiB at first).
    static void set_xfer_breakvalue(int value) noexcept;

    /// Reads from anywhere in the file, straight into the caller's memory except for what the present block holds.
    /// The position of the reader stays.
    ///
    /// @param length    bytes wanted. When only a part of them lies in the present block, the rest is rounded up to the
    ///                  alignment and really written: `capacity` must have room for it or nothing is read.
    /// @return  bytes delivered: `length`, plus the rounding; 0 or the part taken from the block when the rest starts
    ///          at an unaligned position or cannot be read.
    /// Kept: reads that are short at the end of the file, and pieces of a split read that fail, count in full.
    /// Splits run one at a time in the process, with ten pieces in flight.
    size_t read_raw_bytes(void* dest, unsigned long long position, size_t length, size_t capacity) noexcept;

    /// Copies the next `size` * `count` bytes. @return bytes copied; fewer at the end of the data.
    size_t read_file(void* dest, size_t size, size_t count) noexcept;

    /// The same without copying. @return bytes skipped.
    size_t skip_file(size_t size, size_t count) noexcept;

    /// Moves to an offset of the file. With several buffers only forwards out of the present block: going back is
    /// refused with the error line "FileBuffer: Failed to position backwards...".
    /// @return  false also past the end of the file.
    bool set_position(unsigned long long position) noexcept;

    /// Bytes of the present block from the cursor on; 0 without a block.
    [[nodiscard]] size_t unread() const noexcept;

    /// True when a block of the present (or last) file could not be read, or held less than the file's size promised.
    [[nodiscard]] bool block_failed() const noexcept { return has_failed_block_; }

    char file_name[1024] = {};  ///< not terminated when the path fills it
    int file_handle = -1;
    bool close_on_close = true;                  ///< the reader opened the file itself
    unsigned long long next_read_position = 0;   ///< file offset just past the present block
    unsigned long long read_ahead_position = 0;  ///< file offset up to which reads were issued
    unsigned long long file_size = 0;            ///< bytes; see above for a file that tells 0
    unsigned long long block_start = 0;          ///< file offset of the present block
    bool sequential = true;                      ///< read ahead
    bool failed = false;                         ///< set by open_file and the constructor
    unsigned long long alignment;
    unsigned long long first_block_size;
    unsigned long long block_size = 1'048'576;
    buffer_slot slots[8];
    int buffer_count = 1;
    int current_slot = 0;
    int next_slot = 0;
    unsigned int buffers_owned = 0;         ///< 1: the slots' buffers are the reader's
    unsigned long long skip = 0;            ///< bytes to skip at the start of the next block
    unsigned long long allocated_size = 0;  ///< of each buffer
    unsigned long long block_length = 0;    ///< of the present block
    const unsigned char* cursor = nullptr;  ///< next unread byte; null without a block
    bool swap = false;                      ///< the data has the other byte order
    bool machine_little_endian = true;

private:
    struct Request;  // what the file is asked for
    [[nodiscard]] Request request_at(unsigned long long position, unsigned long long nominal) const noexcept;
    [[nodiscard]] unsigned char* buffer_of(int slot) const noexcept;
    [[nodiscard]] int slot_after(int slot) const noexcept;
    bool issue(int slot) noexcept;
    void read_ahead(int most_slots) noexcept;
    void settle_padding(int slot, unsigned long long moved, unsigned long long valid,
                        unsigned long long issued) noexcept;
    bool collect(int slot) noexcept;
    bool read_synchronously() noexcept;
    bool read_until_end() noexcept;
    bool take_prefetched() noexcept;
    bool take_read_ahead() noexcept;
    bool take_first_fill() noexcept;
    bool fetch() noexcept;
    void begin_block() noexcept;
    unsigned long long drop_block() noexcept;
    void end_requests() noexcept;
    void free_buffers() noexcept;
    void forget_memory() noexcept;
    void prefetch_first_block() noexcept;
    size_t take(void* dest, unsigned long long bytes) noexcept;
    size_t read_split(unsigned char* dest, unsigned long long position, unsigned long long length) const noexcept;

    vell::Transfer* transfers_[8] = {};  // in flight, one per slot
    unsigned long long issued_[8] = {};  // bytes asked for, one per slot
    bool is_prefetched_ = false;         // slot 0 holds the first block, asked for by open_file
    bool is_broken_ = false;             // a transfer failed: there are no further blocks
    bool has_failed_block_ = false;
    bool is_memory_ = false;         // the present block is the caller's memory
    bool has_unknown_size_ = false;  // the end of the file has not been met, and its size is not told
};
