// The jobs whose shares wait for a thread of the processing pool.
#pragma once

#include <cstdint>

#include "vellcore/processing_pool.h"

namespace vell {

/// First in, first out, a job at a time: a job is kept once and its shares are numbered off as they are taken. Holds
/// up to three times the shares of a full job. No lock of its own.
class ShareQueue {
public:
    /// Room for three jobs of `shares_per_job` shares, 1 or more.
    void reset(int32_t shares_per_job) noexcept {
        shares_per_job_ = shares_per_job;
        first_ = jobs_ = shares_ = 0;
    }

    [[nodiscard]] int32_t shares() const noexcept { return shares_; }
    [[nodiscard]] bool has_room() const noexcept { return jobs_ < k_jobs && shares_ <= 2 * shares_per_job_; }

    /// Queues the shares 0 to job.count - 1 of a job. There must be room.
    void put(const smp_entry_t& job) noexcept {
        smp_entry_t& slot = slots_[(first_ + jobs_) % k_jobs].job;
        slot = job;
        slot.id = 0;
        ++jobs_;
        shares_ += static_cast<int32_t>(job.count);
    }

    /// Takes the next share. False when there is none.
    bool take(smp_entry_t& share) noexcept {
        if (jobs_ == 0) return false;
        smp_entry_t& job = slots_[first_].job;
        share = job;
        --shares_;
        if (++job.id == job.count) {
            first_ = (first_ + 1) % k_jobs;
            --jobs_;
        }
        return true;
    }

private:
    static constexpr int32_t k_jobs = 4;  // three whole ones, and one whose last shares are being taken
    struct alignas(128) Slot {            // jobs do not share cache lines
        smp_entry_t job;
    };

    int32_t shares_per_job_ = 0;
    int32_t first_ = 0;   // slot of the oldest job
    int32_t jobs_ = 0;    // in the queue
    int32_t shares_ = 0;  // of all jobs
    Slot slots_[k_jobs] = {};
};

}  // namespace vell
