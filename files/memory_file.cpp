// Whole small files in memory. A mem_file belongs to one thread at a time; there is no lock.

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/lock.h"
#include "vellcore/file_io.h"
#include "vellcore/unicode_text.h"

namespace vell {
namespace {

constexpr size_t k_nothing = ~size_t{0};                   // vl_read's answer when nothing is left
constexpr size_t k_first_bytes = 64 * 1024;                // of a buffer for a file that does not tell its size
constexpr size_t k_max_bytes = size_t{256} * 1024 * 1024;  // of such a file, which may have no end

uint64_t times(uint64_t a, uint64_t b) noexcept {
    uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}

uint64_t bytes_left(const mem_file& file) noexcept {
    return file.position < file.size ? file.size - file.position : 0;
}

/// Reads up to `bytes` into the file's fresh data. False when memory is short.
bool read_known_size(FILE* stream, uint64_t bytes, mem_file& file) noexcept {
    file.data = std::malloc(bytes);
    if (file.data == nullptr) return false;
    file.size = std::fread(file.data, 1, bytes, stream);
    return true;
}

/// For files that do not tell their size: reads until they end. False when memory is short, or the file holds
/// k_max_bytes and more.
bool read_to_end(FILE* stream, mem_file& file) noexcept {
    for (size_t capacity = k_first_bytes; capacity <= k_max_bytes; capacity *= 2) {
        void* grown = std::realloc(file.data, capacity);
        if (grown == nullptr) return false;
        file.data = grown;
        file.size += std::fread(static_cast<char*>(grown) + file.size, 1, capacity - file.size, stream);
        if (file.size < capacity) return true;
    }
    return false;
}

bool read_all(FILE* stream, mem_file& file) noexcept {
    struct stat facts {};
    if (fstat(fileno(stream), &facts) != 0 || S_ISDIR(facts.st_mode)) return false;
    if (S_ISCHR(facts.st_mode)) return true;  // its size is 0, and it may have no end
    const bool is_size_known = S_ISREG(facts.st_mode) && facts.st_size > 0;
    const bool is_read =
        is_size_known ? read_known_size(stream, static_cast<uint64_t>(facts.st_size), file) : read_to_end(stream, file);
    if (is_read && file.size != 0) return true;
    std::free(file.data);
    file.data = nullptr;
    return is_read;
}

}  // namespace
}  // namespace vell

mem_file* vl_open(const char* path, const char* mode) noexcept {
    if (path == nullptr || mode == nullptr) return nullptr;
    const vell::CancelShield shield;
    FILE* stream = vl_utf8_fopen(path, mode);
    if (stream == nullptr) return nullptr;
    auto* file = new (std::nothrow) mem_file{};
    if (file != nullptr && !vell::read_all(stream, *file)) {
        delete file;
        file = nullptr;
    }
    std::fclose(stream);
    return file;
}

int vl_close(mem_file* file) noexcept {
    if (file == nullptr) return -1;
    std::free(file->data);
    delete file;
    return 0;
}

int vl_seek(mem_file* file, long long offset, int whence) noexcept {
    if (file == nullptr) return -1;
    const auto distance = static_cast<uint64_t>(offset);
    switch (whence) {
        case 0:
            file->position = distance;
            break;
        case 1:
            file->position += distance;
            break;
        case 2:
            file->position = file->size - distance;
            break;
        default:
            return -1;
    }
    return static_cast<int>(static_cast<uint32_t>(file->position));
}

unsigned long long vl_tell(mem_file* file) noexcept {
    return file != nullptr ? file->position : ~0ULL;
}

size_t vl_read(void* buffer, size_t element_size, size_t count, mem_file* file) noexcept {
    if (file == nullptr) return vell::k_nothing;
    const uint64_t left = vell::bytes_left(*file);
    if (left == 0 || element_size == 0) return vell::k_nothing;
    uint64_t bytes = vell::times(count, element_size);
    if (bytes == 0) return 0;
    if (buffer == nullptr) return vell::k_nothing;
    const uint64_t limit = vell::times(vell::times(left, element_size), element_size);
    if (bytes > limit) {
        file->at_end = 1;
        bytes = limit;
    }
    const uint64_t copied = std::min(bytes, left);
    std::memcpy(buffer, static_cast<const char*>(file->data) + file->position, copied);
    std::memset(static_cast<char*>(buffer) + copied, 0, bytes - copied);
    file->position += bytes;
    return bytes;
}

char* vl_gets(char* buffer, int size, mem_file* file) noexcept {
    if (file == nullptr || buffer == nullptr || size < 2) return nullptr;
    const uint64_t left = vell::bytes_left(*file);
    if (left == 0) return nullptr;
    const char* start = static_cast<const char*>(file->data) + file->position;
    const char* end = start + left;
    const char* stop = std::find_if(start, end, [](char c) { return c == '\n' || c == '\0'; });
    if (stop == end) file->at_end = 1;
    const size_t length = static_cast<size_t>(stop - start) + (stop != end ? 1 : 0);
    std::memcpy(buffer, start, length);
    buffer[length] = '\0';
    file->position += length;
    return buffer + length + 1;
}

int vl_eof(mem_file* file) noexcept {
    return file != nullptr ? file->at_end : 1;
}
