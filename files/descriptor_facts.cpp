// What the engine remembers about a descriptor between opening and closing: the uncached hint and the lock.

#include <sys/file.h>

#include "files/transfer_engine.h"
#include "files/transfer_lists.h"
#include "platform/posix/file_calls.h"
#include "platform/uncached_io.h"

namespace vell {

void descriptor_begin(int descriptor) noexcept {
    transfers_drain(descriptor);
    DescriptorFacts* stale = nullptr;
    {
        const ScopedLock lock(engine_lock);
        stale = remove_facts(descriptor);
    }
    if (stale != nullptr) uncached_forget(stale->uncached);
    delete stale;
}

void descriptor_set_uncached(int descriptor) noexcept {
    UncachedFile* uncached = uncached_open(descriptor);
    if (uncached == nullptr) return;
    const ScopedLock lock(engine_lock);
    DescriptorFacts* facts = require_facts(descriptor);
    if (facts == nullptr) {
        uncached_forget(uncached);
    } else {
        facts->uncached = uncached;
    }
}

void descriptor_set_locked(int descriptor) noexcept {
    const ScopedLock lock(engine_lock);
    DescriptorFacts* facts = require_facts(descriptor);
    if (facts != nullptr) facts->is_locked = true;
}

void descriptor_forget(int descriptor) noexcept {
    transfers_drain(descriptor);
    DescriptorFacts* facts = nullptr;
    {
        const ScopedLock lock(engine_lock);
        facts = remove_facts(descriptor);
    }
    if (facts == nullptr) return;
    uncached_close(facts->uncached, descriptor);
    // Released by name: a child that is just being spawned shares the open file until it starts its program, and
    // would keep the lock alive after our close.
    if (facts->is_locked) file_calls.flock(descriptor, LOCK_UN);
    delete facts;
}

}  // namespace vell
