// The making and ending of the four named heaps, and the calls on one of them by id.
//
// The heaps are made once per process, on one thread, before others use them.

#include "vellcore/heap_set.h"

#include <cstdio>
#include <initializer_list>

#include "memory/heap_plan.h"
#include "memory/heap_set_state.h"
#include "memory/size_text.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {

constinit HeapSet heap_set;

namespace {

constexpr int32_t k_failed = -1;
constexpr int32_t k_audio_alignment = 16;
constexpr size_t k_path_bytes = 1024;
constexpr size_t k_line_bytes = 128;  // of memory.cfg, terminator included

/// In MiB, right-aligned in `width` columns.
void report_size(const char* what, uint64_t bytes) noexcept {
    msgcont(" %-15s: %9s Mb", what, SizeText(bytes, k_mib_bits).text());
}

_mheap* heap_of(uint32_t id) noexcept {
    return id >= MEM_HEAP_FRAME && id <= MEM_HEAP_IMAGE ? heap_set.heaps[id].load() : nullptr;
}

bool is_heap_id(uint32_t id) noexcept {
    return id >= MEM_HEAP_FRAME && id <= MEM_HEAP_IMAGE;
}

void destroy_heap(uint32_t id) noexcept {
    mheap_destroy(heap_set.heaps[id].exchange(nullptr));
}

/// Replaces planned sizes by those of the application's memory.cfg, and lists the file in the log.
void apply_config_file(HeapSizes& sizes) noexcept {
    char path[k_path_bytes];
    if (file_find("memory.cfg", path) == 0) return;
    msginfo("Memory config:");
    FILE* file = std::fopen(path, "re");
    if (file == nullptr) return;
    for (char line[k_line_bytes]; std::fgets(line, sizeof line, file) != nullptr;) {
        msgcont("%s", line);
        apply_config_line(line, sizes);
    }
    std::fclose(file);
}

/// A heap of the planned size or, failing that, of the least size.
bool make_heap(uint32_t id, const char* name, uint64_t size, uint64_t least, int32_t alignment,
               mheap_mode mode) noexcept {
    _mheap* heap = mheap_initialize(name, size, alignment, mode, /*lock_flag=*/0);
    if (heap == nullptr) heap = mheap_initialize(name, least, alignment, mode, /*lock_flag=*/0);
    heap_set.heaps[id] = heap;
    return heap != nullptr;
}

_mheap* make_smaller_frame_heap(uint64_t planned, int32_t alignment) noexcept {
    uint64_t size = planned;
    bool goes_on = true;
    while (goes_on) {
        goes_on = may_halve(size);
        size /= 2;
        _mheap* heap = mheap_initialize("Frame", size, alignment, MHEAP_DISCARD, /*lock_flag=*/0);
        if (heap == nullptr) continue;
        msgwarn("** MEMORY ALLOCATION FAILED:");
        msgcont("** REDUCED Frame heap size from %dMb to %dMb", static_cast<int>(planned >> 20),
                static_cast<int>(size >> 20));
        return heap;
    }
    return nullptr;
}

bool make_frame_heap(uint64_t size) noexcept {
    const int32_t alignment = frame_alignment(mem_pagesize());
    _mheap* heap = mheap_initialize("Frame", size, alignment, MHEAP_DISCARD, /*lock_flag=*/0);
    if (heap == nullptr && size > k_least_frame) heap = make_smaller_frame_heap(size, alignment);
    heap_set.heaps[MEM_HEAP_FRAME] = heap;
    return heap != nullptr;
}

/// Null when all four are there; otherwise the name of the one that could not be made, and none is left.
const char* make_heaps(const HeapSizes& sizes) noexcept {
    const int32_t page = mem_pagesize();
    if (!make_heap(MEM_HEAP_PROXY, "Proxy", sizes.proxy, k_least_proxy, page, MHEAP_DISCARD)) return "proxy";
    if (!make_heap(MEM_HEAP_AUDIO, "Audio", sizes.audio, k_least_audio, k_audio_alignment, MHEAP_DISCARD))
        return "audio";
    if (!make_heap(MEM_HEAP_IMAGE, "Image", sizes.image, k_least_image, page, MHEAP_COMPACT)) return "image";
    return make_frame_heap(sizes.frame) ? nullptr : "frame";
}

void report_heaps(uint64_t available, uint64_t max_block) noexcept {
    if (msginfo("Memory setup:") == 0) return;
    report_size("Available", available);
    if (max_block != 0) report_size("Max block", max_block);
    report_size("Frame heap", mem_heapsize(MEM_HEAP_FRAME));
    report_size("Proxy heap", mem_heapsize(MEM_HEAP_PROXY));
    report_size("Audio heap", mem_heapsize(MEM_HEAP_AUDIO));
    report_size("Image heap", mem_heapsize(MEM_HEAP_IMAGE));
    msgcont("                  ---------");
    report_size("Total size", heap_set.total_bytes);
    msgcont("                  ---------");
}

}  // namespace
}  // namespace vell

using vell::heap_set;
using vell::k_failed;

uint64_t mem_alloc_pools() noexcept {
    if (heap_set.total_bytes != 0) return heap_set.total_bytes;
    mem_info_str info;
    const uint64_t available = mem_info(&info);
    vell::HeapSizes sizes = vell::default_heap_sizes(available, info.max_block);
    vell::apply_config_file(sizes);

    if (const char* failed = vell::make_heaps(vell::with_minimums(sizes)); failed != nullptr) {
        mem_free_pools();
        msgerror("FATAL: Can't create %s heap", failed);
        return 0;
    }
    uint64_t total = 0;
    for (uint32_t id = MEM_HEAP_FRAME; id <= MEM_HEAP_IMAGE; ++id)
        total += mem_heapsize(id);
    heap_set.total_bytes = total;
    vell::report_heaps(available, info.max_block);
    return total;
}

void mem_free_pools() noexcept {
    for (const uint32_t id : {MEM_HEAP_IMAGE, MEM_HEAP_AUDIO, MEM_HEAP_PROXY, MEM_HEAP_FRAME})
        vell::destroy_heap(id);
}

_mheap* mem_getheap(uint32_t id) noexcept {
    return vell::heap_of(id);
}

uint64_t mem_heapsize(uint32_t id) noexcept {
    return mheap_totalsize(vell::heap_of(id));
}

void* mem_heapbase(uint32_t id) noexcept {
    return mheap_heapbase(vell::heap_of(id));
}

int32_t mem_clearall(uint32_t id) noexcept {
    return mheap_clearall(vell::heap_of(id));
}

int32_t mem_validate(uint32_t id) noexcept {
    return mheap_validate(vell::heap_of(id));
}

int32_t mem_dumpheap(uint32_t id, const char* title) noexcept {
    if (!vell::is_heap_id(id)) return k_failed;
    mheap_dump(vell::heap_of(id), title);
    return 0;
}

bool mem_set_discard_callback(void* data, mheap_discard_callback callback) noexcept {
    return mheap_set_discard_callback(vell::heap_of(MEM_HEAP_FRAME), data, callback);
}
