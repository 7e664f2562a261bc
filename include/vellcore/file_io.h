#pragma once
// Files by descriptor and 64-bit offset, read and written at once or as asynchronous transfers, and small files held
// in memory.
//
// A descriptor is the system's. io_open64 and io_create64 never answer 0, 1 or 2, so a result below 1 is a failure.
// Descriptors from elsewhere (pipes, sockets) may be used as well; offsets are then ignored and a transfer stays in
// flight until data comes.
//
// Any thread may call anything here. Nothing here is a cancellation point. Transfers work before vl_init_io64, after
// vl_close_io64 and in a forked child; there, reads that were in flight are done again and writes fail.

#include <cstddef>
#include <cstdint>

#include "export.h"

// --- Opening and closing ----------------------------------------------------------------------------------------

/// Empties the table of asynchronous transfers. Acts once until vl_close_io64.
VELL_API void vl_init_io64() noexcept;

/// Lets the next vl_init_io64 act again. Transfers in flight go on.
VELL_API void vl_close_io64() noexcept;

/// Opens a file with the flags of open(2), close-on-exec added; permissions of a new file are 0666.
///
/// @param nocache  keep the file's data out of the system's cache. A hint: transfers work with any buffer, offset and
///                 length. Those whose buffer, offset and length are multiples of what the disk asks for (4096 is
///                 always enough) bypass the cache, unless the data is in the cache already; the others pass through
///                 it and are dropped behind.
/// @param shared   false: take an exclusive lock on the whole file, which fails while another open of the file, also
///                 one of this process, holds it. Where the file system knows no locks there is none.
/// @param spare    ignored.
/// @return  a descriptor to be closed with io_close64, or -1 (errno tells why). Nothing is logged.
VELL_API int io_open64(const char* path, int flags, bool nocache, bool shared, bool spare) noexcept;

/// Opens for reading and writing, made if missing (permissions 0666) and emptied. No lock is taken.
/// The other arguments are ignored. @return a descriptor, or -1.
VELL_API int io_create64(const char* path, bool ignored, unsigned long long ignored_size) noexcept;

/// Closes a descriptor. Its transfers that were not begun are called off, the others are waited for, whoever started
/// them: no buffer is written to afterwards. Their slots are freed, the lock released.
/// @return  the result of close(2): 0 or -1.
VELL_API int io_close64(int descriptor) noexcept;

/// The file's size in bytes, or all ones after the error line "AIO: Can't get file status 'path': reason".
/// `path_for_message` may be null.
[[nodiscard]] VELL_API unsigned long long io_get_filesize64(int descriptor, const char* path_for_message) noexcept;

/// Cuts the file or extends it with zeros. @return false on failure, also for sizes of 2^63 and more.
VELL_API bool io_set_filesize64(int descriptor, unsigned long long size) noexcept;

// --- Transfers --------------------------------------------------------------------------------------------------
//
// Lengths are bytes and may exceed 4 GiB. A transfer goes on until every byte was moved, the file ended or an error
// came; one that ends at the end of the file counts as success.
//
// Transfers have numbers: 1, 2, 3 ... 2147483647, then -2147483648 once, then 1 again.

/// Reads or writes at once. The bytes asked for are counted.
/// @return  false after the error line "AIO(5): reason". True when everything was written, or was read as far as the
///          file goes.
VELL_API bool io_read64(int descriptor, void* buffer, long long offset, unsigned long long length) noexcept;
VELL_API bool io_write64(int descriptor, const void* buffer, long long offset, unsigned long long length) noexcept;

/// Starts a transfer, to be completed with io_complete64 on the same descriptor and handle variable. The buffer stays
/// in use until then.
///
/// @param handle  receives the transfer's number. Null: the transfer is done at once, is not counted, must move every
///                byte, and a pipe is refused; false after the error line "AIO(4): reason" (writing: "AIO(2)").
/// @return  true when the transfer was started. When it cannot be started (error lines "AIO(3a)" or, when the system
///          is short of threads for a second, "AIO(3b)"; writing "AIO(1a)", "AIO(1b)") it is done at once, which
///          io_complete64 then reports; false after "AIO(3c)" ("AIO(1c)") when that fails too or is short.
/// @waits   there are 96 slots, handed out strictly in turn. The call waits until the slot whose turn it is was freed,
///          also while others are free: a caller who collects late holds up every caller of this function.
/// On descriptor 0 it is done before the call returns, with the error line "AIO(5): reason" when it fails.
/// Transfers of one descriptor whose ranges overlap, one of them a write, are carried out in the order of starting.
VELL_API bool io_read_async64(int descriptor, void* buffer, long long offset, unsigned long long length,
                              int* handle) noexcept;
VELL_API bool io_write_async64(int descriptor, const void* buffer, long long offset, unsigned long long length,
                               int* handle) noexcept;

