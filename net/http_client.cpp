// vl_http_socket: one request, its response in memory.

#include "vellcore/http_client.h"

#include <algorithm>
#include <atomic>
#include <chrono>
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

static_assert(vl_http_limits::k_max_body_bytes == k_most_body_bytes);

class MemorySink final : public HttpSink {
public:
    explicit MemorySink(uint64_t limit_bytes) : limit_bytes_(limit_bytes) {}

    bool begin(const HttpHead& head) override {
        if (head.body_bytes == k_unknown_length) return true;
        return keeps_limit(head.body_bytes) && body.expect(head.body_bytes);
    }
    bool take(const void* data, size_t bytes) override {
        taken_bytes_ += bytes;
        return keeps_limit(taken_bytes_) && body.add(data, bytes);
    }
    [[nodiscard]] bool is_over_limit() const { return is_over_limit_; }

    BodyBuffer body{k_most_body_bytes};

private:
    /// A body above the largest limit is the buffer's to give up.
    bool keeps_limit(uint64_t bytes) {
        is_over_limit_ = bytes > limit_bytes_ && limit_bytes_ < k_most_body_bytes;
        return !is_over_limit_;
    }

    const uint64_t limit_bytes_;
    uint64_t taken_bytes_ = 0;
    bool is_over_limit_ = false;
};

/// The host's limits, each on its own.
struct Limits {
    std::atomic<unsigned long long> body_bytes{vl_http_limits::k_max_body_bytes};
    std::atomic<unsigned int> total_ms{0};
    std::atomic<unsigned int> header_lines{0};
};
constinit Limits limits_in_force;

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
        const vl_http_limits limits = vl_http_get_limits();
        request.max_header_lines = limits.header_lines;
        if (limits.total_ms != 0)
            request.deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limits.total_ms);
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
        vell::MemorySink sink(limits.body_bytes);
        const vell::ExchangeResult result =
            vell::exchange(*lease.get(), std::move(request), sink, vell::Codings::undone);
        if (result.status != 0) status = result.status;
        if (sink.is_over_limit()) return fail("The body is larger than the host's limit");
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

void vl_http_set_limits(const vl_http_limits& limits) noexcept {
    vell::limits_in_force.body_bytes = std::min(limits.body_bytes, vl_http_limits::k_max_body_bytes);
    vell::limits_in_force.total_ms = limits.total_ms;
    vell::limits_in_force.header_lines = limits.header_lines;
}

vl_http_limits vl_http_get_limits() noexcept {
    return {.body_bytes = vell::limits_in_force.body_bytes,
            .total_ms = vell::limits_in_force.total_ms,
            .header_lines = vell::limits_in_force.header_lines};
}

void vl_http_close_connections() noexcept {
    vell::close_waiting_transports();
}
