// The lockable heap beside what a host would use instead: malloc and a managed heap with a best-fit tree. "walk" is
// the heap without an index, which goes over all blocks in every search, under
// the same kind of lock.
//
//   heap/<who>/<live>             a block is allocated behind <live> others, unlocked and freed
//   heap_fragmented/<who>/<live>  a random one of <live> blocks of mixed sizes is freed and another allocated
//   heap_full/<who>/<live>        every allocation in a full heap takes the place of the oldest block; the peers are
//                                 told which one that is
//   heap_touch/<pages>/<MiB>      the first touch of an arena, per 4 KiB page

#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <boost/interprocess/managed_heap_memory.hpp>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "memory/plain_heap.h"
#include "vellcore/auto_lock.h"
#include "vellcore/lockable_heap.h"

namespace {

constexpr uint64_t k_smallest = 200;  // bytes of a block's data
constexpr uint64_t k_largest = 1800;
constexpr uint64_t k_mean_block = (k_smallest + k_largest) / 2 + 96;  // with header

// Each candidate allocates into a handle, unlocked, and frees it. make_full says that the next allocation needs what
// the oldest block occupies.

class VellCoreHeap {
public:
    explicit VellCoreHeap(uint64_t bytes) : heap_(mheap_initialize("Bench", bytes, 16, MHEAP_DISCARD, 0)) {}
    ~VellCoreHeap() { mheap_destroy(heap_); }
    VellCoreHeap(const VellCoreHeap&) = delete;
    VellCoreHeap& operator=(const VellCoreHeap&) = delete;
    void allocate(void** handle, uint64_t size) {
        benchmark::DoNotOptimize(mheap_alloc_lock(heap_, size, handle));
        mheap_unlock(heap_, handle);
    }
    void free(void** handle) { mheap_free(heap_, handle); }
    void discard(void**) {}

private:
    _mheap* heap_;
};

class WalkingHeap {
public:
    explicit WalkingHeap(uint64_t bytes) : heap_("Bench", bytes, 16, MHEAP_DISCARD) {}
    ~WalkingHeap() { mp_delete_mutex(mutex_); }
    WalkingHeap(const WalkingHeap&) = delete;
    WalkingHeap& operator=(const WalkingHeap&) = delete;
    void allocate(void** handle, uint64_t size) {
        {
            const AutoLock lock(mutex_);
            benchmark::DoNotOptimize(heap_.alloc_lock(size, handle));
        }
        const AutoLock lock(mutex_);
        heap_.unlock(handle);
    }
    void free(void** handle) {
        const AutoLock lock(mutex_);
        heap_.free(handle);
    }
    void discard(void**) {}

private:
    PlainHeap heap_;
    __mutex_str* mutex_ = mp_new_mutex(/*locked=*/0);
};

class BoostHeap {
public:
    explicit BoostHeap(uint64_t bytes) : heap_(bytes) {}
    void allocate(void** handle, uint64_t size) { *handle = heap_.allocate(size, std::nothrow); }
    void free(void** handle) {
        heap_.deallocate(*handle);
        *handle = nullptr;
    }
    void discard(void** handle) { free(handle); }

private:
    boost::interprocess::managed_heap_memory heap_;
};

class Malloc {
public:
    explicit Malloc(uint64_t) {}
    void allocate(void** handle, uint64_t size) { benchmark::DoNotOptimize(*handle = std::malloc(size)); }
    void free(void** handle) {
        std::free(*handle);
        *handle = nullptr;
    }
    void discard(void** handle) { free(handle); }
};

template <class Heap>
class Population {
public:
    Population(uint64_t live, uint64_t spare_bytes) : heap(live * k_mean_block + spare_bytes), handles(live, nullptr) {
        for (void*& handle : handles)
            heap.allocate(&handle, any_size());
    }
    ~Population() {
        for (void*& handle : handles)
            if (handle != nullptr) heap.free(&handle);
    }
    Population(const Population&) = delete;
    Population& operator=(const Population&) = delete;

    uint64_t any_size() { return k_smallest + random() % (k_largest - k_smallest); }

