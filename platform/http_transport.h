// HTTP over the system's URL loading: one request, one response, no redirects followed and nothing cached.
//
// To port: one class that sends a request and tells a sink what comes back. What is asked of it:
// - http and https; certificates and host names are checked against the system's trust store, to which the files that
//   SSL_CERT_FILE and SSL_CERT_DIR name are added; proxies come from the environment.
// - Connections are kept between the requests of one object. One on which something came without a request, or that the
//   server has closed, is not used again (RFC 9112, 9.2).
// - The limit is one of idleness: it starts anew with everything that goes over the wire, and it also ends a search for
//   the host's address and a connection that is not answered. Milliseconds count.
// - No signal is raised in the process, and none of its signal handling is changed.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vell {

struct HttpField {
    std::string name;
    std::string value;
};

/// Names of fields are equal whatever their case.
[[nodiscard]] bool is_same_field(std::string_view a, std::string_view b) noexcept;

struct HttpRequest {
    std::string url;                ///< absolute, ASCII without blanks and control characters
    const char* method = "GET";     ///< in capitals
    std::vector<HttpField> fields;  ///< values go out as they stand. Length and framing are the transport's own
    const void* body = nullptr;     ///< stays the caller's
    uint64_t body_bytes = 0;
    bool has_body = false;  ///< also for one of no bytes
    int64_t idle_limit_ms = 0;
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    uint32_t max_header_lines = 0;  ///< fields, those of interim responses and behind the body included; 0: no limit
};

inline constexpr uint64_t k_unknown_length = ~uint64_t{0};

/// What stands above a response's body.
struct HttpHead {
    int32_t status = 0;
    std::string lines;     ///< "Name: value" with a line's end each, as they came; folded lines are joined
    std::string location;  ///< where a response of 3xx points to, made absolute; else empty
    uint64_t body_bytes =
        k_unknown_length;  ///< what the sink will get, where that is known. Not the transport's to set

    /// The value of the first field of that name, without the blanks around it; empty when there is none.
    [[nodiscard]] std::string_view field(std::string_view name) const noexcept;
};

/// The fields of a head, one after another.
class HttpFieldWalk {
public:
    explicit HttpFieldWalk(const HttpHead& head) noexcept : rest_(head.lines) {}
    /// False after the last. Lines without a colon are left out.
    [[nodiscard]] bool next() noexcept;
    /// As it came: with the blanks that may stand before the colon, although none is allowed there.
    [[nodiscard]] std::string_view name() const noexcept { return name_; }
    /// Without the blanks around it.
    [[nodiscard]] std::string_view value() const noexcept { return value_; }

private:
    std::string_view rest_, name_, value_;
};

/// Without blanks, tabs and the end of a line at its ends.
[[nodiscard]] std::string_view without_blanks(std::string_view text) noexcept;

/// The code of a status line (RFC 9112, 4): three digits, at least 100. Nothing for any other line.
[[nodiscard]] std::optional<int32_t> parse_status_line(std::string_view line) noexcept;

/// Takes a response as it comes, on the thread that sends. What answers false ends the transfer. The body is as it was
/// sent, its Content-Encoding included; of transfer codings the transport knows chunks only.
class HttpSink {
public:
    /// The response has begun. Not called for interim responses (1xx).
    virtual bool begin(const HttpHead& head) = 0;
    virtual bool take(const void* data, size_t bytes) = 0;
    /// Asked several times a second while the transfer lasts.
    virtual bool goes_on() { return true; }

protected:
    ~HttpSink() = default;
};

enum class HttpEnd {
    complete,
    stopped,  ///< by the sink
    failed,
};

struct HttpResult {
    HttpEnd end = HttpEnd::failed;
    std::string error;  ///< of a failure, for people
};

class HttpTransport {
public:
    virtual ~HttpTransport() = default;
    [[nodiscard]] virtual HttpResult send(const HttpRequest& request, HttpSink& sink) noexcept = 0;
};

/// Makes a transport; null when memory is short or libcurl is not installed. The system's own until a test puts another
/// one here, which it does before the first request.
extern std::unique_ptr<HttpTransport> (*make_http_transport)() noexcept;

}  // namespace vell
