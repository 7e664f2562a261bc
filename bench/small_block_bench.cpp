// Blocks of 64 bytes: sb_alloc beside malloc and boost::pool. A tight pair, 200,000 blocks freed in random order, and
// the first use of a fresh pool.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/pool/pool.hpp>
#include <cstdlib>
#include <random>
#include <vector>

#include "vellcore/block_memory.h"

namespace {

constexpr size_t k_bytes = 64;
constexpr size_t k_blocks = 200000;

struct Vellcore {
    void* allocate() { return sb_alloc(k_bytes); }
    void release(void* block) { sb_free(block, k_bytes); }
    ~Vellcore() { sb_destroy(); }
};
struct Malloc {
    void* allocate() { return std::malloc(k_bytes); }
    void release(void* block) { std::free(block); }
};
struct BoostPool {
    boost::pool<> pool{k_bytes};
    void* allocate() { return pool.malloc(); }
    void release(void* block) { pool.free(block); }
};
/// The same pool as a library offers it: behind a call that the caller's compiler cannot look into.
struct BoostPoolCalled {
    boost::pool<> pool{k_bytes};
    [[gnu::noinline]] void* allocate() { return pool.malloc(); }
    [[gnu::noinline]] void release(void* block) { pool.free(block); }
};

template <class Source>
void tight_pair(benchmark::State& state) {
    Source source;
    for (auto _ : state) {
        void* block = source.allocate();
        benchmark::DoNotOptimize(block);
        source.release(block);
    }
}

/// Time of one allocation plus one release.
template <class Source>
void random_order(benchmark::State& state) {
    Source source;
    std::vector<size_t> order(k_blocks);
    for (size_t i = 0; i < k_blocks; ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    std::vector<void*> blocks(k_blocks);
    for (auto _ : state) {
        for (void*& block : blocks)
            block = source.allocate();
        for (const size_t i : order)
            source.release(blocks[i]);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(k_blocks));
}

template <class Source>
void first_use(benchmark::State& state) {
    for (auto _ : state) {
        Source source;
        benchmark::DoNotOptimize(source.allocate());
    }
}

BENCHMARK(tight_pair<Vellcore>)->Name("small_pair/vellcore");
BENCHMARK(tight_pair<Malloc>)->Name("small_pair/malloc");
BENCHMARK(tight_pair<BoostPool>)->Name("small_pair/boost_pool");
BENCHMARK(tight_pair<BoostPoolCalled>)->Name("small_pair/boost_pool_called");
BENCHMARK(random_order<Vellcore>)->Name("small_random/vellcore");
BENCHMARK(random_order<Malloc>)->Name("small_random/malloc");
BENCHMARK(random_order<BoostPool>)->Name("small_random/boost_pool");
BENCHMARK(first_use<Vellcore>)->Name("small_first/vellcore");
BENCHMARK(first_use<BoostPool>)->Name("small_first/boost_pool");

}  // namespace
