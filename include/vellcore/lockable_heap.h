#pragma once
// Lockable heaps: one large arena each, carved into blocks for video frames, proxies, audio and images.
//
// An owner keeps a pointer variable and passes its address, the handle, to the heap. The heap writes the block's
// address into it. While the block is locked it stays where it is; unlocked, it may be discarded to make room for
// another (its discard callback runs and the pointer becomes null) and, in a compacting heap, moved (the pointer
// follows). The block that was locked, kept, unlocked or allocated the longest ago is discarded first.
//
//     mheap_alloc_lock -> work -> mheap_unlock -> ... -> mheap_lock, which says -1 when the block is gone -> work ->
//     mheap_unlock -> mheap_free
//
// Read the pointer only between a successful lock and the unlock: at any other time another thread's allocation may
// be changing it. The handle stays where it is while it owns a block, and owns one block at a time: allocating into a
// handle that still owns one leaves a block behind whose later discard nulls the pointer to the new one.
//
//     base                                                            end marker
//     [header|data......][header|data..][header|free space...........][header]
//
// Each heap has one mutex; every operation that changes blocks holds it throughout. Discard callbacks run under it and
// must not enter the same heap. When a heap's headers are found overwritten, that is reported as an error and the heap
// stays closed or the process is sent signal 11, as the calls say.

#include <cstddef>
#include <cstdint>

#include "export.h"
#include "threads.h"

enum mheap_mode : int32_t {
    MHEAP_DISCARD = 0,  ///< blocks never move; an allocation that finds no room gives up after about a second
    MHEAP_COMPACT = 1   ///< unlocked blocks may be moved together; an allocation waits for room without limit
};

/// Told that a block is about to be taken away. `data` is still readable. Runs under the heap's mutex.
typedef void (*mheap_discard_callback)(void* data);

/// The header before every block's data. Read it only for diagnosis; the heap alone writes it.
struct mheap_mblk {
    uint64_t state;  ///< 0 free, 1 in use
    void** owner;    ///< the handle; null in a free block and while a release is pending
    void* data;      ///< this header + the header size; null in a free block
    uint64_t size;   ///< of the whole block in bytes, header included; a multiple of the alignment
    uint32_t lock_count;
    uint32_t exclusive_count;        ///< locks taken by address
    uint64_t stamp;                  ///< of the last use; smaller is longer ago
    mheap_discard_callback discard;  ///< or null
    uint32_t flags;                  ///< bit 0: freed while locked by address, released when such a lock is dropped
};
static_assert(sizeof(mheap_mblk) == 64 && offsetof(mheap_mblk, size) == 24 && offsetof(mheap_mblk, stamp) == 40 &&
                  offsetof(mheap_mblk, flags) == 56,
              "hosts know the layout");

/// A heap. The library appends fields of its own: heaps are made by mheap_initialize only.
struct _mheap {
    char name[32];         ///< not terminated when it fills the field
    uint64_t total_size;   ///< of the arena in bytes, a multiple of the alignment
    uint64_t alignment;    ///< bytes
    uint64_t header_size;  ///< bytes
    mheap_mode mode;
    mheap_mblk* first;  ///< the first header, at the arena's start
    mheap_mblk* end;    ///< the end marker: a header of zeros behind the last block
    void* base;         ///< the arena
    __mutex_str* mutex;
    __cond_str* space;     ///< signalled by every successful mheap_unlock
    uint64_t use_counter;  ///< stamps blocks in the order of their use
};
static_assert(sizeof(_mheap) == 112 && offsetof(_mheap, total_size) == 32 && offsetof(_mheap, mode) == 56 &&
                  offsetof(_mheap, first) == 64 && offsetof(_mheap, mutex) == 88 &&
                  offsetof(_mheap, use_counter) == 104,
              "hosts know the layout");

// --- Making and ending a heap -----------------------------------------------------------------------------------

