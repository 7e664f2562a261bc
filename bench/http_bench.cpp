// HTTP from a web server on the loopback interface: many small requests, and a body of a gigabyte.
//
// Peers: libcurl's simple interface as its users write it (one handle kept, the body into memory that grows), and the
// curl program. The server is nginx, started here; the large file is sparse, so it costs no disk.
//
// Groups: "http_small" (a pass is 1,000 requests of 100 bytes on a kept connection), "http_gigabyte" (into memory),
// "http_stream" (1 GiB, every piece dropped as it comes).

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/nginx_server.h"
#include "vellcore/http_client.h"

namespace {

constexpr int k_requests = 1000;
constexpr uint64_t k_large_bytes = uint64_t{1} << 30;
constexpr size_t k_small_bytes = 100;

class BenchServer {
public:
    BenchServer() : nginx_("sendfile on;") {
        for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"})
            unsetenv(name);
        nginx_.folder().write("www/small", std::string(k_small_bytes, 's'));
        const std::string large = nginx_.folder().write("www/large", "");
        std::filesystem::resize_file(large, k_large_bytes);
        if (std::system(("cat '" + large + "' >/dev/null").c_str()) != 0) std::abort();  // into the page cache
    }
    std::string small() const { return nginx_.url("/small"); }
    std::string large() const { return nginx_.url("/large"); }

private:
    NginxServer nginx_;
};

const BenchServer& server() {
    static const BenchServer one;
    return one;
}

/// A body as libcurl's own examples keep it.
struct Memory {
    char* data = nullptr;
    size_t bytes = 0;
    ~Memory() { std::free(data); }
};

size_t keep(char* piece, size_t, size_t bytes, void* context) {
    auto& memory = *static_cast<Memory*>(context);
    auto* longer = static_cast<char*>(std::realloc(memory.data, memory.bytes + bytes + 1));
    if (longer == nullptr) return 0;
    memory.data = longer;
    std::memcpy(memory.data + memory.bytes, piece, bytes);
    memory.bytes += bytes;
    return bytes;
}

size_t count(char*, size_t, size_t bytes, void* context) {
    *static_cast<size_t*>(context) += bytes;
    return bytes;
}

class EasyHandle {
public:
    explicit EasyHandle(const std::string& url) : easy_(curl_easy_init()) {
        curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    }
    ~EasyHandle() { curl_easy_cleanup(easy_); }
    EasyHandle(const EasyHandle&) = delete;
    EasyHandle& operator=(const EasyHandle&) = delete;

    bool into_memory(size_t expected) {
        Memory memory;
        curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, keep);
        curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &memory);
        return curl_easy_perform(easy_) == CURLE_OK && memory.bytes == expected;
    }
    bool counted(size_t expected) {
        size_t bytes = 0;
        curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, count);
        curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &bytes);
        return curl_easy_perform(easy_) == CURLE_OK && bytes == expected;
    }

private:
    CURL* easy_;
};

bool get(vl_http_socket& http, const std::string& url, size_t expected) {
    unsigned long long size = 0;
    return http.GetHttpData(url.c_str(), VL_HTTP_GET, nullptr, 0, nullptr, &size) != nullptr && size == expected;
}

void require(bool is_good, benchmark::State& state) {
    if (!is_good) state.SkipWithError("the transfer failed");
}

void small_vellcore(benchmark::State& state) {
    const std::string url = server().small();
    vl_http_socket http;
    for (auto unused : state) {
        for (int i = 0; i < k_requests; ++i)
            require(get(http, url, k_small_bytes), state);
    }
    state.SetItemsProcessed(state.iterations() * k_requests);
}

void small_libcurl(benchmark::State& state) {
    EasyHandle easy(server().small());
    for (auto unused : state) {
        for (int i = 0; i < k_requests; ++i)
            require(easy.into_memory(k_small_bytes), state);
    }
    state.SetItemsProcessed(state.iterations() * k_requests);
}

void small_curl_program(benchmark::State& state) {
    const std::string command =
        "curl -s -o /dev/null '" + server().small() + "?[1-" + std::to_string(k_requests) + "]'";
    for (auto unused : state)
        require(std::system(command.c_str()) == 0, state);
    state.SetItemsProcessed(state.iterations() * k_requests);
}

void gigabyte_vellcore(benchmark::State& state) {
    const std::string url = server().large();
    for (auto unused : state) {
        vl_http_socket http;
        require(get(http, url, k_large_bytes), state);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(k_large_bytes));
}

void gigabyte_libcurl(benchmark::State& state) {
    EasyHandle easy(server().large());
    for (auto unused : state)
        require(easy.into_memory(k_large_bytes), state);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(k_large_bytes));
}

void stream_vellcore(benchmark::State& state) {
    const std::string url = server().large();
    for (auto unused : state) {
        vl_http_transfer transfer;
        transfer.url = url.c_str();
        transfer.data = [](vl_http_transfer&, const void*, size_t) { return true; };
        require(vl_http_download(transfer) == VL_HTTP_DONE && transfer.offset == k_large_bytes, state);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(k_large_bytes));
}

void stream_libcurl(benchmark::State& state) {
    EasyHandle easy(server().large());
    for (auto unused : state)
        require(easy.counted(k_large_bytes), state);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(k_large_bytes));
}

void stream_curl_program(benchmark::State& state) {
    const std::string command = "curl -s -o /dev/null '" + server().large() + "'";
    for (auto unused : state)
        require(std::system(command.c_str()) == 0, state);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(k_large_bytes));
}

BENCHMARK(small_vellcore)->Name("http_small/vellcore")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(small_libcurl)->Name("http_small/libcurl")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(small_curl_program)->Name("http_small/curl_program")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(gigabyte_vellcore)->Name("http_gigabyte/vellcore")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(gigabyte_libcurl)->Name("http_gigabyte/libcurl")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(stream_vellcore)->Name("http_stream/vellcore")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(stream_libcurl)->Name("http_stream/libcurl")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(stream_curl_program)->Name("http_stream/curl_program")->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
