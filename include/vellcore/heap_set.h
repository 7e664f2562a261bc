#pragma once
// System memory and the four named heaps: Frame, Proxy, Audio and Image.
//
// The heaps are made once, at start-up, sized from the machine's memory and an optional "memory.cfg". Buffers are
// asked for by heap or by size, and found again from their handle: the address of the owner's pointer variable, which
// the heap rewrites when it moves the buffer and nulls when it discards it (lockable_heap.h says more). A handle
// stays where it is for as long as it owns a buffer.

#include <cstdint>

#include "export.h"
#include "lockable_heap.h"

enum MEM_HEAP_ID : uint32_t {
    MEM_HEAP_AUTO = 0,  ///< by size: below 256 KiB Proxy, else Frame; then the other one; then system memory
    MEM_HEAP_FRAME = 1,
    MEM_HEAP_PROXY = 2,
    MEM_HEAP_AUDIO = 3,
    MEM_HEAP_IMAGE = 4
};

/// The machine's memory, bytes.
struct mem_info_str {
    uint64_t phys_total;  ///< physical memory, or the control group's limit where that is smaller
    uint64_t phys_avail;  ///< the part of it that the application may plan on
    uint64_t heap_total;  ///< the same as phys_total
    uint64_t heap_avail;  ///< the same as phys_avail
    uint64_t max_block;   ///< the largest block obtainable; 0 = not known
};
static_assert(sizeof(mem_info_str) == 40, "hosts know the layout");

/// A live system allocation, as it is on record.
struct spm_record {
    void* address;
    uint64_t size;   ///< bytes
    int32_t locked;  ///< not 0: unlocked with mem_unlock before it is freed
};
static_assert(sizeof(spm_record) == 24, "hosts know the layout");

// --- The machine ------------------------------------------------------------------------------------------------

/// Makes the record of system allocations shareable between threads and measures the machine. @return as mem_info.
VELL_API uint64_t mem_initialize(mem_info_str* info) noexcept;

/// Measures the machine; `info` may be null. Where the memory size cannot be learned, 512 MiB are assumed.
/// @return  heap_avail: three quarters of the memory.
VELL_API uint64_t mem_info(mem_info_str* info) noexcept;

/// The system's page size in bytes, at least 512.
[[nodiscard]] VELL_API int32_t mem_pagesize() noexcept;

/// Frees the small-block pools and the record of system allocations. Allocations that are left are counted in a debug
/// line, not freed; os_free no longer knows them.
VELL_API void mem_closedown() noexcept;

// --- System allocations -----------------------------------------------------------------------------------------

/// Allocates memory aligned to 65,536 bytes and keeps it on record.
///
/// @param size    bytes; not zeroed. Pages cost nothing until they are touched.
/// @param locked  not 0 says that the caller is going to lock the memory with mem_lock: os_free then unlocks it.
/// @return  null after a warning line when memory is short.
[[nodiscard]] VELL_API void* os_alloc(uint64_t size, int32_t locked) noexcept;

/// Frees an allocation of os_alloc. False, with a debug line, for any other address (null too).
VELL_API bool os_free(void* address) noexcept;

/// True when `address` is what os_alloc returned and not freed yet.
[[nodiscard]] VELL_API bool os_check_ptr(void* address) noexcept;

/// Keep memory in physical memory, or let it be paged again. Where the real and the effective user or group differ,
/// they change places for the call, in the whole process. @return 0, or -1 with errno set.
VELL_API int32_t mem_lock(void* address, uint64_t length) noexcept;
VELL_API int32_t mem_unlock(void* address, uint64_t length) noexcept;

// --- The heap set -----------------------------------------------------------------------------------------------

/// Makes the four heaps and writes the "Memory setup:" lines into the log. Sizes come from the machine's memory;
/// lines like "frame_heap_size=1024" (also proxy_, audio_, image_; MiB) in a file "memory.cfg" on the application's
/// search list replace them.
/// @return  the heaps' total size in bytes; 0 after an error line "FATAL: ..." when one could not be made. Once made,
///          later calls only answer the total. Kept: also after mem_free_pools, which leaves no heaps.
/// @thread  start-up only.
VELL_API uint64_t mem_alloc_pools() noexcept;

/// Destroys the heaps, without callbacks. Buffers in them become invalid. Shutdown only.
VELL_API void mem_free_pools() noexcept;

/// The heap of an id from 1 to 4; null for other ids and while there is none.
[[nodiscard]] VELL_API _mheap* mem_getheap(uint32_t id) noexcept;

/// Size in bytes and address of a heap's arena; 0 and null where mem_getheap is null.
[[nodiscard]] VELL_API uint64_t mem_heapsize(uint32_t id) noexcept;
[[nodiscard]] VELL_API void* mem_heapbase(uint32_t id) noexcept;

/// mheap_clearall, mheap_validate and mheap_dump of a heap. -1 for an id that is not 1 to 4. While there is no heap,
/// -1 for the first two and 0 for the dump.
VELL_API int32_t mem_clearall(uint32_t id) noexcept;
VELL_API int32_t mem_validate(uint32_t id) noexcept;
VELL_API int32_t mem_dumpheap(uint32_t id, const char* title) noexcept;

/// Allocates a buffer and returns it locked once.
///
/// @param handle  address of the owner's pointer; it must not own a buffer already. Receives the address.
/// @param size    bytes, above 0.
/// @param id      a MEM_HEAP_ID. With MEM_HEAP_AUTO the buffer may be a plain system allocation in the end: it is
///                never moved or discarded, and locking it does nothing.
/// @return  the buffer's address, or null: silently for an id above 4 or a null handle.
/// @waits   as mheap_alloc_lock while the heap's space is all locked: about a second in the Frame, Proxy and Audio
///          heaps (twice that with MEM_HEAP_AUTO, which tries two); in the Image heap, which compacts, until space is
///          unlocked, without limit.
[[nodiscard]] VELL_API void* mem_alloc_locked_buffer(void** handle, uint64_t size, uint32_t id) noexcept;

/// Lock, refresh and unlock a buffer, as mheap_lock, mheap_keep and mheap_unlock of the heap that owns it.
/// @return  that call's result; 0 for a system allocation and for a null `handle`; -1, with a debug line, when the
///          handle holds null (the buffer was discarded) or something unknown.
VELL_API int32_t mem_lock_buffer(void** handle) noexcept;
VELL_API int32_t mem_keep_buffer(void** handle) noexcept;
VELL_API int32_t mem_unlock_buffer(void** handle) noexcept;

/// Frees a buffer that is not locked. @return 1 from a heap, 0 for a system allocation, -1 when the handle holds null
/// or the buffer is locked.
/// Kept: a pointer that nobody knows is given to os_free, nulled and answered with 0.
VELL_API int32_t mem_free_buffer(void** handle) noexcept;

/// Unlocks a buffer once and frees it. @return as mem_free_buffer, and -1 for a pointer that nobody knows.
VELL_API int32_t mem_free_locked_buffer(void** handle) noexcept;

/// mheap_set_discard_callback on the Frame heap. Kept: buffers of the other heaps are not found.
VELL_API bool mem_set_discard_callback(void* data, mheap_discard_callback callback) noexcept;
