// Uncached transfers, best way first:
//
//   from_cache       data that somebody else has in the cache already is copied from there (RWF_NOWAIT)
//   direct           O_DIRECT, when memory, offset and length meet the alignment that statx reports
//   dropped_behind   RWF_DONTCACHE: through the cache, which lets go of the pages at once
//   plain            through the cache; uncached_close writes back and drops the range
//
// O_DIRECT belongs to an open file description, so it is set on a second description of the same file, the twin,
// which is opened when it is first wanted. The caller's own descriptor keeps its lock and takes any alignment. Direct
// and cached transfers of one file may mix: the kernel writes dirty pages back before a direct read of their range
// and drops pages that a direct write replaces.

#include "platform/uncached_io.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <new>

#include "platform/posix/file_calls.h"

namespace vell {

struct UncachedFile {
    dev_t device = 0;  // which file this is; the descriptor might be closed and reused behind our back
    ino_t inode = 0;
    uint64_t alignment = 0;              // of memory, offset and length in direct transfers, bytes
    std::atomic<int> twin{-1};           // descriptor with O_DIRECT, -1 while not open
    std::atomic<bool> no_direct{false};  // the file system refused, or a twin cannot be had
    std::atomic<bool> no_drop_behind{false};
    std::atomic<uint64_t> plain_low{UINT64_MAX};  // range that plain transfers went through, bytes
    std::atomic<uint64_t> plain_high{0};
};

namespace {

#ifndef RWF_DONTCACHE
#define RWF_DONTCACHE 0x00000080
#endif
constexpr long k_cachestat = 451;
constexpr uint64_t k_assumed_alignment = 4096;  // enough for every disk in use, where statx does not tell
constexpr uint64_t k_page = 4096;
// A transfer whose length is not aligned is split when the direct part is worth a call of its own.
constexpr uint64_t k_worth_splitting = 256 * 1024;

uint64_t direct_alignment(int descriptor) noexcept {
    struct statx facts {};
    if (statx(descriptor, "", AT_EMPTY_PATH, STATX_DIOALIGN, &facts) != 0 || (facts.stx_mask & STATX_DIOALIGN) == 0)
        return k_assumed_alignment;
    return std::max<uint64_t>(facts.stx_dio_mem_align, facts.stx_dio_offset_align);  // 0: no direct transfers
}

int open_twin(int descriptor) noexcept {
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0) return -1;
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    constexpr int k_write_behaviour = O_ACCMODE | O_APPEND | O_DSYNC | O_SYNC;
    return open_above_streams(path, (flags & k_write_behaviour) | O_DIRECT, 0);
}

/// The descriptor for direct transfers, or -1.
int twin_of(UncachedFile& file, int descriptor) noexcept {
    const int present = file.twin.load(std::memory_order_acquire);
    if (present >= 0) return present;
    if (file.no_direct.load(std::memory_order_relaxed)) return -1;
    const int opened = open_twin(descriptor);
    if (opened < 0) {
        file.no_direct.store(true, std::memory_order_relaxed);
        return -1;
    }
    // Without a lock, which a fork would have to wait for: of two threads that open one, the second closes its own.
    int none = -1;
    if (file.twin.compare_exchange_strong(none, opened, std::memory_order_acq_rel)) return opened;
    file_calls.close(opened);
    return none;
}

/// How much of the piece can be direct, bytes.
size_t direct_bytes(const UncachedFile& file, const TransferPiece& piece) noexcept {
    if (file.alignment == 0 || file.no_direct.load(std::memory_order_relaxed) || piece.offset < 0) return 0;
    const auto address = reinterpret_cast<uintptr_t>(piece.buffer);
    if (address % file.alignment != 0 || static_cast<uint64_t>(piece.offset) % file.alignment != 0) return 0;
    const uint64_t aligned = piece.bytes - piece.bytes % file.alignment;
    return aligned == piece.bytes || aligned >= k_worth_splitting ? static_cast<size_t>(aligned) : 0;
}

uint64_t pages_spanned(uint64_t low, uint64_t high) noexcept {
    return (high + k_page - 1) / k_page - low / k_page;
}

/// The older way to count cached pages, for kernels without cachestat.
bool is_resident(int descriptor, uint64_t low, uint64_t high) noexcept {
    const uint64_t start = low - low % k_page;
    const size_t pages = static_cast<size_t>(pages_spanned(low, high));
    constexpr size_t k_pages_at_once = 1024;
    if (pages > k_pages_at_once) return false;
    void* view = mmap(nullptr, pages * k_page, PROT_READ, MAP_SHARED, descriptor, static_cast<off_t>(start));
    if (view == MAP_FAILED) return false;
    unsigned char present[k_pages_at_once];
    const bool is_known = mincore(view, pages * k_page, present) == 0;
    munmap(view, pages * k_page);
    return is_known && std::all_of(present, present + pages, [](unsigned char page) { return (page & 1) != 0; });
}

/// True when every byte of [low, high) is in the cache.
bool is_cached(int descriptor, uint64_t low, uint64_t high) noexcept {
    struct {
        uint64_t offset, length;
    } const range{low, high - low};
    struct {
        uint64_t cached, dirty, under_writeback, evicted, recently_evicted;
    } count{};
    if (syscall(k_cachestat, descriptor, &range, &count, 0) == 0) return count.cached >= pages_spanned(low, high);
    return errno == ENOSYS && is_resident(descriptor, low, high);
}

void note_plain(UncachedFile& file, const TransferPiece& piece) noexcept {
    const auto low = static_cast<uint64_t>(piece.offset);
    const uint64_t high = low + piece.bytes;
    uint64_t known = file.plain_low.load(std::memory_order_relaxed);
    while (low < known && !file.plain_low.compare_exchange_weak(known, low, std::memory_order_relaxed)) {
    }
    known = file.plain_high.load(std::memory_order_relaxed);
    while (high > known && !file.plain_high.compare_exchange_weak(known, high, std::memory_order_relaxed)) {
    }
}

void plan_through_cache(UncachedFile& file, TransferPiece& piece) noexcept {
    if (!file.no_drop_behind.load(std::memory_order_relaxed)) {
        piece.kind = PieceKind::dropped_behind;
        piece.flags = RWF_DONTCACHE;
    } else if (piece.offset >= 0) {
        note_plain(file, piece);
    }
}

}  // namespace

