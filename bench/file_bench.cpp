// A large file in blocks of 1 MiB, cold: the reader and writer beside plain calls, POSIX AIO and a submission ring
// with 8 transfers in flight, all also with O_DIRECT; and reads of a file that is in the cache.
//
// The file has VELLCORE_BENCH_MIB MiB (512) and lies in VELLCORE_BENCH_FOLDER (the working folder). Before every cold
// pass it is written back and dropped from the cache; a pass that begins with more than 1 % cached fails. Writes are
// timed up to the moment when the data is on disk. Counters: rate, processor seconds per GiB (user and system, all
// threads), and what share of the file's pages is cached after the pass.

#include <aio.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#ifdef VELLCORE_HAS_URING
#include <liburing.h>
#endif

#include "vellcore/buffered_file_reader.h"
#include "vellcore/buffered_file_writer.h"

namespace {

constexpr size_t k_block = 1 << 20;
constexpr size_t k_in_flight = 8;

size_t blocks_in_file() {
    const char* wanted = std::getenv("VELLCORE_BENCH_MIB");
    const long mib = wanted != nullptr ? std::atol(wanted) : 0;
    return mib > 0 ? static_cast<size_t>(mib) : 512;
}

struct FreeAligned {
    void operator()(unsigned char* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<unsigned char, FreeAligned>;

Memory aligned_memory(size_t bytes) {
    Memory memory(static_cast<unsigned char*>(std::aligned_alloc(4096, bytes)));
    std::memset(memory.get(), 0x5A, bytes);
    return memory;
}

/// The one file of this run, removed at its end.
class BenchFile {
public:
    BenchFile() {
        const char* folder = std::getenv("VELLCORE_BENCH_FOLDER");
        path_ = std::string(folder != nullptr ? folder : ".") + "/vellcore-bench-XXXXXX";
        const int file = mkstemp(path_.data());
        const Memory block = aligned_memory(k_block);
        for (size_t i = 0; i < blocks_in_file(); ++i)
            if (pwrite(file, block.get(), k_block, static_cast<off_t>(i * k_block)) < 0) std::abort();
        close(file);
    }
    ~BenchFile() { unlink(path_.c_str()); }
    BenchFile(const BenchFile&) = delete;
    BenchFile& operator=(const BenchFile&) = delete;

    const char* path() const { return path_.c_str(); }

    void make_cold() const {
        const int file = open(path(), O_RDONLY);
        for (int attempt = 0; attempt < 10 && (attempt == 0 || cached_percent() > 0.0); ++attempt) {
            fsync(file);
            posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        }
        close(file);
    }

    double cached_percent() const {
        const int file = open(path(), O_RDONLY);
        struct stat facts {};
        fstat(file, &facts);
        const auto bytes = static_cast<size_t>(facts.st_size);
        if (bytes == 0) {
            close(file);
            return 0.0;
        }
        void* view = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
        std::vector<unsigned char> present((bytes + 4095) / 4096);
        mincore(view, bytes, present.data());
        munmap(view, bytes);
        close(file);
        const auto count = std::count_if(present.begin(), present.end(), [](unsigned char p) { return (p & 1) != 0; });
        return 100.0 * static_cast<double>(count) / static_cast<double>(present.size());
    }

private:
    std::string path_;
};

BenchFile& bench_file() {
    static BenchFile file;
    return file;
}

double processor_seconds() {
    rusage use{};
    getrusage(RUSAGE_SELF, &use);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return seconds(use.ru_utime) + seconds(use.ru_stime);
}

enum class Kind { cold_read, warm_read, write };

/// Brings the file into the state in which a pass of this kind begins.
bool prepare(Kind kind) {
    if (kind == Kind::warm_read) {
        const Memory block = aligned_memory(k_block);
        const int file = open(bench_file().path(), O_RDONLY);
        while (read(file, block.get(), k_block) > 0) {
        }
        close(file);
        return bench_file().cached_percent() > 99.0;
    }
    bench_file().make_cold();
    if (kind == Kind::write && truncate(bench_file().path(), 0) != 0) std::abort();
    return bench_file().cached_percent() <= 1.0;
}

/// Writes count until the data is on disk.
template <class Pass>
void measure(benchmark::State& state, Kind kind, Pass pass) {
    const double gib = static_cast<double>(blocks_in_file()) / 1024.0;
    double processor = 0, cached = 0, best_rate = 0;
    for (auto _ : state) {
        if (!prepare(kind)) state.SkipWithError("the file is cached when it should not be, or the other way round");
        const double used_before = processor_seconds();
        const auto start = std::chrono::steady_clock::now();
        if (!pass(bench_file().path())) state.SkipWithError(std::strerror(errno));
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        processor += processor_seconds() - used_before;
        cached = std::max(cached, bench_file().cached_percent());
        best_rate = std::max(best_rate, gib * 1024.0 / elapsed.count());
        state.SetIterationTime(elapsed.count());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(blocks_in_file() * k_block));
    state.counters["best_MiB/s"] = best_rate;
    state.counters["cpu_s/GiB"] = processor / (gib * static_cast<double>(state.iterations()));
    state.counters["cached_%"] = cached;
}

// --- VellCore ---------------------------------------------------------------------------------------------------

bool sync_file(const char* path) {
    const int file = open(path, O_RDONLY);
    const bool is_synced = fdatasync(file) == 0;
    close(file);
    return is_synced;
}

bool read_with_reader(const char* path) {
    fReadBuffer reader(-1);
    reader.cfg_buffers(8, k_block, k_block);
    if (!reader.open_file(path, /*shared*/ true, /*prefetch*/ false, /*direct*/ true)) return false;
    size_t bytes = 0;
    while (const auto length = reader.getNextBlock()) {
        bytes += length;
        reader.skip_file(1, length);
    }
    return bytes == blocks_in_file() * k_block;
}

bool write_with_writer(const char* path) {
    const Memory block = aligned_memory(k_block);
    fWriteBuffer writer(-1, true);
    if (!writer.open_file(path, 0, /*write_through*/ true)) return false;
    for (size_t i = 0; i < blocks_in_file(); ++i)
        writer.write_file(block.get(), 1, k_block);
    writer.close_file(/*final*/ true);
    return writer.error() == 0 && sync_file(path);
}

/// Large blocks handed over without copying.
bool write_with_direct_blocks(const char* path) {
    const Memory block = aligned_memory(k_block);
    fWriteBuffer writer(-1, true);
    if (!writer.open_file(path, 0, /*write_through*/ true)) return false;
    for (size_t i = 0; i < blocks_in_file(); ++i)
        writer.add_write_buffer(block.get(), k_block);
    writer.close_file(/*final*/ true);
    return writer.error() == 0 && sync_file(path);
}

// --- Peers ------------------------------------------------------------------------------------------------------

/// `flags`: 0 or O_DIRECT.
int open_for(const char* path, bool is_write, int flags) {
    return is_write ? open(path, O_RDWR | O_CREAT | O_TRUNC | flags, 0666) : open(path, O_RDONLY | flags);
}

bool end_peer(int file, bool is_write, bool is_good) {
    if (is_write && fdatasync(file) != 0) is_good = false;
    close(file);
    return is_good;
}

bool with_plain_calls(const char* path, bool is_write, int flags) {
    const Memory block = aligned_memory(k_block);
    const int file = open_for(path, is_write, flags);
    bool is_good = true;
    for (size_t i = 0; i < blocks_in_file() && is_good; ++i) {
        const auto at = static_cast<off_t>(i * k_block);
        is_good = (is_write ? pwrite(file, block.get(), k_block, at) : pread(file, block.get(), k_block, at)) ==
                  static_cast<ssize_t>(k_block);
    }
    return end_peer(file, is_write, is_good);
}

bool with_posix_aio(const char* path, bool is_write, int flags) {
    const Memory memory = aligned_memory(k_block * k_in_flight);
    const int file = open_for(path, is_write, flags);
    std::vector<aiocb> blocks(k_in_flight);
    const auto start = [&](size_t i) {
        aiocb& block = blocks[i % k_in_flight];
        block = {};
        block.aio_fildes = file;
        block.aio_buf = memory.get() + i % k_in_flight * k_block;
        block.aio_nbytes = k_block;
        block.aio_offset = static_cast<off_t>(i * k_block);
        return (is_write ? aio_write(&block) : aio_read(&block)) == 0;
    };
    bool is_good = true;
    for (size_t i = 0; i < std::min(k_in_flight, blocks_in_file()); ++i)
        is_good = start(i) && is_good;
    for (size_t i = 0; i < blocks_in_file() && is_good; ++i) {
        aiocb* block = &blocks[i % k_in_flight];
        while (aio_error(block) == EINPROGRESS)
            aio_suspend(&block, 1, nullptr);
        is_good = aio_return(block) == static_cast<ssize_t>(k_block);
        if (i + k_in_flight < blocks_in_file()) is_good = start(i + k_in_flight) && is_good;
    }
    return end_peer(file, is_write, is_good);
}

#ifdef VELLCORE_HAS_URING
bool with_ring(const char* path, bool is_write, int flags) {
    const Memory memory = aligned_memory(k_block * k_in_flight);
    const int file = open_for(path, is_write, flags);
    io_uring ring{};
    if (io_uring_queue_init(k_in_flight, &ring, 0) != 0) return end_peer(file, is_write, false);
    const auto start = [&](size_t i, size_t place) {
        io_uring_sqe* entry = io_uring_get_sqe(&ring);
        unsigned char* at = memory.get() + place * k_block;
        if (is_write) {
            io_uring_prep_write(entry, file, at, k_block, i * k_block);
        } else {
            io_uring_prep_read(entry, file, at, k_block, i * k_block);
        }
        io_uring_sqe_set_data64(entry, place);
    };
    const size_t blocks = blocks_in_file();
    size_t started = 0;
    for (; started < std::min(k_in_flight, blocks); ++started)
        start(started, started);
    bool is_good = true;
    for (size_t done = 0; done < blocks && is_good; ++done) {
        io_uring_submit(&ring);
        io_uring_cqe* entry = nullptr;
        is_good = io_uring_wait_cqe(&ring, &entry) == 0 && entry->res == static_cast<int>(k_block);
        const auto place = static_cast<size_t>(io_uring_cqe_get_data64(entry));
        io_uring_cqe_seen(&ring, entry);
        if (started < blocks) start(started++, place);
    }
    io_uring_queue_exit(&ring);
    return end_peer(file, is_write, is_good);
}
#endif

template <class Pass>
void add(const std::string& name, Kind kind, Pass pass) {
    benchmark::RegisterBenchmark((name + "/" + std::to_string(blocks_in_file())).c_str(),
                                 [=](benchmark::State& state) { measure(state, kind, pass); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3);
}

template <class Pass>
void add_peer(const std::string& name, Pass pass) {
    const auto with = [=](bool is_write, int flags) {
        return [=](const char* path) { return pass(path, is_write, flags); };
    };
    add("file_read/" + name, Kind::cold_read, with(false, 0));
    add("file_read/" + name + "_direct", Kind::cold_read, with(false, O_DIRECT));
    add("file_warm_read/" + name, Kind::warm_read, with(false, 0));
    add("file_write/" + name, Kind::write, with(true, 0));
    add("file_write/" + name + "_direct", Kind::write, with(true, O_DIRECT));
}

[[maybe_unused]] const bool registered = [] {
    add("file_read/vellcore", Kind::cold_read, read_with_reader);
    add("file_warm_read/vellcore", Kind::warm_read, read_with_reader);
    add("file_write/vellcore", Kind::write, write_with_writer);
    add("file_write/vellcore_blocks", Kind::write, write_with_direct_blocks);
    add_peer("plain", with_plain_calls);
    add_peer("posix_aio", with_posix_aio);
#ifdef VELLCORE_HAS_URING
    add_peer("io_uring", with_ring);
#endif
    return true;
}();

}  // namespace
