// One formatted line, flushed, from one and from four threads: the log beside a bare write, printf with a flush,
// spdlog (given the same text, formatted by printf, and flushing every line) and glog.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glog/logging.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <mutex>

#include "vellcore/message_log.h"
#include "vellcore/threads.h"

namespace {

/// A folder for the log files, removed at the end.
class Folder {
public:
    Folder() {
        char name[] = "log_bench_XXXXXX";
        path_ = mkdtemp(name);
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string file(const char* name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};
const Folder folder;

constexpr char k_format[] = "frame %d of %s decoded in %d us (%d)";

int format_line(char* text, size_t size, int number) {
    return std::snprintf(text, size, k_format, number, "clip_0042.mov", number * 7 % 5000, number & 7);
}

void vellcore_log(benchmark::State& state) {
    static FILE* stream = nullptr;
    if (state.thread_index() == 0) {
        stream = std::fopen(folder.file("vellcore").c_str(), "w");
        std::setvbuf(stream, nullptr, _IONBF, 0);
        mp_init_clock();
        msg_initialize(stream);
    }
    int number = state.thread_index() * 10000000;
    for (auto _ : state) {
        ++number;
        msginfo(k_format, number, "clip_0042.mov", number * 7 % 5000, number & 7);
    }
    if (state.thread_index() == 0) {
        msg_closedown();
        std::fclose(stream);
    }
}

void bare_write(benchmark::State& state) {
    static int file = -1;
    if (state.thread_index() == 0) file = open(folder.file("write").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const char line[] = "14:03:07.25 INFO : frame 1234567 of clip_0042.mov decoded in 1234 us (5)\n";
    for (auto _ : state)
        benchmark::DoNotOptimize(write(file, line, sizeof line - 1));
    if (state.thread_index() == 0) close(file);
}

void printf_flush(benchmark::State& state) {
    static FILE* stream = nullptr;
    if (state.thread_index() == 0) stream = std::fopen(folder.file("printf").c_str(), "w");
    int number = state.thread_index() * 10000000;
    for (auto _ : state) {
        ++number;
        std::fprintf(stream, "%02d:%02d:%05.2f %s: ", 14, 3, 7.25, "INFO ");
        std::fprintf(stream, k_format, number, "clip_0042.mov", number * 7 % 5000, number & 7);
        std::fputc('\n', stream);
        std::fflush(stream);
    }
    if (state.thread_index() == 0) std::fclose(stream);
}

void spdlog_flush(benchmark::State& state) {
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0) {
        logger = spdlog::basic_logger_mt("bench", folder.file("spdlog"));
        logger->set_pattern("%H:%M:%S.%e %l : %v");
        logger->flush_on(spdlog::level::trace);
    }
    int number = state.thread_index() * 10000000;
    char text[256];
    for (auto _ : state) {
        const int length = format_line(text, sizeof text, ++number);
        logger->info(spdlog::string_view_t(text, static_cast<size_t>(length)));
    }
    if (state.thread_index() == 0) {
        logger.reset();
        spdlog::drop_all();
    }
}

void glog_flush(benchmark::State& state) {
    static std::once_flag once;
    std::call_once(once, [] {
        google::InitGoogleLogging("log_bench");
        FLAGS_logbuflevel = -1;
        google::SetLogDestination(google::GLOG_INFO, folder.file("glog").c_str());
    });
    int number = state.thread_index() * 10000000;
    char text[256];
    for (auto _ : state) {
        format_line(text, sizeof text, ++number);
        LOG(INFO) << text;
    }
}

void vellcore_filtered(benchmark::State& state) {
    for (auto _ : state)
        msgdebug(k_format, 1, "clip_0042.mov", 2, 3);
}

BENCHMARK(vellcore_log)->Name("log/vellcore")->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(bare_write)->Name("log/bare_write")->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(printf_flush)->Name("log/printf_fflush")->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(spdlog_flush)->Name("log/spdlog")->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(glog_flush)->Name("log/glog")->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(vellcore_filtered)->Name("log_filtered/vellcore");

}  // namespace
