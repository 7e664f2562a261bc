// The walk over a terminated text that goes by vectors while they manage, and by single characters in between.
#pragma once

#include <cstddef>

namespace vell {

/// @param known    how many elements from an index on are known to lie before the terminator, at most. Looking for the
///                 terminator a stretch at a time keeps the text in the first cache.
/// @param fast     the vectors: takes the elements of a range as far as it can, and returns how many.
/// @param careful  takes the character at an index and returns its elements; 0 ends the walk.
template <class Known, class Fast, class Careful>
void walk_text(Known known, Fast fast, Careful careful) noexcept {
    constexpr size_t k_stretch = 16;  // elements that are taken carefully before vectors are tried again
    for (size_t at = 0, known_end = 0;;) {
        if (at >= known_end) known_end = at + known(at);
        at += fast(at, known_end);
        for (const size_t pause = at + k_stretch; at < pause;) {
            const size_t taken = careful(at);
            if (taken == 0) return;
            at += taken;
        }
    }
}

/// Elements in which the terminator is looked for at a time.
inline constexpr size_t k_known_stretch = 16 * 1024;

}  // namespace vell
