// Files with known contents, descriptors in use, and pipes that hold a transfer in flight.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// Bytes whose values tell their offset: no two aligned blocks of a file look alike.
inline std::vector<unsigned char> pattern(size_t bytes, unsigned seed = 1) {
    std::vector<unsigned char> data(bytes);
    for (size_t i = 0; i < bytes; ++i)
        data[i] = static_cast<unsigned char>((i * 2654435761U + seed * 97U) >> 13U);
    return data;
}

inline void write_whole(const std::string& path, const std::vector<unsigned char>& data) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
}

inline std::vector<unsigned char> read_whole(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline int open_descriptors() {
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

/// Pages of the file that the system holds in its cache, and pages in all.
struct CachedPages {
    long cached = 0;
    long all = 0;
};
inline CachedPages cached_pages(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const auto bytes = static_cast<size_t>(lseek(file, 0, SEEK_END));
    void* view = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
    std::vector<unsigned char> present((bytes + 4095) / 4096);
    if (mincore(view, bytes, present.data()) != 0) std::abort();
    munmap(view, bytes);
    close(file);
    CachedPages pages;
    pages.all = static_cast<long>(present.size());
    for (const unsigned char page : present)
        pages.cached += page & 1;
    return pages;
}

/// True where the file system can do without its cache: one that lives in memory cannot.
inline bool can_be_uncached(const std::string& folder) {
    struct statfs facts {};
    constexpr long k_tmpfs = 0x01021994;
    return statfs(folder.c_str(), &facts) == 0 && facts.f_type != k_tmpfs;
}

/// Memory aligned for direct transfers.
class AlignedBuffer {
public:
    explicit AlignedBuffer(size_t bytes) : data_(static_cast<unsigned char*>(std::aligned_alloc(4096, bytes))) {}
    ~AlignedBuffer() { std::free(data_); }
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;
    unsigned char* get() const { return data_; }

private:
    unsigned char* data_;
};

struct Pipe {
    Pipe() {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
        read_end = ends[0];
        write_end = ends[1];
    }
    ~Pipe() {
        if (read_end >= 0) close(read_end);
        if (write_end >= 0) close(write_end);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void send(const std::string& text) const {
        if (write(write_end, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
    }
    int read_end = -1;
    int write_end = -1;
};
