#pragma once
// HTTP: requests whose responses are kept in memory, and downloads that come piece by piece.
//
//     vl_http_socket http;
//     unsigned long long size = 0;
//     const unsigned char* body = http.GetHttpData("https://example.com/", VL_HTTP_GET, nullptr, 0, nullptr, &size);
//     if (body == nullptr) msgerror("%d %s", http.GetStatusCode(), http.LastErrorString());
//
// URLs are http or https, absolute and ASCII, without blanks. Certificates and host names are checked against the
// system's trust store; authorities in the files that SSL_CERT_FILE and SSL_CERT_DIR name are trusted as well. Proxies
// come from the environment (http_proxy, https_proxy, all_proxy, no_proxy). Nothing is cached, no cookies are kept.
//
// Redirects are followed, at most 20 in a row, to http and https only: 303, and 301 and 302 of a POST, go on as GET
// without a body; all others repeat the request. A header of the caller's that is meant for one host (Authorization,
// Cookie, Host) does not go on to another.
//
// A response is complete when all of it came (RFC 9112, 6.3): a Content-Length that is not a number, or is repeated
// with another value, fails the request, and so does a body that is shorter, or whose packing (gzip, deflate) stops in
// the middle. Bodies with other codings fail.
//
// Calls wait until the response is whole, and work without vl_initialize. Connections are kept between the requests of
// an object for its next one.

#include <cstddef>
#include <cstdint>

#include "export.h"

enum vl_http_request_type : int32_t {
    VL_HTTP_GET = 0,
    VL_HTTP_POST = 1,
    VL_HTTP_PUT = 2,
    VL_HTTP_PATCH = 3,
    VL_HTTP_DELETE = 4,
};

/// A client that keeps its last response. One thread at a time; different objects on different threads.
///
/// What the requests have in common:
///
/// - `body`, `body_length`: sent with every method but GET, also when it is empty. -1 means the body's strlen; a null
///   body and other negative lengths mean an empty one.
/// - `header`: "Name:value", one field, both as they stand, blanks included. A text without a colon or with more than
///   one sends no field. A name that is empty, and a text with control characters or beyond ASCII fail the request.
///   Without a header (null) "Content-type" is "application/x-www-form-urlencoded". Content-Length and
///   Transfer-Encoding are not the caller's to set.
/// - An HTTP error (404, 500) is no failure: the body is there, and the status tells.
/// - A failure (no connection, no trust, a URL that is none, a body that is cut off or not packed as it claims, a
///   time-out, more than 20 redirects) leaves the last body as it was and keeps a text; nothing is logged.
class VELL_API vl_http_socket {
public:
    vl_http_socket() noexcept;
    /// Frees the body.
    ~vl_http_socket();
    vl_http_socket(const vl_http_socket&) = delete;
    vl_http_socket& operator=(const vl_http_socket&) = delete;

    /// Stored; no request asks for it: what is checked depends on the URL alone.
    void SetSecureFlag(bool is_secure) noexcept;

    /// How long nothing may happen before a request fails: the larger of the second and third values, in
    /// milliseconds. Whatever goes over the wire starts it anew, so a long download does not fail. 0 means 60 seconds;
    /// 300 seconds until set.
    /// @return  true.
    bool SetTimeOut(unsigned int ignored, unsigned int second, unsigned int third) noexcept;

    /// Sends a request and answers the response's body.
    ///
    /// @param type  0 is OpenUrl(url), whatever the other arguments; values above 4 send PUT.
    /// @param size  receives the body's length in bytes, when there is a body; may be null.
    /// @return  the body, with a zero byte behind it. It stays the object's, until its next request. Null on a
    ///          failure, for an empty body, for one of 4 GiB or more, and when memory is short; GetStatusCode and
    ///          LastErrorString tell more. The status is 0 when no response came.
    unsigned char* GetHttpData(const char* url, vl_http_request_type type, const char* body, int body_length,
                               const char* header, unsigned long long* size) noexcept;

    /// The same without an answer. Kept: `data` is not sent; the body is `body`.
    /// @return  0, or -1 on a failure.
    int PutHttpData(const char* url, const void* data, unsigned long long data_length, vl_http_request_type type,
                    const char* body, int body_length, const char* header) noexcept;

    /// Sends a request; type 0 is a GET without a body, with the header. The status stays when no response comes.
    /// @return  true when the response is whole, whatever its status.
    bool PostUrl(const char* url, vl_http_request_type type, const char* body, int body_length,
                 const char* header) noexcept;

    /// Sends a GET without a header of the caller's.
    bool OpenUrl(const char* url) noexcept;

    /// Of the last response; 0 before the first.
    [[nodiscard]] int GetStatusCode() const noexcept;

    /// The last failure, at most 255 bytes of ASCII; empty before the first. A success does not clear it.
    [[nodiscard]] const char* LastErrorString() const noexcept;

    /// Does nothing.
    void SetStatusCode() noexcept;

    /// Downloads a URL to a file, through memory: for what may be large there is vl_http_download.
    ///
    /// @return  true when the status was 200, and the body was not empty and is in the file, which is replaced.
    /// @errors  "HTTP: File loader failed: Can't write '%s'"; anything else: "HTTP: File loader failed: code %d [%s]"
    ///          with the status and the error text, and the file is not touched.
    static bool ReadFile(const char* url, const char* path) noexcept;

