// Pools of small blocks. No lock: callers on several threads serialise.
//
// A chunk is [ Chunk | item | item | ... ], mapped from the system, which zeroes a page when it is first touched. Only
// the newest chunk can have items that were never handed out; the first of them, the frontier, is always the last item
// of the free list. Handing the frontier out moves it on by one, so the links of untouched items are never written and
// their pages never touched.

#include <cstddef>
#include <cstdlib>

#include "memory/raw_memory.h"
#include "vellcore/block_memory.h"
#include "vellcore/message_log.h"

template <class T>
struct Allocator<T>::_alloc_blk {
    _alloc_blk* next;
};

namespace vell {
namespace {

constexpr uint64_t k_smallest_chunk = 32769;  // bytes of items; below that a pool gives up

/// What a chunk starts with.
struct Chunk {
    std::byte* frontier;  // first item that was never handed out; null when all were
    std::byte* end;       // behind the last item
    uint64_t bytes;       // of the whole chunk, this included
    uint64_t unused;      // keeps the first item's link at a multiple of 16
};

/// The largest chunk that can be had, with a frontier at its first item: as asked, or half, or half of that ...
Chunk* obtain_chunk(uint64_t items, uint64_t stride) noexcept {
    if (items == 0 || stride > (UINT64_MAX - sizeof(Chunk)) / items) return nullptr;
    for (uint64_t count = items; count == items || count * stride >= k_smallest_chunk; count /= 2) {
        const uint64_t bytes = sizeof(Chunk) + count * stride;
        if (auto* memory = static_cast<std::byte*>(raw_memory.map_zeroed(bytes)); memory != nullptr) {
            auto* chunk = reinterpret_cast<Chunk*>(memory);
            *chunk = {memory + sizeof(Chunk), memory + bytes, bytes, 0};
            return chunk;
        }
    }
    return nullptr;
}

void release_chunk(void* chunk) noexcept {
    raw_memory.unmap(chunk, static_cast<Chunk*>(chunk)->bytes);
}

}  // namespace
}  // namespace vell

template <class T>
Allocator<T>::~Allocator() noexcept {
    Allocator::Clear();
}

template <class T>
void Allocator<T>::Clear() noexcept {
    reset_mem_pools();
    free_head_ = nullptr;
}

template <class T>
void Allocator<T>::reset_mem_pools() noexcept {
    for (uint32_t i = chunks_.count(); i-- > 0;)
        vell::release_chunk(chunks_[i]);
    chunks_.release();
}

template <class T>
typename Allocator<T>::_alloc_blk* Allocator<T>::allocate_blk() noexcept {
    _alloc_blk* item = free_head_;
    if (item != nullptr && item->next != nullptr) {
        free_head_ = item->next;
        return item;
    }
    return allocate_last();
}

template <class T>
typename Allocator<T>::_alloc_blk* Allocator<T>::allocate_last() noexcept {
    const uint64_t stride = item_size_ + sizeof(_alloc_blk);
    if (free_head_ == nullptr && !grow(stride)) return nullptr;
    _alloc_blk* item = free_head_;
    auto* newest = chunks_.count() == 0 ? nullptr : reinterpret_cast<vell::Chunk*>(chunks_[chunks_.count() - 1]);
    if (newest != nullptr && reinterpret_cast<std::byte*>(item) == newest->frontier) {
        std::byte* next = newest->frontier + stride;
        newest->frontier = next < newest->end ? next : nullptr;
        item->next = reinterpret_cast<_alloc_blk*>(newest->frontier);
    }
    free_head_ = item->next;
    return item;
}

template <class T>
bool Allocator<T>::grow(uint64_t stride) noexcept {
    vell::Chunk* chunk = vell::obtain_chunk(items_per_chunk_, stride);
    if (chunk == nullptr) {
        msgcont("Failed to extend the memory pool!");
        return false;
    }
    auto* first = reinterpret_cast<_alloc_blk*>(chunk->frontier);
    if (!chunks_.append(reinterpret_cast<_alloc_blk*>(chunk))) thread_whole_chunk(chunk->frontier, chunk->end, stride);
    free_head_ = first;
    return true;
}

// A chunk that the vector has no room for is used, but never freed; nobody will know its frontier, so all its items
// are linked at once.
template <class T>
void Allocator<T>::thread_whole_chunk(std::byte* first, std::byte* end, uint64_t stride) noexcept {
    for (std::byte* item = first; item + stride < end; item += stride)
        reinterpret_cast<_alloc_blk*>(item)->next = reinterpret_cast<_alloc_blk*>(item + stride);
}

template <class T>
void Allocator<T>::free_blk(_alloc_blk* item) noexcept {
    item->next = free_head_;
    free_head_ = item;
}

template class Allocator<char>;
