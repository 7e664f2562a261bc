#pragma once
// fWriteBuffer: writes a file from front to back through one or two aligned buffers. fMemBuffer: the same interface
// over a growing block of memory. AutoLock comes along.

#include <cstddef>
#include <cstdint>

#include "auto_lock.h"
#include "export.h"

namespace vell {
class CopyTools;
struct Transfer;
}  // namespace vell

/// A sequential writer.
///
///     fWriteBuffer writer(-1, true);
///     if (!writer.open_file(path, 0, /*write_through*/ true)) ...
///     writer.write_file(data, 1, bytes);
///     writer.close_file(/*final*/ true);
///     if (writer.error() != 0) ...                  // only this tells whether the file is whole
///
/// Data goes out in whole multiples of the alignment at aligned offsets, so that transfers can bypass the file cache;
/// close_file cuts the file to its real size. Until then the file is longer, by zeros (or by what the file held there
/// before: nothing beside the data written is changed).
///
/// Failures never stop a writer: each failed transfer is counted and logged as an "AIO(...)" line. A writer with
/// failures that is opened again first deletes the file that it wrote badly.
///
/// A writer belongs to one thread at a time; only close_file may come from another one. Without a descriptor it
/// writes to memory: see set_memory_buffer.
class VELL_API fWriteBuffer {
public:
    /// @param handle    -1 for a writer that opens its own file or writes to memory; else a descriptor open for
    ///                  reading and writing, which stays the caller's. close_file cuts such a file, too, to what was
    ///                  written through this writer: to nothing when that was nothing.
    /// @param allocate  with a handle: make two buffers of 1 MiB at once.
    fWriteBuffer(int handle, bool allocate) noexcept;
    /// close_file(true) when a descriptor is held, reset_buffers.
    virtual ~fWriteBuffer();
    fWriteBuffer(const fWriteBuffer&) = delete;
    fWriteBuffer& operator=(const fWriteBuffer&) = delete;

    /// Makes buffers of max(size, alignment) bytes from the named heaps, after flushing what is there; does nothing
    /// when size and mode are the present ones. Short of memory the writer has no buffer, after the warning "WRITE
    /// BUFFER: Allocation failed (size = bytes)". Two buffers: one is written while the other fills.
    virtual void set_buffer(int size, bool double_buffered) noexcept;
    /// The buffer being filled; null without one.
    [[nodiscard]] virtual void* get_current_buffer() const noexcept;
    /// set_buffer in the present mode, when `size` exceeds the buffer's.
    virtual void ensure_minimum_buffer_size(int size) noexcept;
    /// Waits for writes in flight and writes what the buffer holds, rounded up: the next byte then belongs behind the
    /// rounding. Nothing without a descriptor.
    virtual void flush_buffers() noexcept;
    /// Frees the buffers and the memory block, with what they hold.
    virtual void reset_buffers() noexcept;
    /// Frees the buffers; from 1 on, takes a memory block of `size` bytes (malloc), which a writer without descriptor
    /// fills and grows by 131,072 bytes at a time.
    virtual void set_memory_buffer(int size) noexcept;
    /// Hands the memory block over: the caller frees it with free. Null when there is none.
    /// @param used  bytes written into it, at most 2147483647.
    virtual void* get_buffer_used(int& used) noexcept;
    /// True when the buffer holds data for a file.
    [[nodiscard]] virtual bool data_pending() const noexcept;

    /// Creates or empties a file (permissions 0666), closing the one before. A writer with errors first logs "Failed to
    /// write file 'name'." and deletes that file when it is a regular one.
    ///
    /// @param size           ignored.
    /// @param write_through  keep the file's data out of the system's cache, unless rwBufferConfigure switched that
    /// off.
    /// @return  false when the file cannot be created. Nothing is logged.
    virtual bool open_file(const char* name, long long size, bool write_through) noexcept;

    /// Closes the file.
    ///
    /// @param final  true: write everything, cut the file to its size, close the descriptor (never a caller's).
    ///               false: begin to. When the whole file is still in the first buffer its write is started and the
    ///               file stays open: a later close_file(true) ends it.
    /// @return  true; false only for final = false when writes are still in flight, or could not be started: call
    ///          again. A failure to cut is logged as "Writebuffer set FileSize". error() tells about the others.
    /// @waits   final: for all transfers. May be called by another thread than the one that writes, ordered by the
    ///          host.
    virtual bool close_file(bool final) noexcept;

    /// Writes `size` * `count` bytes. @return bytes taken: all, unless memory is short or there is no buffer (which
    /// counts as an error when a file is open).
    virtual size_t write_file(const void* data, size_t size, size_t count) noexcept;

    /// Writes the caller's block at the file offset of the buffer's start, without copying. The block must stay
    /// unchanged until flush_buffers or close_file. What the buffer holds after offset 0 is not written first: flush.
    ///
    /// @param length  bytes. When it is not a multiple of the alignment, a warning "fWriteBuffer: Write buffer not
    ///                aligned" is logged and the length rounded up: the block must have room for that.
    /// @return  `length`, or 0 without a file and on failure.
    virtual size_t add_write_buffer(const void* data, size_t length) noexcept;

    /// Offset in the file of the next byte.
    [[nodiscard]] virtual size_t get_file_position() const noexcept;
    /// Moves the next byte's offset. Kept: outside the buffer it is rounded down to the alignment.
    /// @return  true.
    virtual bool set_file_position(size_t position) noexcept;
    [[nodiscard]] virtual bool is_file_position_inside_current_buffer(size_t position) const noexcept;
    /// Failed transfers since the file was opened.
    [[nodiscard]] virtual int error() noexcept;

