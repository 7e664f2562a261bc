// Requests and downloads whose outcome is a text, for tables.
#pragma once

#include <string>

#include "vellcore/http_client.h"

/// "status body", "status -" for no body, or "status ! error".
inline std::string ask(const std::string& url, unsigned limit_ms = 30000) {
    vl_http_socket http;
    http.SetTimeOut(0, limit_ms, 0);
    unsigned long long size = 0;
    const unsigned char* data = http.GetHttpData(url.c_str(), VL_HTTP_GET, nullptr, 0, nullptr, &size);
    const std::string status = std::to_string(http.GetStatusCode()) + " ";
    if (*http.LastErrorString() != '\0') return status + "! " + http.LastErrorString();
    return data == nullptr ? status + "-" : status + std::string(reinterpret_cast<const char*>(data), size);
}

/// A download that keeps what came.
struct Download : vl_http_transfer {
    explicit Download(const std::string& address) {
        url = address.c_str();
        context = this;
        data = [](vl_http_transfer& now, const void* bytes, size_t length) {
            static_cast<Download*>(now.context)->got.append(static_cast<const char*>(bytes), length);
            return true;
        };
    }
    std::string got;
};
