// sb_alloc and sb_free: three pools, and beside each the stack of its freed items. No lock: callers serialise.
//
// Freed items are linked like a list, but the order is kept in an array as well, newest last: taking the next one off
// a list would have to read the item, which costs a cache miss for every block that was freed out of order.

#include <cstddef>
#include <cstdlib>

#include "memory/raw_memory.h"
#include "vellcore/block_memory.h"

namespace vell {
namespace {

constexpr uint64_t k_largest_pooled = 128;  // bytes
constexpr size_t k_link_bytes = 8;

/// A pool's items as sb_alloc sees them: the payload, with the link word before it.
class SmallBlockPool {
public:
    constexpr SmallBlockPool(uint64_t item_size, uint64_t items_per_chunk) noexcept
        : fresh_(item_size, items_per_chunk) {}
    ~SmallBlockPool() { std::free(freed_); }

    void* take() noexcept {
        if (void* newest = newest_; newest != nullptr) {
            newest_ = nullptr;
            return newest;
        }
        if (top_ != freed_) return *--top_;
        auto* item = reinterpret_cast<std::byte*>(fresh_.allocate_blk());
        return item == nullptr ? nullptr : item + k_link_bytes;
    }

    void give_back(void* block) noexcept {
        if (newest_ != nullptr) return give_back_one_more(block);
        *link_of(block) = next_link();
        newest_ = block;
    }

    void clear() noexcept {
        fresh_.Clear();
        std::free(freed_);
        newest_ = nullptr;
        freed_ = top_ = end_ = nullptr;
    }

private:
    static void** link_of(void* block) noexcept { return static_cast<void**>(block) - 1; }
    static Allocator<char>::_alloc_blk* item_of(void* block) noexcept {
        return reinterpret_cast<Allocator<char>::_alloc_blk*>(link_of(block));
    }

    /// The item that would be handed out next if there were no newest.
    void* next_link() const noexcept {
        return top_ != freed_ ? link_of(top_[-1]) : static_cast<void*>(fresh_.next_free());
    }

    /// Moves the newest freed item to the array first. Without memory for the array the pool's own list takes `block`.
    [[gnu::noinline]] void give_back_one_more(void* block) noexcept {
        if (top_ == end_ && !extend()) return fresh_.free_blk(item_of(block));
        *link_of(block) = link_of(newest_);
        *top_++ = newest_;
        newest_ = block;
    }

    bool extend() noexcept {
        constexpr size_t k_first = 512;  // items: one page of the array
        const auto used = static_cast<size_t>(top_ - freed_);
        const size_t room = used == 0 ? k_first : used * 2;
        auto** larger = static_cast<void**>(std::realloc(freed_, room * sizeof(void*)));
        if (larger == nullptr) return false;
        freed_ = larger;
        top_ = freed_ + used;
        end_ = freed_ + room;
        return true;
    }

    void* newest_ = nullptr;  // freed last; apart from the array, so that a pair of calls touches one word
    void** top_ = nullptr;    // behind the newest in the array
    void** freed_ = nullptr;  // the array: freed items, the oldest first
    void** end_ = nullptr;    // of the array
    Allocator<char> fresh_;   // items that were never freed
};

constinit SmallBlockPool sb32_Mem{32, 524288};
constinit SmallBlockPool sb64_Mem{64, 262144};
constinit SmallBlockPool sb128_Mem{128, 131072};

SmallBlockPool& pool_for(uint64_t size) noexcept {
    if (size <= 32) return sb32_Mem;
    return size <= 64 ? sb64_Mem : sb128_Mem;
}

}  // namespace
}  // namespace vell

void* sb_alloc(uint64_t size) noexcept {
    return size > vell::k_largest_pooled ? vell::raw_memory.allocate(size) : vell::pool_for(size).take();
}

void sb_free(void* block, uint64_t size) noexcept {
    if (block == nullptr) return;
    if (size > vell::k_largest_pooled)
        vell::raw_memory.release(block);
    else
        vell::pool_for(size).give_back(block);
}

void sb_destroy() noexcept {
    vell::sb32_Mem.clear();
    vell::sb64_Mem.clear();
    vell::sb128_Mem.clear();
}
