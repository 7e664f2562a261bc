// vl_http_socket's helpers for files.

#include <cstdio>

#include "vellcore/file_operations.h"
#include "vellcore/heap_set.h"
#include "vellcore/http_client.h"
#include "vellcore/message_log.h"
#include "vellcore/unicode_text.h"

namespace {

bool write_file(const char* path, const void* data, size_t bytes) noexcept {
    FILE* file = vl_utf8_fopen(path, "wb+");
    if (file == nullptr) return false;
    const bool is_written = std::fwrite(data, 1, bytes, file) == bytes;
    return std::fclose(file) == 0 && is_written;
}

bool read_file(const char* path, void* data, size_t bytes) noexcept {
    FILE* file = vl_utf8_fopen(path, "rb");
    if (file == nullptr) return false;
    const bool is_read = std::fread(data, 1, bytes, file) == bytes;
    std::fclose(file);
    return is_read;
}

}  // namespace

bool vl_http_socket::ReadFile(const char* url, const char* path) noexcept {
    constexpr int k_ok = 200;
    vl_http_socket http;
    if (http.OpenUrl(url) && http.status == k_ok && http.data != nullptr) {
        if (path != nullptr && write_file(path, http.data, http.size)) return true;
        msgerror("HTTP: File loader failed: Can't write '%s'", path != nullptr ? path : "");
    } else {
        msgerror("HTTP: File loader failed: code %d [%s]", http.status, http.error_text);
    }
    return false;
}

bool vl_http_socket::WriteFile(const char* url, const char* path) noexcept {
    const uint64_t bytes = path != nullptr ? file_size(path) : 0;
    if (bytes < 1) return false;
    void* buffer = nullptr;
    if (mem_alloc_locked_buffer(&buffer, bytes, MEM_HEAP_AUTO) == nullptr) return false;
    if (read_file(path, buffer, bytes)) {
        vl_http_socket http;
        static_cast<void>(http.OpenUrl(url));
        msgerror("HTTP: File loader failed: code %d [%s]", http.status, http.error_text);
    } else {
        msgerror("HTTP: File loader failed: Can't read '%s'", path);
    }
    mem_free_locked_buffer(&buffer);
    return false;
}