    /// Kept: uploads nothing. Reads the file, sends a GET, and answers false.
    /// @errors  none for a file that is missing or empty, or that there is no memory for; "HTTP: File loader failed:
    ///          Can't read '%s'"; else always "HTTP: File loader failed: code %d [%s]".
    static bool WriteFile(const char* url, const char* path) noexcept;

private:
    VELL_LOCAL bool send(const char* url, int32_t type, const char* body, int body_length, const char* header,
                         bool has_header) noexcept;
    VELL_LOCAL bool dispatch(const char* url, int32_t type, const char* body, int body_length,
                             const char* header) noexcept;
    VELL_LOCAL bool fail(const char* text) noexcept;

    unsigned long long size = 0;    // bytes in data
    double timeout = 300.0;         // seconds
    unsigned char* data = nullptr;  // from malloc, a zero byte behind it
    int status = 0;
    int error = 0;  // -1 after a call with a null URL
    char error_text[256] = "";
    bool secure = true;  // nothing asks for it
};
static_assert(sizeof(vl_http_socket) == 296, "hosts know the size");

// --- Limits and connections -------------------------------------------------------------------------------------

/// What a server may make a request cost. The defaults change nothing: they are what holds without limits of the
/// host's.
struct vl_http_limits {
    static constexpr unsigned long long k_max_body_bytes = 0xFFFFFFFF;

    /// Of a body in memory (vl_http_socket), counted after unpacking: a few hundred KiB of gzip may become hundreds of
    /// MiB. A larger one fails the request. At the default, which is the largest value, it is no body instead (see
    /// GetHttpData).
    unsigned long long body_bytes = k_max_body_bytes;
    /// Milliseconds that a request of vl_http_socket may take in all, redirects included, whatever comes; 0: no limit.
    /// (A download ends itself with its `wait` callback.)
    unsigned int total_ms = 0;
    /// Fields above and behind a body, those of interim responses included; 0: no limit beyond the 256 KiB that all of
    /// them may have together in any case. Downloads too.
    unsigned int header_lines = 0;
};

/// Sets the limits for all requests of the process that begin later. A request that exceeds one fails with a text.
/// @thread  any.
VELL_API void vl_http_set_limits(const vl_http_limits& limits) noexcept;

/// The limits in force. @thread  any.
[[nodiscard]] VELL_API vl_http_limits vl_http_get_limits() noexcept;

/// Closes the connections that are kept for later requests; those of requests under way stay. vl_closedown does it too.
/// Later requests connect again.
/// @thread  any. Holds the transport-table lock, but not while connections are closed.
/// @waits   for nothing: servers are not waited for.
VELL_API void vl_http_close_connections() noexcept;

// --- Downloads --------------------------------------------------------------------------------------------------

/// A download of any size, and what it needs to go on after it was cut.
///
/// The caller fills in the first part and the callbacks. To go on, it calls again with the same object, or with one
/// that has `offset`, `size` and `version` as the last call left them.
struct vl_http_transfer {
    static constexpr unsigned long long k_unknown_size = ~0ULL;

    const char* url = nullptr;
    const char* header = nullptr;  ///< null or "Name:value", as in vl_http_socket
    double timeout = 300.0;        ///< seconds in which nothing happens, as in vl_http_socket

    unsigned long long offset = 0;             ///< bytes that the caller has; counts on while data comes
    unsigned long long size = k_unknown_size;  ///< of the whole, when the server told it
    char version[256] = "";                    ///< what the server calls this state of the whole; may be empty

    void* context = nullptr;  ///< the caller's own
    /// The response has come; the data that follows stands at `offset`. 0 although the caller has more: it is another
    /// whole now, or the server cannot go on in the middle; what the caller has is void. May be null.
    bool (*begin)(vl_http_transfer& transfer) = nullptr;
    /// The next bytes; `offset` counts them afterwards.
    bool (*data)(vl_http_transfer& transfer, const void* bytes, size_t length) = nullptr;
    /// Asked several times a second while the call lasts. May be null.
    bool (*wait)(vl_http_transfer& transfer) = nullptr;

    int status = 0;             ///< of the last response; 0 when none came
    char error_text[256] = "";  ///< of the last failure; for people
};

/// What vl_http_download answers.
enum vl_http_download_result : int32_t {
    VL_HTTP_DONE = 0,      ///< everything is there
    VL_HTTP_FAILED = -1,   ///< no response, or none that holds together: no connection, no trust, no URL
    VL_HTTP_CUT = -2,      ///< the response ended, or nothing more came, before its end: call again to go on
    VL_HTTP_REFUSED = -3,  ///< the status is another than the ones that bring the data
    VL_HTTP_STOPPED = -4,  ///< a callback answered false
};

/// Downloads a URL from `offset` on, piece by piece on the calling thread.
///
/// A whole is taken up in the middle only when it is the same still: the server is asked for the rest of `version`
/// (RFC 9110, 13.1.5 and 14.2), and its answer has to agree in version, size and position. Anything else begins anew,
/// at 0. A server that gives no lasting version (a strong ETag, or a time of change before the response's) is always
/// begun anew. Packed transfer is declined, so that offsets are those of the file.
///
/// A callback that answers false ends the call; data that it was given counts as taken. Callbacks must not throw.
/// @return  a vl_http_download_result. Nothing is logged.
/// @thread  any; one call at a time for a transfer.
[[nodiscard]] VELL_API int32_t vl_http_download(vl_http_transfer& transfer) noexcept;
