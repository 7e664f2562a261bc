// Process-wide objects that are never destroyed.
#pragma once

namespace vell {

/// Holds a T that is constructed before the program runs and never destroyed, so that threads still running while
/// the process exits never meet a dead one. For constant-initialised objects only (constinit).
template <class T>
union Immortal {
    constexpr Immortal() noexcept : value() {}
    ~Immortal() {}
    T value;
};

}  // namespace vell
