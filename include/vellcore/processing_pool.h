#pragma once
// The processing pool: one job on all processors at once.

#include <cstdint>

#include "export.h"

/// A job: called once per share with the six arguments of smp_exec.
typedef void (*smp_function)(void*, void*, void*, void*, void*, void*);

/// A share of a job as it waits in the pool's queue.
struct smp_entry_t {
    uint32_t id;            ///< number of the share, 0 to count - 1
    bool stop;              ///< ends the thread that takes it
    smp_function function;  ///< the job; null shares only count as done
    void* arguments[6];
    uint32_t count;  ///< shares of this job
    int32_t* done;   ///< shares that have finished; belongs to the waiting smp_exec
};
static_assert(sizeof(smp_entry_t) == 80, "hosts know the layout");

/// Starts the pool's threads, "SMP-0", "SMP-1", ...
///
/// @param requested  threads; 0 or less means one per physical core. At most 128.
/// @return  the threads in the pool; 1 when there are none (one processor, or a failed start, which is logged): jobs
///          then run on their callers. A pool that runs already is left as it is and its count returned.
/// @thread  start-up, after mp_init_threads.
VELL_API int32_t smp_initialize(int32_t requested) noexcept;

/// Runs `function(a1 ... a6)` once per share on the pool's threads and returns when all shares have run. Shares tell
/// each other apart by smp_id(), from 0 to smp_numprocs() - 1. Which thread runs which share is not fixed; one may
/// run several. The caller runs none.
///
/// Without a pool (one processor) the function runs once on the caller. From inside a share, after smp_closedown, and
/// in a forked child, the caller runs all shares in turn.
/// @thread  any number at once. Waits for the shares, and for room in the queue. Not cancellable while it waits.
VELL_API void smp_exec(smp_function function, void* a1 = nullptr, void* a2 = nullptr, void* a3 = nullptr,
                       void* a4 = nullptr, void* a5 = nullptr, void* a6 = nullptr);

/// The number of the share that the calling thread runs; -1 in a pool thread between shares; 0 in any other thread.
[[nodiscard]] VELL_API int32_t smp_id() noexcept;

/// True only in a pool thread while it runs a share.
[[nodiscard]] VELL_API bool smp_is_spawned() noexcept;

/// Shares that a job is divided into. Kept: smp_closedown leaves it as it was.
[[nodiscard]] VELL_API int32_t smp_numprocs() noexcept;

/// Ends and joins the pool's threads. No job may be running. Shutdown, before mp_close_threads.
VELL_API void smp_closedown() noexcept;
