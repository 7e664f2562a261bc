// An empty job on the processing pool, back to back and after half a millisecond of idleness, beside a parallel region
// of OpenMP, a parallel loop of oneTBB, and a queue with plain condition variables.

#include <benchmark/benchmark.h>
#include <omp.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "vellcore/processing_pool.h"
#include "vellcore/threads.h"

namespace {

void empty_share(void*, void*, void*, void*, void*, void*) {
    benchmark::ClobberMemory();
}

/// What one would write first: a queue, two conditions, one mutex.
class PlainPool {
public:
    explicit PlainPool(int count) : count_(count) {
        for (int i = 0; i < count; ++i)
            threads_.emplace_back([this] { work(); });
    }
    ~PlainPool() {
        {
            const std::lock_guard lock(mutex_);
            ends_ = true;
        }
        added_.notify_all();
    }
    void exec() {
        std::unique_lock lock(mutex_);
        done_ = 0;
        queued_ = count_;
        added_.notify_all();
        finished_.wait(lock, [this] { return done_ == count_; });
    }

private:
    void work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            added_.wait(lock, [this] { return queued_ > 0 || ends_; });
            if (queued_ == 0) return;
            --queued_;
            lock.unlock();
            empty_share(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
            lock.lock();
            if (++done_ == count_) finished_.notify_one();
        }
    }
    std::mutex mutex_;
    std::condition_variable added_, finished_;
    int count_, queued_ = 0, done_ = 0;
    bool ends_ = false;
    std::vector<std::jthread> threads_;
};

/// Arguments: threads, microseconds of idleness before each job.
template <class Job>
void measure(benchmark::State& state, Job job) {
    const int64_t idle_ns = state.range(1) * 1000;
    for (int i = 0; i < 100; ++i)
        job();
    for (auto _ : state) {
        if (idle_ns > 0) {
            state.PauseTiming();
            mp_timedwait(idle_ns);
            state.ResumeTiming();
        }
        job();
    }
}

void vellcore_pool(benchmark::State& state) {
    mp_init_threads();
    smp_initialize(static_cast<int>(state.range(0)));
    measure(state, [] { smp_exec(empty_share); });
    smp_closedown();
    mp_close_threads();
}

void openmp(benchmark::State& state) {
    const int threads = static_cast<int>(state.range(0));
    measure(state, [threads] {
#pragma omp parallel num_threads(threads)
        empty_share(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    });
}

void onetbb(benchmark::State& state) {
    const int threads = static_cast<int>(state.range(0));
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
    tbb::task_arena arena(threads);
    measure(state, [&arena, threads] {
        arena.execute([threads] {
            tbb::parallel_for(
                0, threads, [](int) { empty_share(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); },
                tbb::simple_partitioner());
        });
    });
}

void plain_queue(benchmark::State& state) {
    PlainPool pool(static_cast<int>(state.range(0)));
    measure(state, [&pool] { pool.exec(); });
}

void shapes(benchmark::internal::Benchmark* bench) {
    bench->Args({2, 0})->Args({8, 0})->UseRealTime();
    bench->Args({2, 500})->Args({8, 500});
}

BENCHMARK(vellcore_pool)->Name("pool/vellcore")->Apply(shapes);
BENCHMARK(openmp)->Name("pool/openmp")->Apply(shapes);
BENCHMARK(onetbb)->Name("pool/onetbb")->Apply(shapes);
BENCHMARK(plain_queue)->Name("pool/plain_queue")->Apply(shapes);

}  // namespace
