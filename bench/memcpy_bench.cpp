// One large copy: memcpy_mt beside memcpy on one thread and a parallel loop of oneTBB over memcpy.

#include <benchmark/benchmark.h>
#include <tbb/parallel_for.h>

#include <cstring>
#include <memory>

#include "vellcore/block_memory.h"
#include "vellcore/processing_pool.h"
#include "vellcore/threads.h"

namespace {

struct FreeBlock {
    void operator()(void* block) const { a_free(block); }
};
using Block = std::unique_ptr<void, FreeBlock>;

template <class Copy>
void measure(benchmark::State& state, Copy copy) {
    const auto bytes = static_cast<size_t>(state.range(0)) << 20;
    const Block source(a_alloc(bytes, 0)), destination(a_alloc(bytes, 0));
    std::memset(source.get(), 1, bytes);
    std::memset(destination.get(), 2, bytes);
    for (auto _ : state) {
        copy(destination.get(), source.get(), bytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

void vellcore_copy(benchmark::State& state) {
    mp_init_threads();
    smp_initialize(2);
    measure(state, [](void* to, const void* from, size_t bytes) { memcpy_mt(to, from, bytes); });
    smp_closedown();
    mp_close_threads();
}

void one_memcpy(benchmark::State& state) {
    measure(state, [](void* to, const void* from, size_t bytes) { std::memcpy(to, from, bytes); });
}

void onetbb(benchmark::State& state) {
    measure(state, [](void* to, const void* from, size_t bytes) {
        constexpr size_t k_grain = 1 << 20;
        tbb::parallel_for(tbb::blocked_range<size_t>(0, bytes, k_grain), [&](const auto& range) {
            std::memcpy(static_cast<char*>(to) + range.begin(), static_cast<const char*>(from) + range.begin(),
                        range.size());
        });
    });
}

BENCHMARK(vellcore_copy)->Name("memcpy/vellcore")->RangeMultiplier(2)->Range(1, 256)->UseRealTime();
BENCHMARK(one_memcpy)->Name("memcpy/memcpy")->RangeMultiplier(2)->Range(1, 256)->UseRealTime();
BENCHMARK(onetbb)->Name("memcpy/onetbb")->RangeMultiplier(2)->Range(1, 256)->UseRealTime();

}  // namespace
