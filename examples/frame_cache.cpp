// A frame cache: sixteen frames in a heap that holds about seven. Each frame is wanted three times in a row; the heap
// keeps what was used last and discards the rest, which is then made again.

#include <vellcore/vellcore.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int k_frames = 16;
constexpr uint64_t k_frame_bytes = 1 << 20;

void* frames[k_frames];  // the heap keeps the addresses of these pointers: they stay where they are
int frames_made = 0;

/// Locks a frame, making it first when the heap does not have it. Null when there is no room.
const unsigned char* lock_frame(_mheap* cache, int number) {
    void** handle = &frames[number];
    if (mheap_lock(cache, handle) < 0) {
        if (mheap_alloc_lock(cache, k_frame_bytes, handle) < 0) return nullptr;
        std::memset(*handle, number, k_frame_bytes);  // a host reads or renders its frame here
        ++frames_made;
    }
    return static_cast<const unsigned char*>(*handle);
}

}  // namespace

int main(int, char** argv) {
    vl_fast_initialize(argv[0], /*allocate_heaps*/ false);
    _mheap* cache = mheap_initialize("Cache", 8 << 20, mem_pagesize(), MHEAP_DISCARD, /*lock_flag*/ 0);
    if (cache == nullptr) return 1;
    int wrong = 0;
    for (int middle = 1; middle < k_frames - 1; ++middle) {
        for (int number = middle - 1; number <= middle + 1; ++number) {
            const unsigned char* pixels = lock_frame(cache, number);
            if (pixels == nullptr || pixels[k_frame_bytes - 1] != number) ++wrong;
            mheap_unlock(cache, &frames[number]);  // from here on the heap may take it away
        }
    }
    std::printf("%d frames, wanted %d times, made %d times, %d wrong\n", k_frames, 3 * (k_frames - 2), frames_made,
                wrong);
    mheap_destroy(cache);
    vl_closedown();
    return wrong == 0 && frames_made == k_frames ? 0 : 1;
}
