// What systems do differently about libraries loaded at run time.
//
// To port: the suffix of such libraries' names and the loader's mode; a system whose look-ups through a handle can be
// restricted to that library adds its flag to the mode.
#pragma once

namespace vell {

/// ".so", for example.
extern const char* const library_suffix;

/// The second argument of dlopen: bound when used, symbols shared with libraries loaded later or not.
[[nodiscard]] int library_mode(bool shares_symbols) noexcept;

}  // namespace vell
