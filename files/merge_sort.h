// A stable merge sort for comparisons that need not be consistent: whatever they answer, every element stays and no
// place outside the array is touched.
#pragma once

#include <algorithm>
#include <cstddef>

namespace vell {

inline constexpr size_t k_insertion_run = 8;

template <class T, class IsBefore>
void insertion_sort(T* first, T* end, IsBefore is_before) noexcept {
    for (T* sorted_end = first; sorted_end < end; ++sorted_end) {
        const T moving = *sorted_end;
        T* hole = sorted_end;
        for (; hole > first && is_before(moving, hole[-1]); --hole)
            *hole = hole[-1];
        *hole = moving;
    }
}

/// Merges [first, middle) and [middle, end) into `out`.
template <class T, class IsBefore>
void merge_runs(const T* first, const T* middle, const T* end, T* out, IsBefore is_before) noexcept {
    if (middle == end || !is_before(*middle, middle[-1])) {
        std::copy(first, end, out);
        return;
    }
    const T* right = middle;
    while (first < middle && right < end)
        *out++ = is_before(*right, *first) ? *right++ : *first++;
    out = std::copy(first, middle, out);
    std::copy(right, end, out);
}

/// Sorts `count` plain records. `scratch` has room for as many. `is_before(a, b)`: a has to come before b.
template <class T, class IsBefore>
void merge_sort(T* data, size_t count, T* scratch, IsBefore is_before) noexcept {
    for (size_t at = 0; at < count; at += k_insertion_run)
        insertion_sort(data + at, data + std::min(at + k_insertion_run, count), is_before);
    T* from = data;
    T* to = scratch;
    for (size_t run = k_insertion_run; run < count; run *= 2) {
        for (size_t at = 0; at < count; at += 2 * run) {
            const size_t middle = std::min(at + run, count);
            merge_runs(from + at, from + middle, from + std::min(at + 2 * run, count), to + at, is_before);
        }
        std::swap(from, to);
    }
    if (from != data) std::copy(from, from + count, data);
}

}  // namespace vell