    std::minstd_rand random{1};
    Heap heap;
    std::vector<void*> handles;
};

template <class Heap>
void behind_others(benchmark::State& state) {
    const auto live = static_cast<uint64_t>(state.range(0));
    Population<Heap> population(live, live * 100 + (1 << 20));
    void* handle = nullptr;
    for (auto _ : state) {
        population.heap.allocate(&handle, k_largest);
        population.heap.free(&handle);
    }
}

template <class Heap>
void fragmented(benchmark::State& state) {
    const auto live = static_cast<uint64_t>(state.range(0));
    Population<Heap> population(live, live * 300 + (1 << 20));
    const auto replace_one = [&] {
        void*& handle = population.handles[population.random() % live];
        population.heap.free(&handle);
        population.heap.allocate(&handle, population.any_size());
    };
    if constexpr (!std::is_same_v<Heap, WalkingHeap>)
        for (uint64_t i = 0; i < 5 * live; ++i)
            replace_one();
    for (auto _ : state)
        replace_one();
}

template <class Heap>
void full(benchmark::State& state) {
    const auto live = static_cast<uint64_t>(state.range(0));
    Population<Heap> population(live, 0);
    // Handles in the order of allocation; what does not fit has pushed the oldest out.
    uint64_t oldest = 0;
    for (auto _ : state) {
        void*& handle = population.handles[oldest];
        oldest = oldest + 1 == live ? 0 : oldest + 1;
        population.heap.discard(&handle);
        if (handle != nullptr) population.heap.free(&handle);
        population.heap.allocate(&handle, population.any_size());
    }
}

void touch(benchmark::State& state, int advice) {
    const auto bytes = static_cast<size_t>(state.range(0)) << 20;
    for (auto _ : state) {
        state.PauseTiming();
        void* arena = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        madvise(arena, bytes, advice);
        state.ResumeTiming();
        for (size_t at = 0; at < bytes; at += 4096)
            static_cast<volatile char*>(arena)[at] = 1;
        state.PauseTiming();
        munmap(arena, bytes);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(bytes / 4096));
}
void small_pages(benchmark::State& state) {
    touch(state, MADV_NOHUGEPAGE);
}
void large_pages(benchmark::State& state) {
    touch(state, MADV_HUGEPAGE);
}

void live_blocks(benchmark::internal::Benchmark* bench) {
    for (const int live : {100, 1000, 10000, 100000})
        bench->Arg(live);
}
void few_live_blocks(benchmark::internal::Benchmark* bench) {
    for (const int live : {100, 1000, 10000})
        bench->Arg(live);
}

}  // namespace

BENCHMARK(behind_others<VellCoreHeap>)->Name("heap/vellcore")->Apply(live_blocks);
BENCHMARK(behind_others<BoostHeap>)->Name("heap/boost")->Apply(live_blocks);
BENCHMARK(behind_others<Malloc>)->Name("heap/malloc")->Apply(live_blocks);
BENCHMARK(behind_others<WalkingHeap>)->Name("heap/walk")->Apply(few_live_blocks);
BENCHMARK(fragmented<VellCoreHeap>)->Name("heap_fragmented/vellcore")->Apply(live_blocks);
BENCHMARK(fragmented<BoostHeap>)->Name("heap_fragmented/boost")->Apply(live_blocks);
BENCHMARK(fragmented<Malloc>)->Name("heap_fragmented/malloc")->Apply(live_blocks);
BENCHMARK(fragmented<WalkingHeap>)->Name("heap_fragmented/walk")->Apply(few_live_blocks);
BENCHMARK(full<VellCoreHeap>)->Name("heap_full/vellcore")->Apply(live_blocks);
BENCHMARK(full<BoostHeap>)->Name("heap_full/boost")->Apply(live_blocks);
BENCHMARK(full<Malloc>)->Name("heap_full/malloc")->Apply(live_blocks);
BENCHMARK(full<WalkingHeap>)->Name("heap_full/walk")->Apply(few_live_blocks);
BENCHMARK(small_pages)->Name("heap_touch/small_pages")->Arg(256)->UseRealTime();
BENCHMARK(large_pages)->Name("heap_touch/vellcore")->Arg(256)->UseRealTime();