/// Makes a heap: takes its whole arena from os_alloc.
///
/// @param name       at most 32 bytes are kept.
/// @param size       bytes, rounded down to a multiple of the alignment. It must hold more than two headers.
/// @param alignment  of blocks and their sizes in bytes, from 4 on. A header takes one alignment when that is 64 or
///                   more, else the next multiple of it above 64 (an alignment of 16: 80 bytes).
/// @param mode       an mheap_mode.
/// @param lock_flag  passed to os_alloc.
/// @return  the heap, to be given to mheap_destroy; or null, with os_alloc's lines when the arena cannot be had and
///          silently otherwise. An index beside the arena takes about 4 % more for an alignment of 16, nothing worth
///          mentioning for pages, and only where the arena is used.
[[nodiscard]] VELL_API _mheap* mheap_initialize(const char* name, uint64_t size, int32_t alignment, int32_t mode,
                                                int32_t lock_flag) noexcept;

/// Gives everything back, whatever is in use or locked; callbacks do not run. No other thread may be inside the heap
/// or use it afterwards. The record of a heap that was closed by corruption stays, because threads may wait for it
/// for ever.
VELL_API void mheap_destroy(_mheap* heap) noexcept;

/// The arena's size in bytes and its address. 0 and null for a null heap.
[[nodiscard]] VELL_API uint64_t mheap_totalsize(_mheap* heap) noexcept;
[[nodiscard]] VELL_API void* mheap_heapbase(_mheap* heap) noexcept;

/// Moves the whole heap into a larger arena. Kept: every block gets a new address, locked or not, and the pointers of
/// all owners follow, so nobody may be working on a block; callbacks do not run. Not to be called while other threads
/// use the calls that take no lock.
///
/// @param new_size   bytes, rounded down to a multiple of the alignment.
/// @param lock_flag  passed to os_alloc.
/// @return  the rounded size, also when memory is short and the heap stays as it was; all ones when the size is not
///          larger than the present one, for a null heap, and for one with overwritten headers.
/// Kept: the added space is one header shorter than it could be. Added space that would not hold two headers stays
/// unused.
VELL_API uint64_t mheap_resize(_mheap* heap, uint64_t new_size, int32_t lock_flag) noexcept;

// --- Blocks by handle -------------------------------------------------------------------------------------------

/// True when the handle's pointer is a block of this heap that names this very handle as its owner. Takes no lock and
/// may run inside a discard callback: the answer can be outdated as soon as it is given.
[[nodiscard]] VELL_API bool mheap_is_valid(_mheap* heap, void** handle) noexcept;

/// Allocates a block and returns it locked once.
///
/// The lowest stretch of free space that is large enough is taken. When there is none, a compacting heap moves
/// unlocked blocks together, and both kinds then discard unlocked blocks, the least recently used first, also when
/// that turns out in vain.
///
/// @param size    bytes, above 0. The block takes size + header, rounded up to the alignment.
/// @param handle  the owner's pointer; see above.
/// @return  the lock count, 1; or -1: a size of 0 (an error line), a null heap or handle, no room.
/// @errors  no room because of locks: the block list at debug level in every round, twice in a heap that does not
///          compact, which also writes a warning line for each wait and each wait that timed out. Overwritten headers:
///          "HEAP '...' CORRUPTED: ..." at error level and signal 11 sent to the process.
/// @owner   the block stays the heap's: give it back with mheap_free.
/// @thread  any. Callbacks of discarded blocks run before it returns.
/// @waits   MHEAP_DISCARD: ten times at most 100 ms for an unlock. MHEAP_COMPACT: until space is unlocked, with no
///          limit; a size that not even the empty heap could hold is refused at once.
[[nodiscard]] VELL_API int32_t mheap_alloc_lock(_mheap* heap, uint64_t size, void** handle) noexcept;

/// Locks the handle's block once more and renews its stamp. A copy of the owner's pointer in another variable will
/// do as the handle.
/// @return  the lock count; or -1: the pointer is null (silently) or no block of this heap (a debug line).
[[nodiscard]] VELL_API int32_t mheap_lock(_mheap* heap, void** handle) noexcept;