    /// Says in which byte order the put_ calls store; little-endian at first.
    void set_endian(bool little) noexcept { swap = machine_little_endian != little; }
    [[nodiscard]] bool get_endian() const noexcept { return machine_little_endian != swap; }

    /// Store 1, 2 or 4 bytes. @return the new offset in the buffer, or, when the buffer is nearly full, write_file's
    /// result.
    size_t put_byte(int value) noexcept;
    size_t put_short(unsigned short value) noexcept;
    size_t put_int(unsigned int value) noexcept;
    size_t put_float(float value) noexcept;

protected:
    char file_name[1024] = {};  ///< not terminated when the path fills it
    int file_handle;
    bool close_on_close;                        ///< the writer opened the file itself
    unsigned long long buffer_file_offset = 0;  ///< of the buffer's first byte
    unsigned long long file_size = 0;           ///< highest end of data written
    int request_a = -1;                         ///< number of the write of a full buffer; -1 none
    int request_b = -1;                         ///< number of the latest direct write; -1 none
    int error_count = 0;
    int write_count = 0;                ///< writes issued
    unsigned char* buffer_a = nullptr;  ///< being filled
    unsigned char* buffer_b = nullptr;  ///< being written; null with one buffer
    void* locked_block = nullptr;       ///< the heap block that holds both; its address is the heap's handle
    int buffer_size = 0;                ///< bytes per buffer, or of the memory block
    unsigned char* memory_block = nullptr;
    unsigned char* write_pointer = nullptr;  ///< where the next byte goes
    unsigned long long used = 0;             ///< highest offset written in the buffer
    unsigned long long offset = 0;           ///< of the next byte in the buffer
    unsigned long long alignment;
    bool machine_little_endian = true;
    bool swap = false;
    __mutex_str* mutex;  ///< held by close_file

private:
    friend class vell::CopyTools;
    [[nodiscard]] unsigned long long rounded_used() const noexcept;
    void carve_buffers(unsigned long long bytes, bool double_buffered) noexcept;
    void start_empty_buffer() noexcept;
    void advance(unsigned long long data_bytes, unsigned long long file_bytes) noexcept;
    void wait_for_buffer() noexcept;
    void wait_for_direct(int most_left) noexcept;
    void poll_requests() noexcept;
    void count_result(vell::Transfer*& transfer) noexcept;
    bool fill_from_file(unsigned long long from, unsigned long long to) noexcept;
    // A memory block beside an open file is not for that file.
    [[nodiscard]] bool holds_whole_file() const noexcept {
        return buffer_a != nullptr && request_a == -1 && buffer_file_offset == 0 && used != 0;
    }
    bool begin_early_write() noexcept;
    bool begin_buffer_write(unsigned long long bytes) noexcept;
    bool make_room() noexcept;
    bool grow_memory() noexcept;
    void write_full_buffer() noexcept;
    size_t store(const unsigned char* data, unsigned long long bytes) noexcept;
    size_t put(uint32_t value, unsigned bytes, bool fits) noexcept;
    void discard_failed_file() noexcept;
    void close_descriptor() noexcept;

    static constexpr int k_most_direct = 6;
    vell::Transfer* transfer_a_ = nullptr;        // of request A
    vell::Transfer* direct_[k_most_direct] = {};  // direct writes in flight, oldest first
    int direct_count_ = 0;
    bool must_be_new_ = false;            // open_file leaves a file that exists alone and fails with EEXIST
    bool syncs_on_close_ = false;         // the next final close flushes the file; a failure counts as an error
    unsigned long long buffer_room_ = 0;  // bytes that may be written from the start of a buffer
};

/// A writer into memory, which grows by 131,072 bytes at a time. Calls about files do nothing and succeed.
class VELL_API fMemBuffer : public fWriteBuffer {
public:
    fMemBuffer() noexcept;
    /// Frees memory that is its own.
    ~fMemBuffer() override;

    /// Writes into the caller's memory from here on: it is neither grown nor freed, and a write that does not fit is
    /// cut. With a size below 1 only resets.
    void set_memory_buffer(void* memory, int size) noexcept;

    /// Starts over with `size` bytes of its own, unless the memory is the caller's.
    void set_memory_buffer(int size) noexcept override;
    void set_buffer(int size, bool double_buffered) noexcept override;
    [[nodiscard]] void* get_current_buffer() const noexcept override;
    /// Kept: growing this way discards what was written.
    void ensure_minimum_buffer_size(int size) noexcept override;
    void flush_buffers() noexcept override;
    void reset_buffers() noexcept override;
    /// Hands the memory over to the caller, who frees it with free. Writing goes on in new memory.
    void* get_buffer_used(int& used) noexcept override;
    [[nodiscard]] bool data_pending() const noexcept override;
    bool open_file(const char* name, long long size, bool write_through) noexcept override;
    bool close_file(bool final) noexcept override;
    size_t write_file(const void* data, size_t size, size_t count) noexcept override;
    size_t add_write_buffer(const void* data, size_t length) noexcept override;
    [[nodiscard]] size_t get_file_position() const noexcept override;
    /// Any position; a gap is filled with zeros by the next write.
    bool set_file_position(size_t position) noexcept override;
    [[nodiscard]] int error() noexcept override;

protected:
    unsigned char* memory = nullptr;
    int capacity = 0;  ///< bytes
    unsigned char* mem_write_pointer = nullptr;
    unsigned long long mem_used = 0;  ///< bytes written
    unsigned long long position = 0;  ///< of the next byte
    bool owns_memory = true;

private:
    bool grow() noexcept;
    bool reach_position() noexcept;
    size_t store(const unsigned char* data, unsigned long long bytes) noexcept;
};
