// Work on a range of rows, shared out over the processing pool.
#pragma once

#include <cstdint>

#include "vellcore/processing_pool.h"

namespace tool {

/// The part of `count` rows that belongs to one share of a job. The parts of all shares cover every row once.
struct RowRange {
    uint64_t first;
    uint64_t end;
};
inline RowRange rows_of_share(uint64_t count, int32_t share, int32_t shares) {
    const auto index = static_cast<uint64_t>(share);
    const auto total = static_cast<uint64_t>(shares);
    return {count * index / total, count * (index + 1) / total};
}

/// Calls `work(share, shares)` once per share, on all processors, and returns when all are done. `work` must not throw.
template <class Work>
void share_out(const Work& work) {
    const auto run = [](void* job, void*, void*, void*, void*, void*) {
        (*static_cast<const Work*>(job))(smp_id(), smp_numprocs());
    };
    smp_exec(run, const_cast<Work*>(&work));
}

}  // namespace tool
