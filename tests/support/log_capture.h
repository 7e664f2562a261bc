#pragma once
// Opens the log on a stream in memory and hands out what was written.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vellcore/message_log.h"
#include "vellcore/threads.h"

/// The log, open at a level for the life of this object. What it writes goes through a stream that has no descriptor.
class LogCapture {
public:
    explicit LogCapture(int32_t level = MSG_INFO) : stream_(open_memstream(&text_, &length_)) {
        msg_initialize(stream_);
        msg_setlevel(level);
    }
    ~LogCapture() {
        msg_closedown();
        std::fclose(stream_);
        std::free(text_);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Everything so far.
    std::string text() const {
        std::fflush(stream_);
        return {text_, length_};
    }

    bool contains(const std::string& part) const { return text().find(part) != std::string::npos; }

    /// Lines so far, continuations included.
    int line_count() const { return static_cast<int>(lines().size()); }

    /// The lines so far, time stamps replaced: "INFO : text", continuations as ": text".
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        const std::string all = text();
        for (size_t at = 0; at < all.size();) {
            const size_t end = all.find('\n', at);
            const std::string line = all.substr(at, end - at);
            result.push_back(line.size() < 19 ? line : line.substr(line.front() == ' ' ? 17 : 12));
            at = end == std::string::npos ? all.size() : end + 1;
        }
        return result;
    }

private:
    char* text_ = nullptr;
    size_t length_ = 0;
    FILE* stream_;
};
