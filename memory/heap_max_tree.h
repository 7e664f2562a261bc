// The largest of many values, and the first that is large enough: a tournament over an array. Eight values, one
// cache line, play for each place in the level above.
//
// The words come from the owner and are never allocated here. No lock of its own.
#pragma once

#include <algorithm>
#include <cstdint>

namespace vell {

class MaxTree {
public:
    static constexpr uint64_t k_none = ~uint64_t{0};

    /// Words of memory that `count` values need.
    [[nodiscard]] static uint64_t words_for(uint64_t count) noexcept {
        uint64_t words = 0;
        do {
            words += padded(count);
            count = padded(count) / k_fan;
        } while (count > 1);
        return words;
    }

    /// Starts with `count` zeros in zeroed words, of which it takes words_for(count).
    void attach(uint64_t* words, uint64_t count) noexcept {
        depth_ = 0;
        do {
            levels_[depth_++] = words;
            words += padded(count);
            count = padded(count) / k_fan;
        } while (count > 1);
    }

    [[nodiscard]] uint64_t get(uint64_t position) const noexcept { return levels_[0][position]; }

    void set(uint64_t position, uint64_t value) noexcept {
        for (unsigned level = 0; level < depth_; ++level) {
            uint64_t& place = levels_[level][position];
            if (place == value) return;
            place = value;
            position /= k_fan;
            value = best_of(levels_[level] + position * k_fan);
        }
    }

    [[nodiscard]] uint64_t max() const noexcept { return best_of(levels_[depth_ - 1]); }

    /// The first position whose value is at least `value`, which is above 0; k_none when there is none.
    [[nodiscard]] uint64_t first_at_least(uint64_t value) const noexcept {
        uint64_t position = 0;
        for (unsigned level = depth_; level-- > 0;) {
            const uint64_t* group = levels_[level] + position * k_fan;
            unsigned i = 0;
            while (i < k_fan && group[i] < value)
                ++i;
            if (i == k_fan) return k_none;  // On the topmost level only.
            position = position * k_fan + i;
        }
        return position;
    }

private:
    static constexpr unsigned k_fan = 8;
    static constexpr unsigned k_most_levels = 16;  // 2^48 values

    static uint64_t padded(uint64_t count) noexcept { return (count + k_fan - 1) / k_fan * k_fan; }
    static uint64_t best_of(const uint64_t* group) noexcept {
        const uint64_t low = std::max(std::max(group[0], group[1]), std::max(group[2], group[3]));
        const uint64_t high = std::max(std::max(group[4], group[5]), std::max(group[6], group[7]));
        return std::max(low, high);
    }

    uint64_t* levels_[k_most_levels] = {};
    unsigned depth_ = 0;
};

}  // namespace vell
