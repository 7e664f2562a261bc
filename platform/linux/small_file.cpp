// Files of /proc and /sys are made when they are read: their size is not known before, and a read may be short.

#include "platform/linux/small_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/lock.h"

namespace vell {

size_t read_small_file(const char* path, char* text, size_t capacity) noexcept {
    if (capacity == 0) return 0;
    const CancelShield shield;
    size_t length = 0;
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    while (file >= 0 && length < capacity - 1) {
        const ssize_t got = read(file, text + length, capacity - 1 - length);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        length += static_cast<size_t>(got);
    }
    if (file >= 0) close(file);
    text[length] = '\0';
    return length;
}

bool read_whole_file(int file, size_t most_bytes, std::string& text) noexcept {
    try {
        text.clear();
        for (;;) {
            char piece[4096];
            const ssize_t got = read(file, piece, sizeof piece);
            if (got < 0 && errno == EINTR) continue;
            if (got == 0) return true;
            if (got < 0 || text.size() + static_cast<size_t>(got) > most_bytes) break;
            text.append(piece, static_cast<size_t>(got));
        }
    } catch (const std::bad_alloc&) {  // a text that is not whole is no text
    }
    text.clear();
    return false;
}

size_t read_small_line(const char* path, char* text, size_t capacity) noexcept {
    read_small_file(path, text, capacity);
    if (capacity == 0) return 0;
    size_t length = strcspn(text, "\n");
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t'))
        --length;
    text[length] = '\0';
    return length;
}

}  // namespace vell
