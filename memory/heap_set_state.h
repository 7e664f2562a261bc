// The four named heaps, as the files of the heap set share them.
#pragma once

#include <atomic>
#include <cstdint>

#include "vellcore/heap_set.h"
#include "vellcore/lockable_heap.h"

namespace vell {

inline constexpr uint32_t k_heaps = 4;

/// Written by mem_alloc_pools and mem_free_pools only, which run at start-up and shutdown.
struct HeapSet {
    std::atomic<_mheap*> heaps[k_heaps + 1] = {};  // by MEM_HEAP_ID; null = absent; the first is never set
    std::atomic<uint64_t> total_bytes{0};          // of all four when they were made; stays when they are gone
};
extern HeapSet heap_set;

}  // namespace vell
