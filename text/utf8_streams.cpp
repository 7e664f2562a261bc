// Streams by UTF-8 paths. The system's paths are UTF-8 already, so its own functions serve.

#include <cerrno>
#include <cstdio>

#include "vellcore/unicode_text.h"

FILE* vl_utf8_fopen(const char* path, const char* mode) noexcept {
    if (path != nullptr && mode != nullptr) return std::fopen(path, mode);
    errno = EINVAL;
    return nullptr;
}

FILE* vl_utf8_freopen(const char* path, const char* mode, FILE* stream) noexcept {
    if (mode != nullptr && stream != nullptr) return std::freopen(path, mode, stream);
    errno = EINVAL;
    return nullptr;
}
