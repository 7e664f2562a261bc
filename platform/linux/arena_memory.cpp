// Advice about memory by madvise, which wants whole pages.

#include "platform/arena_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace vell {
namespace {

void advise(void* start, size_t length, int advice) noexcept {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto first = (reinterpret_cast<uintptr_t>(start) + page - 1) / page * page;
    const auto last = (reinterpret_cast<uintptr_t>(start) + length) / page * page;
    if (first >= last) return;
    const int saved = errno;
    madvise(reinterpret_cast<void*>(first), last - first, advice);
    errno = saved;
}

}  // namespace

void advise_large_pages(void* start, size_t length) noexcept {
    advise(start, length, MADV_HUGEPAGE);
}

// Reading alone would map the shared page of zeros. Since Linux 5.14; before that the pages come at their first use.
void populate_pages(void* start, size_t length) noexcept {
    advise(start, length, MADV_POPULATE_WRITE);
}

}  // namespace vell
