#include "memory/raw_memory.h"

#include <sys/mman.h>

#include <cstdlib>

namespace vell {
namespace {

void* allocate_zeroed(size_t bytes) noexcept {
    return std::calloc(1, bytes);
}

void* map_zeroed(size_t bytes) noexcept {
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

void unmap(void* memory, size_t bytes) noexcept {
    munmap(memory, bytes);
}

}  // namespace

constinit RawMemory raw_memory{std::malloc, allocate_zeroed, std::free, map_zeroed, unmap};

}  // namespace vell
