// Several threads that take pieces of work in order.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace tool {

/// Calls `work` for every index below `count` on up to `threads` threads, the calling one included. `work` answers
/// false to have no further index begun. Returns when all have ended.
inline void for_each_index(size_t count, size_t threads, const std::function<bool(size_t)>& work) {
    std::atomic<size_t> next{0};
    const auto take = [&] {
        for (size_t index = next++; index < count; index = next++) {
            if (!work(index)) next = count;
        }
    };
    std::vector<std::thread> helpers;
    try {
        for (size_t i = 1; i < threads && i < count; ++i)
            helpers.emplace_back(take);
    } catch (const std::exception&) {
        // Fewer threads do it as well.
    }
    take();
    for (std::thread& helper : helpers)
        helper.join();
}

}  // namespace tool
