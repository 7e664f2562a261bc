// Asks a server for a page, then downloads it piece by piece, going on where it was cut.

#include <vellcore/vellcore.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::printf("usage: example_http_get URL\n");
        return 0;
    }
    vl_http_socket http;
    http.SetTimeOut(0, 5000, 0);  // milliseconds without a sign of life
    unsigned long long size = 0;
    const unsigned char* body = http.GetHttpData(argv[1], VL_HTTP_GET, nullptr, 0, "Accept-Language:en", &size);
    std::printf("status %d, %llu bytes %s\n", http.GetStatusCode(), size, http.LastErrorString());
    if (body == nullptr) return 1;

    unsigned long long bytes = 0;
    vl_http_transfer transfer;
    transfer.url = argv[1];
    transfer.context = &bytes;
    transfer.data = [](vl_http_transfer& now, const void*, size_t length) {
        *static_cast<unsigned long long*>(now.context) += length;  // a host would write them to a file at now.offset
        return true;
    };
    int32_t result = VL_HTTP_CUT;
    for (int attempts = 0; result == VL_HTTP_CUT && attempts < 3; ++attempts)
        result = vl_http_download(transfer);
    std::printf("result %d, %llu bytes, version %s\n", static_cast<int>(result), bytes, transfer.version);
    return result == VL_HTTP_DONE && bytes == size ? 0 : 1;
}
