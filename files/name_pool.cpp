// The pool of 64-byte items for short names, shared by all lists of the process and guarded by name_lock.

#include "files/name_pool.h"

#include <cstring>

#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "vellcore/block_memory.h"
#include "vellcore/directory_listing.h"

namespace vell {
namespace {

constexpr uint64_t k_items_per_chunk = 8192;
constexpr uint32_t k_round_mask = 0xFFFFFF;  // a list entry has three bytes for it

constexpr size_t k_link_bytes = sizeof(void*);  // in front of an item's payload

struct Names : Allocator<char> {
    constexpr Names() noexcept : Allocator(k_pool_item_bytes, k_items_per_chunk) {}
};

Mutex name_lock;
const ForkEntry fork_entry(ForkOrder::listing_names, name_lock);
constinit Immortal<Names> names VELL_GUARDED_BY(name_lock);
uint32_t round VELL_GUARDED_BY(name_lock) = 0;

}  // namespace

StoredName store_in_pool(const char* name, size_t length) noexcept {
    const ScopedLock lock(name_lock);
    auto* item = names.value.allocate_blk();
    if (item == nullptr) return {nullptr, 0};
    char* text = reinterpret_cast<char*>(item) + k_link_bytes;
    memcpy(text, name, length);
    text[length] = '\0';
    return {text, round};
}

void give_back_to_pool(StoredName name) noexcept {
    const ScopedLock lock(name_lock);
    if (name.round == round) names.value.free_blk(reinterpret_cast<Names::_alloc_blk*>(name.text - k_link_bytes));
}

}  // namespace vell

void flist_flushcache() noexcept {
    const vell::ScopedLock lock(vell::name_lock);
    vell::names.value.Clear();
    vell::round = (vell::round + 1) & vell::k_round_mask;
}
