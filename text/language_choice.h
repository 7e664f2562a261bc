// The file that keeps the user's choice of language.
#pragma once

#include <cstddef>
#include <cstdio>

namespace vell {

constexpr size_t k_choice_bytes = 256;  // of a line and of the choice, terminator included

/// Reads on until a line "language=...", and leaves what stands there in `language`. False when there is none: it is
/// then empty or as it was.
bool read_language_choice(FILE* file, char (&language)[k_choice_bytes]) noexcept;

}  // namespace vell
