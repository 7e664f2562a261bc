#pragma once
// Aligned allocation, pools of small blocks and a memory copy that uses every processor.

#include <cstddef>
#include <cstdint>

#include "export.h"
#include "vector.h"

// --- Aligned blocks -------------------------------------------------------------------------------------------
//
// Every block knows its size. Two 64-bit words stand before it, last the distance back to the start of its
// allocation:
//
//     [ padding 1..alignment | requested size 8 | back distance 8 | block ... ]
//     ^ start of the allocation                                   ^ returned address, a multiple of the alignment

/// Allocates an aligned block.
///
/// @param size       bytes; 0 gives a block without usable bytes.
/// @param alignment  any number of bytes from 4 on, not only powers of two; below 4 (negative too) it is the page
///                   size.
/// @return  the block, not zeroed; or null after the error line "MEMORY: Aligned allocation failed.. (Requested:
///          %.3f)" with KiB. Give it back with a_free.
[[nodiscard]] VELL_API void* a_alloc(uint64_t size, int32_t alignment) noexcept;

/// Allocates a new block, copies what fits of the old one into it and frees the old one. A null `block` makes it
/// a_alloc. On failure the old block stays as it is; a warning line follows a_alloc's error line.
[[nodiscard]] VELL_API void* a_realloc(void* block, uint64_t size, int32_t alignment) noexcept;

/// Gives a block back. Null is accepted.
VELL_API void a_free(void* block) noexcept;

/// Copies `length` bytes; the ranges may overlap. @return `destination`.
VELL_API void* memcopy(void* destination, const void* source, uint64_t length) noexcept;

/// Does nothing; always 4096, a fixed answer for callers that ask the allocator to compact itself.
VELL_API uint64_t a_heapcompact() noexcept;

// --- Pools of small blocks ------------------------------------------------------------------------------------

/// A block of at least `size` bytes: from a pool of 32, 64 or 128-byte items, above 128 bytes from malloc. A pool's
/// block is aligned to 8 bytes only, so it does not suit types that want 16. A pool's block that was never used
/// before is zeroed. The most recently freed block is handed out first.
/// @return  null when memory is short.
/// @thread  the pools have no lock: callers on several threads serialise sb_alloc, sb_free and sb_destroy.
[[nodiscard]] VELL_API void* sb_alloc(uint64_t size) noexcept;

/// Gives a block back. `size` must be what sb_alloc was asked for: it chooses the pool. Null is accepted.
VELL_API void sb_free(void* block, uint64_t size) noexcept;

/// Frees the three pools whole. Every pooled block becomes invalid; later allocations start the pools again.
VELL_API void sb_destroy() noexcept;

/// A pool of items of one size, the base of sb_alloc.
///
/// Items are cut from chunks of `items_per_chunk`; a chunk is asked for when no item is free, at half the size and
/// half again while memory is short, down to 32 KiB. An item is a 64-bit link word followed by the payload:
///
///     [ link 8 | payload item_size ]   link: the next free item; what it held when the item was handed out
///
/// Untouched items of a chunk are threaded one ahead of what was handed out, so a fresh chunk costs only the pages
/// that are used. No lock: one thread at a time.
template <class T>
class Allocator {
public:
    struct _alloc_blk;  ///< an item, known only by its address

    /// Obtains nothing yet. Both arguments are above 0.
    constexpr Allocator(uint64_t item_size, uint64_t items_per_chunk) noexcept
        : items_per_chunk_(items_per_chunk), item_size_(item_size) {}
    virtual ~Allocator() noexcept;
    Allocator(const Allocator&) = delete;
    Allocator& operator=(const Allocator&) = delete;

    /// Frees every chunk and forgets the free items.
    virtual void Clear() noexcept;

    /// One item: the address of its link word, 8 bytes before the payload. Null, after the continuation line "Failed
    /// to extend the memory pool!", when memory is short.
    [[nodiscard]] _alloc_blk* allocate_blk() noexcept;

    /// Makes an item that allocate_blk gave the first free one.
    void free_blk(_alloc_blk* item) noexcept;

    /// The item that allocate_blk hands out next; null when it has to obtain a chunk first.
    [[nodiscard]] _alloc_blk* next_free() const noexcept { return free_head_; }

    /// Frees every chunk, the newest first. Kept: the list of free items is left alone and dangles; only Clear is
    /// safe for a pool that goes on.
    void reset_mem_pools() noexcept;

private:
    VELL_LOCAL _alloc_blk* allocate_last() noexcept;
    VELL_LOCAL bool grow(uint64_t stride) noexcept;
    VELL_LOCAL static void thread_whole_chunk(std::byte* first, std::byte* end, uint64_t stride) noexcept;

    vl_vector<_alloc_blk*> chunks_;    // every chunk, in the order obtained
    _alloc_blk* free_head_ = nullptr;  // the next item to hand out
    uint64_t items_per_chunk_;         // of the next chunk
    uint64_t item_size_;               // payload bytes
};
extern template class VELL_API Allocator<char>;
static_assert(sizeof(Allocator<char>) == 64, "hosts know the layout");

// --- Copying with every processor -------------------------------------------------------------------------------

/// Copies `length` bytes with all threads of the processing pool; the ranges must not overlap. Every call is split,
/// however small. Without a pool the caller copies alone.
/// @return  `destination`.
/// @thread  one thread at a time, and not from inside a pool job. Waits for the pool.
VELL_API void* memcpy_mt(void* destination, const void* source, uint64_t length) noexcept;

/// The share of memcpy_mt that falls to the calling pool thread: with i = smp_id(), the bytes from length * i /
/// threads up to length * (i + 1) / threads.
VELL_API void memcpy_mt_proc(int32_t threads, void* destination, void* source, uint64_t length) noexcept;
