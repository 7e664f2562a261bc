// The record of system allocations with many of them live: asking for a pointer and replacing an allocation, at random,
// beside the C library's allocator, which keeps no such record.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "vellcore/heap_set.h"

namespace {

constexpr uint64_t k_bytes = 1;                // the record counts, not the memory
constexpr size_t k_malloc_bytes = 65536 + 33;  // what os_alloc asks the C library for

struct System {
    static void* allocate() { return os_alloc(k_bytes, 0); }
    static void release(void* block) { os_free(block); }
};
struct Malloc {
    static void* allocate() { return std::malloc(k_malloc_bytes); }
    static void release(void* block) { std::free(block); }
};

/// As many live allocations as the argument says.
template <class Source>
class Live {
public:
    explicit Live(const benchmark::State& state) : blocks(static_cast<size_t>(state.range(0))) {
        for (void*& block : blocks)
            block = Source::allocate();
    }
    ~Live() {
        for (void* block : blocks)
            Source::release(block);
    }
    void*& any() { return blocks[random_() % blocks.size()]; }

private:
    std::vector<void*> blocks;
    std::mt19937 random_{1};
};

void check_pointer(benchmark::State& state) {
    Live<System> live(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(os_check_ptr(live.any()));
}

template <class Source>
void replace_allocation(benchmark::State& state) {
    Live<Source> live(state);
    for (auto _ : state) {
        void*& block = live.any();
        Source::release(block);
        block = Source::allocate();
    }
}

BENCHMARK(check_pointer)->Name("system_pointer/vellcore")->Arg(10'000)->Arg(100'000);
BENCHMARK(replace_allocation<System>)->Name("system_allocation/vellcore")->Arg(10'000)->Arg(100'000);
BENCHMARK(replace_allocation<Malloc>)->Name("system_allocation/malloc")->Arg(10'000)->Arg(100'000);

}  // namespace