/// Renews the block's stamp without locking it, so that it is discarded later. @return as mheap_lock.
VELL_API int32_t mheap_keep(_mheap* heap, void** handle) noexcept;

/// Drops one lock, renews the stamp and wakes one waiting allocation.
/// @return  the lock count that is left; 0 with a debug line when the block was not locked; -1 with a debug line when
///          the pointer, null included, is no block of this heap.
VELL_API int32_t mheap_unlock(_mheap* heap, void** handle) noexcept;

/// Frees the handle's block: its callback runs and the pointer becomes null. While the block is locked by address the
/// pointer and the owner go at once, and the space follows with the next mheap_unlock_ex.
/// @return  1; or -1: the pointer is null (silently), no block of this heap, another handle's, or the block is locked
///          (a debug line each).
VELL_API int32_t mheap_free(_mheap* heap, void** handle) noexcept;

/// Releases one block whatever its owner and locks: callback, owner's pointer to null, free. For callers that hold
/// the heap's mutex. What is not the header of a block in use is left alone.
VELL_API void mheap_free_blk(_mheap* heap, mheap_mblk* block) noexcept VELL_NO_LOCK_CHECK;

// --- Blocks by address ------------------------------------------------------------------------------------------

/// Locks the block that contains `address`, in its data or its header, against moving and discarding. This lock is
/// counted apart and does not renew the stamp. Kept: mheap_free and mheap_resize do not stop at it.
/// @return  the block's data address; null outside the heap and in free space.
[[nodiscard]] VELL_API void* mheap_lock_ex(_mheap* heap, void* address) noexcept;

/// Drops one such lock; `data` is what mheap_lock_ex returned. Wakes nobody.
/// Kept: a block that was freed meanwhile is released with the first lock dropped, even when more are left.
/// @return  true when a lock was dropped.
VELL_API bool mheap_unlock_ex(_mheap* heap, void* data) noexcept;

/// Sets, or with null clears, what is called when the block at `data` is discarded, freed or cleared.
/// @return  false when `data` is no block's data address.
VELL_API bool mheap_set_discard_callback(_mheap* heap, void* data, mheap_discard_callback callback) noexcept;

// --- The whole heap ---------------------------------------------------------------------------------------------

/// Free bytes, and free bytes plus those of unlocked blocks, headers included. Takes no lock: a snapshot.
/// @return  the arena's size in bytes.
VELL_API uint64_t mheap_queryspace(_mheap* heap, uint64_t& free_bytes, uint64_t& reclaimable_bytes) noexcept;

/// Has the system back the whole arena with memory, then reads the first byte of each page but the last. Takes no
/// lock. @return the bytes' sum, which means nothing; 0 for an arena of one page.
VELL_API uint32_t mheap_prefetch_all(_mheap* heap) noexcept;

/// Releases every unlocked block, with its callback, and merges what is free.
/// @return  0; -1 for a null heap. Overwritten headers: an error line, signal 11 to the process and, if it survives,
///          -1 with the heap closed: its mutex stays held.
VELL_API int32_t mheap_clearall(_mheap* heap) noexcept VELL_NO_LOCK_CHECK;

/// Checks every header and merges what is free.
/// @return  0; -1 for a null heap. Overwritten headers: -1, with an error line unless a size was 0. The heap is then
///          closed, deliberately: its mutex stays held and later calls on it wait for ever.
VELL_API int32_t mheap_validate(_mheap* heap) noexcept VELL_NO_LOCK_CHECK;

/// Writes the list of blocks under `title` at debug level, sizes in KiB. Never waits: while another thread is inside
/// the heap, or the heap is closed, the list is a snapshot that may be torn.
VELL_API void mheap_dump(_mheap* heap, const char* title) noexcept VELL_NO_LOCK_CHECK;

/// Writes a detailed list, sizes in bytes, with a star before the block whose header is `mark` (null: none). Waits as
/// little as mheap_dump. Kept: a locked block gives two lines and counts twice.
VELL_API void mheap_trace(_mheap* heap, mheap_mblk* mark) noexcept VELL_NO_LOCK_CHECK;
