// A set of small numbers with fast neighbours: bit vectors of 64 members per word, and above each a shorter one that
// tells which words are not empty. Finding the next or the previous member takes one step up and one down per level,
// four levels for 16 million numbers. (A van Emde Boas tree with a fixed fan-out of 64.)
//
// The words come from the owner and are never allocated here. No lock of its own.
#pragma once

#include <bit>
#include <cstdint>

namespace vell {

class CellSet {
public:
    static constexpr uint64_t k_none = ~uint64_t{0};

    /// Words of memory that a set of numbers below `count` needs.
    [[nodiscard]] static uint64_t words_for(uint64_t count) noexcept {
        uint64_t words = 0;
        do {
            count = (count + 63) / 64;
            words += count;
        } while (count > 1);
        return words;
    }

    /// Starts as an empty set of numbers below `count` in zeroed words, of which it takes words_for(count).
    void attach(uint64_t* words, uint64_t count) noexcept {
        depth_ = 0;
        do {
            count = (count + 63) / 64;
            levels_[depth_] = words;
            lengths_[depth_++] = count;
            words += count;
        } while (count > 1);
    }

    void insert(uint64_t number) noexcept {
        for (unsigned level = 0; level < depth_; ++level) {
            uint64_t& word = levels_[level][number / 64];
            const bool was_empty = word == 0;
            word |= bit(number);
            if (!was_empty) return;
            number /= 64;
        }
    }

    void erase(uint64_t number) noexcept {
        for (unsigned level = 0; level < depth_; ++level) {
            uint64_t& word = levels_[level][number / 64];
            word &= ~bit(number);
            if (word != 0) return;
            number /= 64;
        }
    }

    [[nodiscard]] bool contains(uint64_t number) const noexcept { return (levels_[0][number / 64] & bit(number)) != 0; }

    /// The smallest member that is not below `number`, or k_none.
    [[nodiscard]] uint64_t next(uint64_t number) const noexcept {
        for (unsigned level = 0; level < depth_; ++level) {
            if (number / 64 >= lengths_[level]) return k_none;
            const uint64_t rest = levels_[level][number / 64] >> (number % 64);
            if (rest != 0) return descend_low(level, number + lowest(rest));
            number = number / 64 + 1;
        }
        return k_none;
    }

    /// The largest member that is not above `number`, or k_none.
    [[nodiscard]] uint64_t previous(uint64_t number) const noexcept {
        for (unsigned level = 0; level < depth_; ++level) {
            const uint64_t rest = levels_[level][number / 64] << (63 - number % 64);
            if (rest != 0) return descend_high(level, number - static_cast<uint64_t>(std::countl_zero(rest)));
            if (number < 64) return k_none;
            number = number / 64 - 1;
        }
        return k_none;
    }

private:
    static constexpr unsigned k_most_levels = 8;  // 2^48 numbers

    static uint64_t bit(uint64_t number) noexcept { return uint64_t{1} << (number % 64); }
    static uint64_t lowest(uint64_t word) noexcept { return static_cast<uint64_t>(std::countr_zero(word)); }
    static uint64_t highest(uint64_t word) noexcept { return 63 - static_cast<uint64_t>(std::countl_zero(word)); }

    [[nodiscard]] uint64_t descend_low(unsigned level, uint64_t number) const noexcept {
        while (level-- > 0)
            number = number * 64 + lowest(levels_[level][number]);
        return number;
    }
    [[nodiscard]] uint64_t descend_high(unsigned level, uint64_t number) const noexcept {
        while (level-- > 0)
            number = number * 64 + highest(levels_[level][number]);
        return number;
    }

    uint64_t* levels_[k_most_levels] = {};
    uint64_t lengths_[k_most_levels] = {};  // in words
    unsigned depth_ = 0;
};

}  // namespace vell