UncachedFile* uncached_open(int descriptor) noexcept {
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0 || !S_ISREG(facts.st_mode)) return nullptr;
    auto* file = new (std::nothrow) UncachedFile;
    if (file == nullptr) return nullptr;
    file->device = facts.st_dev;
    file->inode = facts.st_ino;
    file->alignment = direct_alignment(descriptor);
    return file;
}

void uncached_close(UncachedFile* file, int descriptor) noexcept {
    if (file == nullptr) return;
    const uint64_t low = file->plain_low.load(std::memory_order_relaxed);
    const uint64_t high = file->plain_high.load(std::memory_order_relaxed);
    if (low < high) {
        // Dirty pages are not dropped, so they are written first.
        const auto from = static_cast<off_t>(low);
        const auto bytes = static_cast<off_t>(high - low);
        sync_file_range(descriptor, from, bytes,
                        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
        posix_fadvise(descriptor, from, bytes, POSIX_FADV_DONTNEED);
    }
    uncached_forget(file);
}

void uncached_forget(UncachedFile* file) noexcept {
    if (file == nullptr) return;
    const int twin = file->twin.load(std::memory_order_relaxed);
    if (twin >= 0) file_calls.close(twin);
    delete file;
}

void uncached_plan(UncachedFile& file, TransferJob& job, TransferPiece& piece) noexcept {
    const size_t direct = direct_bytes(file, piece);
    if (direct == 0) {
        plan_through_cache(file, piece);
        return;
    }
    struct stat facts {};
    const bool is_same_file =
        fstat(piece.descriptor, &facts) == 0 && facts.st_dev == file.device && facts.st_ino == file.inode;
    if (!is_same_file) return;
    if (!job.is_write && !job.is_cache_asked) {
        const auto low = static_cast<uint64_t>(piece.offset);
        const uint64_t high = std::min(low + piece.bytes, static_cast<uint64_t>(facts.st_size));
        if (low >= high) return;  // nothing there to read, so nothing to cache
        if (is_cached(piece.descriptor, low, high)) {
            piece.kind = PieceKind::from_cache;
            piece.flags = RWF_NOWAIT;
            return;
        }
        job.is_cache_asked = true;
    }
    const int twin = twin_of(file, piece.descriptor);
    if (twin < 0) {
        plan_through_cache(file, piece);
        return;
    }
    piece.descriptor = twin;
    piece.kind = PieceKind::direct;
    piece.bytes = direct;
}

bool uncached_refused(UncachedFile& file, TransferJob& job, const TransferPiece& piece, int error) noexcept {
    switch (piece.kind) {
        case PieceKind::from_cache:  // dropped meanwhile, or the file system cannot tell
            job.is_cache_asked = true;
            return true;
        case PieceKind::direct:
            if (error != EINVAL) return false;
            file.no_direct.store(true, std::memory_order_relaxed);
            return true;
        case PieceKind::dropped_behind:
            if (error != EOPNOTSUPP && error != EINVAL && error != ENOSYS) return false;
            file.no_drop_behind.store(true, std::memory_order_relaxed);
            return true;
        case PieceKind::plain:
            break;
    }
    return false;
}

const char* uncached_mode_of(const char* path) noexcept {
    int descriptor = open_above_streams(path, O_RDONLY, 0);
    struct stat facts {};
    if (descriptor >= 0 && fstat(descriptor, &facts) == 0 && S_ISDIR(facts.st_mode)) {
        file_calls.close(descriptor);
        constexpr mode_t k_private = 0600;
        descriptor = open_above_streams(path, O_TMPFILE | O_RDWR, k_private);
    }
    if (descriptor < 0) return "unknown";
    const int twin = direct_alignment(descriptor) != 0 ? open_twin(descriptor) : -1;
    char byte = 0;
    // The last position there is lies behind every file's end: the answer comes from the file system without a read.
    const bool drops_behind = file_calls.pread_flags(descriptor, &byte, 1, INT64_MAX - 1, RWF_DONTCACHE) == 0;
    if (twin >= 0) file_calls.close(twin);
    file_calls.close(descriptor);
    if (twin >= 0) return drops_behind ? "O_DIRECT, RWF_DONTCACHE" : "O_DIRECT, cached and dropped";
    return drops_behind ? "RWF_DONTCACHE" : "cached and dropped";
}

}  // namespace vell
