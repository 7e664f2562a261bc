// A host in small: starts the installed library, uses a heap and the log, stops.

#include <vellcore/vellcore.h>

#include <cstdio>

int main(int, char** argv) {
    vl_fast_initialize(argv[0], false);
    void* buffer = nullptr;
    const bool is_allocated = mem_alloc_locked_buffer(&buffer, 1 << 20, MEM_HEAP_AUTO) != nullptr;
    const bool is_freed = mem_free_locked_buffer(&buffer) == 0;
    msgwarn("consumer: %s", is_allocated && is_freed ? "works" : "fails");
    vl_closedown();
    return is_allocated && is_freed ? 0 : 1;
}
