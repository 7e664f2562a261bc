// The log of a test, read back as text without stamps.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

#include "vellcore/message_log.h"

class HeapLog {
public:
    explicit HeapLog(int level = MSG_DEBUG) : file_(std::tmpfile()) {
        msg_initialize(file_);
        msg_setlevel(level);
    }
    ~HeapLog() {
        msg_closedown();
        std::fclose(file_);
    }
    HeapLog(const HeapLog&) = delete;
    HeapLog& operator=(const HeapLog&) = delete;

    /// What was written since the last call: a line per line, each without its first `prefix` characters.
    std::string take() {
        std::string text, line;
        char buffer[4096];
        for (ssize_t got; (got = pread(fileno(file_), buffer, sizeof buffer, offset_)) > 0; offset_ += got)
            text.append(buffer, static_cast<size_t>(got));
        std::string stripped;
        for (size_t start = 0; start < text.size();) {
            const size_t stop = text.find('\n', start);
            line = text.substr(start, stop - start);
            stripped += (line.size() >= k_prefix ? line.substr(k_prefix) : line) + "\n";
            start = stop == std::string::npos ? text.size() : stop + 1;
        }
        return stripped;
    }

private:
    static constexpr size_t k_prefix = 19;  // "14:03:07.25 INFO : "
    FILE* file_;
    off_t offset_ = 0;
};
