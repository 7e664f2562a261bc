// Buffers by handle: in which heap a buffer is made, and in which it is found again.
//
// No lock here: each heap has its own. A discard callback may free a buffer of another heap, so finding a buffer's
// heap takes no lock either. Whether a handle owns a block is decided under that heap's mutex, in the same section that
// works on the block: while another thread moves it, neither its header nor the handle can be believed.

#include <initializer_list>

#include "memory/heap_record.h"
#include "memory/heap_set_state.h"
#include "memory/size_text.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr int32_t k_failed = -1;
constexpr uint64_t k_frame_from = 262144;  // bytes: smaller buffers go to the Proxy heap

bool alloc_in(uint32_t id, uint64_t size, void** handle) noexcept {
    _mheap* heap = heap_set.heaps[id].load();
    return heap != nullptr && mheap_alloc_lock(heap, size, handle) >= 0;
}

void* alloc_from_system(void** handle, uint64_t size) noexcept {
    void* address = os_alloc(size, /*locked=*/0);
    write_handle(handle, address);
    if (address == nullptr)
        msgwarn("MEMORY: Heap allocation failed.. (Requested: %s)", SizeText(size, k_kib_bits).text());
    return address;
}

bool contains(_mheap* heap, const void* address) noexcept {
    const auto* base = static_cast<const std::byte*>(mheap_heapbase(heap));
    const auto* byte = static_cast<const std::byte*>(address);
    return byte >= base && byte < base + mheap_totalsize(heap);
}

/// The heap whose arena holds the address, or null. A moving block stays in its arena, so this needs no lock.
Heap* heap_around(const void* address) noexcept {
    for (const uint32_t id : {MEM_HEAP_FRAME, MEM_HEAP_PROXY, MEM_HEAP_AUDIO, MEM_HEAP_IMAGE}) {
        _mheap* heap = heap_set.heaps[id].load();
        if (heap != nullptr && contains(heap, address)) return &as_heap(heap);
    }
    return nullptr;
}

/// Runs `operation` on the block that the handle owns. False, with `result` untouched, when no heap has one for it.
/// The handle is read again under the heap's mutex: the block may have been moved or discarded since the first look.
template <class Operation>
bool with_owned_block(void** handle, int32_t& result, Operation operation) noexcept {
    Heap* heap = heap_around(read_handle(handle));
    if (heap == nullptr) return false;
    const HeapLock lock(*heap);
    const Unit unit = heap->core.block_of(handle);
    if (unit == k_no_unit) return false;
    result = operation(*heap, unit);
    return true;
}

/// An operation of the heap that owns the buffer; nothing to do for a system allocation.
int32_t in_its_heap(void** handle, int32_t (*operation)(Heap&, Unit) noexcept, const char* name) noexcept {
    if (handle == nullptr) return 0;
    int32_t result = k_failed;
    if (with_owned_block(handle, result, operation)) return result;
    void* address = read_handle(handle);
    if (os_check_ptr(address)) return 0;
    msgdebug("MEMORY: %s memory, bad reference: %x", name, static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)));
    return k_failed;
}

/// One section for both steps: between them the buffer would be unlocked, and another thread could discard it.
int32_t unlock_and_free(Heap& heap, Unit unit) noexcept VELL_REQUIRES(heap.mutex) {
    const int32_t left = unlock_block(heap, unit);
    return left < 0 ? left : free_block(heap, unit);
}

}  // namespace
}  // namespace vell

using vell::k_failed;
using vell::read_handle;
using vell::write_handle;

void* mem_alloc_locked_buffer(void** handle, uint64_t size, uint32_t id) noexcept {
    if (handle == nullptr || id > MEM_HEAP_IMAGE) return nullptr;
    if (id != MEM_HEAP_AUTO) return vell::alloc_in(id, size, handle) ? read_handle(handle) : nullptr;
    const bool is_small = size < vell::k_frame_from;
    const uint32_t first = is_small ? MEM_HEAP_PROXY : MEM_HEAP_FRAME;
    const uint32_t second = is_small ? MEM_HEAP_FRAME : MEM_HEAP_PROXY;
    if (vell::alloc_in(first, size, handle) || vell::alloc_in(second, size, handle)) return read_handle(handle);
    return vell::alloc_from_system(handle, size);
}

int32_t mem_lock_buffer(void** handle) noexcept {
    return vell::in_its_heap(handle, vell::lock_block, "Lock");
}

int32_t mem_keep_buffer(void** handle) noexcept {
    return vell::in_its_heap(handle, vell::keep_block, "Keep");
}

int32_t mem_unlock_buffer(void** handle) noexcept {
    return vell::in_its_heap(handle, vell::unlock_block, "Unlock");
}

int32_t mem_free_buffer(void** handle) noexcept {
    if (handle == nullptr || read_handle(handle) == nullptr) return k_failed;
    int32_t result = k_failed;
    if (vell::with_owned_block(handle, result, vell::free_block)) return result;
    void* address = read_handle(handle);
    if (address == nullptr) return k_failed;  // discarded since the first look
    os_free(address);
    write_handle(handle, nullptr);
    return 0;
}

int32_t mem_free_locked_buffer(void** handle) noexcept {
    if (handle == nullptr || read_handle(handle) == nullptr) return k_failed;
    int32_t result = k_failed;
    if (vell::with_owned_block(handle, result, vell::unlock_and_free)) return result;
    if (!os_free(read_handle(handle))) return k_failed;
    write_handle(handle, nullptr);
    return 0;
}
