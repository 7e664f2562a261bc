// The message log, kept in memory so that a test can look at its lines.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "vellcore/message_log.h"

class CapturedLog {
public:
    CapturedLog() : stream_(open_memstream(&text_, &bytes_)) { msg_initialize(stream_); }
    ~CapturedLog() {
        msg_closedown();
        std::fclose(stream_);
        std::free(text_);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    std::string text() const {
        std::fflush(stream_);
        return {text_, bytes_};
    }
    bool contains(const std::string& part) const { return text().find(part) != std::string::npos; }
    /// Lines so far, continuations included.
    int lines() const {
        int count = 0;
        for (const char c : text())
            count += c == '\n' ? 1 : 0;
        return count;
    }

private:
    char* text_ = nullptr;
    size_t bytes_ = 0;
    FILE* stream_;
};
