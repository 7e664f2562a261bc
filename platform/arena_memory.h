// Advice to the system about large stretches of memory that are used for a long time.
//
// To port: where the system has no such advice, both do nothing.
#pragma once

#include <cstddef>

namespace vell {

/// Asks for large pages under the range. Contents stay; a refusal changes nothing.
void advise_large_pages(void* start, size_t length) noexcept;

/// Backs the whole pages inside the range with memory now instead of at their first use. Contents stay. A refusal
/// changes nothing.
void populate_pages(void* start, size_t length) noexcept;

}  // namespace vell
