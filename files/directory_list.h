// What the sources of lists share.
#pragma once

#include "vellcore/directory_listing.h"

namespace vell {

/// An empty list; null when memory is short.
[[nodiscard]] dir_list* make_list() noexcept;

/// Takes one "/" or "\" off the end of a path of two or more bytes.
void cut_last_separator(char* path) noexcept;

}  // namespace vell