/// Completes a transfer.
/// @param wait  true: wait for its end; false: ask.
/// @return  1 done, or no such transfer; 0 still running; -1 failed, after the error line "AIO(5): reason", and for a
///          null handle. With 1 and -1 the slot is free.
VELL_API int io_complete64(int descriptor, int* handle, bool wait) noexcept;

/// Calls off the descriptor's transfers that were not begun and frees its slots, without waiting. Transfers that
/// run go on: their buffers stay in use until io_close64.
VELL_API void io_flush64(int descriptor) noexcept;

/// Fetches the bytes requested by transfers with a number since the last fetch, and starts again from 0. Null
/// pointers are skipped.
VELL_API void io_get_counters(unsigned long long* read_total, unsigned long long* write_total) noexcept;
inline void io_get_counters(unsigned long long& read_total, unsigned long long& write_total) noexcept {
    io_get_counters(&read_total, &write_total);
}

/// Adds to the counters.
VELL_API void io_inc_counters(unsigned long long read_bytes, unsigned long long write_bytes) noexcept;

/// A slot of the table of transfers.
struct async_transfer {
    int descriptor;             ///< 0 marks a free slot
    int handle;                 ///< the transfer's number
    unsigned long long length;  ///< bytes requested
    bool done_synchronously;    ///< finished by the time the starting call returned
    void* request;              ///< the transfer in flight; the library's own
};
static_assert(sizeof(async_transfer) == 32 && offsetof(async_transfer, done_synchronously) == 16,
              "hosts know the layout");

/// The slot whose turn it is; waits until it is free. For the library's own use: the caller holds the table's lock.
VELL_API async_transfer* io_get_slot() noexcept;

/// What carries the transfers: "threads" or "uring". VELLCORE_AIO in the environment chooses; a ring that cannot be
/// had is replaced by threads. Constant text.
[[nodiscard]] VELL_API const char* io_backend_name() noexcept;

/// How uncached transfers of this file, or of new files in this folder, are done: constant text such as "O_DIRECT,
/// RWF_DONTCACHE" (aligned transfers first, then the others); "unknown" when the path cannot be opened.
[[nodiscard]] VELL_API const char* io_uncached_mode(const char* path) noexcept;

// --- Files in memory --------------------------------------------------------------------------------------------

/// A file's contents and a position in them. One thread at a time.
struct mem_file {
    void* data;                   ///< null for an empty file
    unsigned long long size;      ///< bytes
    unsigned long long position;  ///< may lie past the size
    int at_end;                   ///< 1 after a read ran into the end
};
static_assert(sizeof(mem_file) == 32, "hosts know the layout");

/// Reads a whole file. The mode is that of fopen; one that empties the file does so.
///
/// A pipe is read until its other end is closed, and a file that tells a size of 0 (/proc) until it ends; 256 MiB and
/// more from one of these are a failure, because it may have no end. A character device has no size and counts as
/// empty.
/// @return  the file, to be freed with vl_close; null when it cannot be opened, is a folder, has no end, or memory is
///          short.
[[nodiscard]] VELL_API mem_file* vl_open(const char* path, const char* mode) noexcept;

/// Frees a file. @return 0; -1 for null.
VELL_API int vl_close(mem_file* file) noexcept;

/// Moves the position. Whence 0: to `offset`; 1: by `offset`; 2: to size - offset.
/// Kept: with whence 2 a positive offset lies before the end.
/// @return  the new position cut to 32 bits, or -1 for another whence and for null. The at-end flag stays.
VELL_API int vl_seek(mem_file* file, long long offset, int whence) noexcept;

/// The position; all ones for null.
[[nodiscard]] VELL_API unsigned long long vl_tell(mem_file* file) noexcept;

/// Copies `element_size` * `count` bytes and moves the position by as much.
/// @return  bytes (not elements); 0 when none were asked for; all ones when nothing is left, for an element size of 0
///          and for null.
/// Kept: a request is cut (and the at-end flag set) only above left * element_size * element_size bytes. What a
/// larger-than-left request gets beyond the data is zeros.
VELL_API size_t vl_read(void* buffer, size_t element_size, size_t count, mem_file* file) noexcept;

/// Copies a line: through the next newline or zero byte, or to the end of the data, which sets the at-end flag. A
/// terminating zero follows.
///
/// @param size  Kept: it does NOT bound the copy. The buffer must hold the longest line plus one byte. Below 2 nothing
///              is read and the answer is null.
/// @return  the address just past the terminating zero; null when no data is left (the flag stays as it is).
VELL_API char* vl_gets(char* buffer, int size, mem_file* file) noexcept;

/// The at-end flag; 1 for null.
[[nodiscard]] VELL_API int vl_eof(mem_file* file) noexcept;
