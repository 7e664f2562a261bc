// vl_http_socket: one request, its response in memory.

#include "vellcore/http_client.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "net/body_buffer.h"
#include "net/body_decoder.h"
#include "net/http_exchange.h"
#include "net/http_request.h"
#include "net/transport_lease.h"

namespace vell {
namespace {

// Lengths are 32 bits wide in what hosts keep of a response.
constexpr uint64_t k_most_body_bytes = UINT32_MAX;

class MemorySink final : public HttpSink {
public:
    bool begin(const HttpHead& head) override {
        return head.body_bytes == k_unknown_length || body.expect(head.body_bytes);
    }
    bool take(const void* data, size_t bytes) override { return body.add(data, bytes); }

    BodyBuffer body{k_most_body_bytes};
};

uint64_t body_bytes(const char* body, int length) noexcept {
    if (body == nullptr) return 0;
    return length == -1 ? std::strlen(body) : static_cast<uint64_t>(std::max(length, 0));
}

}  // namespace
}  // namespace vell

vl_http_socket::vl_http_socket() noexcept {
    static_assert(offsetof(vl_http_socket, timeout) == 8 && offsetof(vl_http_socket, data) == 16 &&
                  offsetof(vl_http_socket, status) == 24 && offsetof(vl_http_socket, error) == 28 &&
                  offsetof(vl_http_socket, error_text) == 32 && offsetof(vl_http_socket, secure) == 288);
}

vl_http_socket::~vl_http_socket() {
    vell::disown_transport(this);
    std::free(data);
}

void vl_http_socket::SetSecureFlag(bool is_secure) noexcept {
    secure = is_secure;
}

bool vl_http_socket::SetTimeOut(unsigned int, unsigned int second, unsigned int third) noexcept {
    timeout = std::max(second, third) / 1000.0;
    return true;
}

bool vl_http_socket::fail(const char* text) noexcept {
    try {
        vell::copy_error_text(error_text, text);
    } catch (const std::bad_alloc&) {
        error_text[0] = '\0';
    }
    return false;
}

bool vl_http_socket::send(const char* url, int32_t type, const char* body, int body_length, const char* header,
                          bool has_header) noexcept {
    if (url == nullptr) {
        error = -1;
        return false;
    }
    try {
        if (const char* problem = vell::url_problem(url)) return fail(problem);
        vell::HttpRequest request;
        request.url = url;
        request.method = vell::method_of(type);
        request.idle_limit_ms = vell::idle_limit_ms(timeout);
        request.fields = {{"Accept-Encoding", vell::k_offered_codings}, {"Cache-Control", "no-cache"}};
        if (has_header && header == nullptr) {
            request.fields.push_back({"Content-type", "application/x-www-form-urlencoded"});
        } else if (has_header) {
            if (const char* problem = vell::add_header(request, header)) return fail(problem);
        }
        if (type != VL_HTTP_GET) {
            request.body = body;
            request.body_bytes = vell::body_bytes(body, body_length);
            request.has_body = true;
        }
        const vell::TransportLease lease(this);
        if (lease.get() == nullptr) return fail(vell::k_no_transport);
        vell::MemorySink sink;
        const vell::ExchangeResult result =
            vell::exchange(*lease.get(), std::move(request), sink, vell::Codings::undone);
        if (result.status != 0) status = result.status;
        if (result.last.end != vell::HttpEnd::complete && !sink.body.is_given_up())
            return fail(result.last.error.c_str());
        std::free(data);
        uint64_t bytes = 0;
        data = sink.body.release(bytes);
        size = bytes;
        return true;
    } catch (const std::bad_alloc&) {
        return fail("Out of memory");
    }
}

bool vl_http_socket::PostUrl(const char* url, vl_http_request_type type, const char* body, int body_length,
                             const char* header) noexcept {
    return send(url, type, body, body_length, header, /*has_header*/ true);
}

bool vl_http_socket::OpenUrl(const char* url) noexcept {
    return send(url, VL_HTTP_GET, nullptr, 0, nullptr, /*has_header*/ false);
}

bool vl_http_socket::dispatch(const char* url, int32_t type, const char* body, int body_length,
                              const char* header) noexcept {
    status = 0;
    return send(url, type, body, body_length, header, /*has_header*/ type != VL_HTTP_GET);
}

unsigned char* vl_http_socket::GetHttpData(const char* url, vl_http_request_type type, const char* body,
                                           int body_length, const char* header, unsigned long long* size_out) noexcept {
    if (!dispatch(url, type, body, body_length, header)) return nullptr;
    if (size_out != nullptr) *size_out = size;
    return data;
}

int vl_http_socket::PutHttpData(const char* url, const void*, unsigned long long, vl_http_request_type type,
                                const char* body, int body_length, const char* header) noexcept {
    return dispatch(url, type, body, body_length, header) ? 0 : -1;
}

int vl_http_socket::GetStatusCode() const noexcept {
    return status;
}

const char* vl_http_socket::LastErrorString() const noexcept {
    return error_text;
}

void vl_http_socket::SetStatusCode() noexcept {}
