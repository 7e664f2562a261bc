// memcpy_mt: one copy in as many shares as the processing pool has threads. The one place of this folder that calls
// up to the pool.

#include "memory/stream_copy.h"
#include "vellcore/block_memory.h"
#include "vellcore/processing_pool.h"

namespace {

void copy_share(void* destination, void* source, void* length, void* threads, void*, void*) {
    memcpy_mt_proc(*static_cast<const int32_t*>(threads), destination, source, *static_cast<const uint64_t*>(length));
}

/// Where share `index` of `threads` begins: length * index / threads, without the product overflowing.
uint64_t share_start(uint64_t length, uint64_t index, uint64_t threads) noexcept {
    return static_cast<uint64_t>(static_cast<unsigned __int128>(length) * index / threads);
}

}  // namespace

void memcpy_mt_proc(int32_t threads, void* destination, void* source, uint64_t length) noexcept {
    const int32_t share = smp_id();
    if (threads < 1 || share < 0 || share >= threads || destination == nullptr || source == nullptr) return;
    const auto index = static_cast<uint64_t>(share);
    const uint64_t start = share_start(length, index, static_cast<uint64_t>(threads));
    const uint64_t stop = share_start(length, index + 1, static_cast<uint64_t>(threads));
    vell::stream_copy(static_cast<std::byte*>(destination) + start, static_cast<const std::byte*>(source) + start,
                      stop - start);
}

void* memcpy_mt(void* destination, const void* source, uint64_t length) noexcept {
    int32_t threads = smp_numprocs();
    smp_exec(copy_share, destination, const_cast<void*>(source), &length, &threads);
    return destination;
}
