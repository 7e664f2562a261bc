// HTTP through libcurl's multi interface, which is the one that lets us keep the time: the limits of the simple
// interface count whole seconds and end transfers that are slow but alive.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/curl_library.h"
#include "platform/first_use.h"
#include "platform/http_transport.h"
#include "platform/lock.h"

namespace vell {
namespace {

constexpr size_t k_most_header_bytes = size_t{256} << 10;
constexpr long k_receive_bytes = 256L << 10;
constexpr long k_kept_connections = 8;  // of one transport, to different hosts
constexpr int64_t k_question_ms = 100;  // between two questions whether to go on
constexpr const char* k_protocols = "http,https";

struct Release {
    void operator()(CURL* handle) const noexcept { curl.easy_cleanup(handle); }
    void operator()(CURLU* url) const noexcept { curl.url_cleanup(url); }
    void operator()(char* text) const noexcept { curl.free(text); }
};
using Url = std::unique_ptr<CURLU, Release>;
using CurlText = std::unique_ptr<char, Release>;

/// The library's list of header lines.
class LineList {
public:
    LineList() = default;
    ~LineList() { curl.slist_free_all(list_); }
    LineList(const LineList&) = delete;
    LineList& operator=(const LineList&) = delete;

    void add(const std::string& line) {
        curl_slist* longer = curl.slist_append(list_, line.c_str());
        if (longer == nullptr) throw std::bad_alloc();
        list_ = longer;
    }
    [[nodiscard]] curl_slist* get() const noexcept { return list_; }

private:
    curl_slist* list_ = nullptr;
};

bool has_field(const std::vector<HttpField>& fields, std::string_view name) {
    return std::any_of(fields.begin(), fields.end(),
                       [name](const HttpField& field) { return is_same_field(field.name, name); });
}

/// A line as the library wants it: it takes "Name:" for "send no such field", and "Name;" for an empty one.
std::string header_line(const HttpField& field) {
    const bool is_blank = field.value.find_first_not_of(" \t") == std::string::npos;
    return is_blank ? field.name + ";" : field.name + ": " + field.value;
}

void add_header_lines(const HttpRequest& request, LineList& lines) {
    for (const HttpField& field : request.fields) {
        // A length or a framing that differs from what is sent would let the rest of it pass for another request.
        if (is_same_field(field.name, "Content-Length") || is_same_field(field.name, "Transfer-Encoding")) continue;
        lines.add(header_line(field));
    }
    if (!request.has_body) return;
    // The library adds these to a body by itself; waiting for "100 Continue" costs a second with servers that do not
    // know it.
    for (const char* name : {"Expect", "Content-Type"}) {
        if (!has_field(request.fields, name)) lines.add(std::string(name) + ":");
    }
}

bool is_encrypted(std::string_view url) {
    constexpr std::string_view k_scheme = "https:";
    return is_same_field(url.substr(0, k_scheme.size()), k_scheme);
}

/// What a response of 3xx points to, seen from the URL that it answers. A text that is no URL stays as it is.
std::string absolute_location(CURLU* base, const char* location) {
    const Url url(curl.url_dup(base));
    if (url == nullptr) throw std::bad_alloc();
    char* text = nullptr;
    if (curl.url_set(url.get(), CURLUPART_URL, location,
                     CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK ||
        curl.url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK)
        return location;
    return CurlText(text).get();
}

/// One request while it is under way.
struct Transfer {
    CURL* easy;
    CURLU* url;
    HttpSink& sink;
    uint32_t max_header_lines;  ///< 0: no limit
    HttpHead head{};
    size_t header_bytes = 0;    ///< of interim responses too
    uint32_t header_lines = 0;  ///< as well
    bool has_begun = false;
    bool is_stopped = false;  ///< by the sink
    std::string problem{};    ///< found on our side
    bool is_short_of_memory = false;
    char thrown[128] = "";  ///< what a callback threw

    bool ask(bool goes_on) noexcept {
        is_stopped |= !goes_on;
        return goes_on;
    }
};

/// Completes the head when its last line has come.
void finish_head(Transfer& transfer) {
    HttpHead& head = transfer.head;
    if (head.status / 100 != 3) return;
    const std::string_view location = head.field("Location");
    if (!location.empty()) head.location = absolute_location(transfer.url, std::string(location).c_str());
}

/// What the callbacks answer to have the transfer ended.
constexpr size_t k_end_transfer = 0;

size_t end_transfer(Transfer& transfer, const char* problem) {
    transfer.problem = problem;
    return k_end_transfer;
}

size_t take_line(Transfer& transfer, std::string_view line) {
    HttpHead& head = transfer.head;
    transfer.header_bytes += line.size();
    if (transfer.header_bytes > k_most_header_bytes)
        return end_transfer(transfer, "The header of the response is too long");
    const bool is_end = line.size() <= 2 && (line[0] == '\r' || line[0] == '\n');
    if (head.status != 0 && !is_end && ++transfer.header_lines > transfer.max_header_lines &&
        transfer.max_header_lines != 0)
        return end_transfer(transfer, "The header of the response has more lines than the host's limit");
    if (transfer.has_begun) return line.size();  // fields behind a body change nothing any more
    if (head.status == 0) {
        const auto status = parse_status_line(line);
        if (!status) return end_transfer(transfer, "The response has an invalid status line");
        head.status = *status;
        return line.size();
    }
    if (!is_end) {
        const bool is_folded = (line[0] == ' ' || line[0] == '\t') && !head.lines.empty();  // RFC 9112, 5.2
        if (is_folded) head.lines.resize(head.lines.find_last_not_of("\r\n") + 1);
        head.lines.append(line);
        return line.size();
    }
    finish_head(transfer);
    if (head.status / 100 == 1) {
        head = {};
        return line.size();
    }
    transfer.has_begun = true;
    return transfer.ask(transfer.sink.begin(head)) ? line.size() : k_end_transfer;
}

/// Runs what a callback does; nothing may be thrown through the library.
template <class Body>
size_t guarded(Transfer& transfer, Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        transfer.is_short_of_memory = true;
    } catch (const std::exception& error) {
        std::snprintf(transfer.thrown, sizeof transfer.thrown, "%s", error.what());
    }
    return k_end_transfer;
}

size_t take_header_line(char* line, size_t, size_t bytes, void* context) noexcept {
    auto& transfer = *static_cast<Transfer*>(context);
    return guarded(transfer, [&] { return take_line(transfer, {line, bytes}); });
}

size_t take_body(char* data, size_t, size_t bytes, void* context) noexcept {
    auto& transfer = *static_cast<Transfer*>(context);
    return guarded(transfer, [&] { return transfer.ask(transfer.sink.take(data, bytes)) ? bytes : k_end_transfer; });
}

/// The library's sockets. Between two requests they are those of kept connections, which have nothing to say.
class KeptSockets {
public:
    KeptSockets() = default;
    KeptSockets(const KeptSockets&) = delete;
    KeptSockets& operator=(const KeptSockets&) = delete;

    /// Ends the connections on which anything came since the last request: the library would take it for the response
    /// to the next one (RFC 9112, 9.2). The descriptors stay the library's.
    void discard_disturbed() const noexcept {
        for (const int descriptor : descriptors_) {
            pollfd looked_at{descriptor, POLLIN, 0};
            if (poll(&looked_at, 1, 0) != 0) put_end_in_place_of(descriptor);
        }
    }

    static curl_socket_t open(void* context, curlsocktype, curl_sockaddr* address) noexcept {
        const int descriptor = socket(address->family, address->socktype, address->protocol);
        if (descriptor < 0) return CURL_SOCKET_BAD;
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        try {
            static_cast<KeptSockets*>(context)->descriptors_.push_back(descriptor);
        } catch (const std::bad_alloc&) {
            ::close(descriptor);
            return CURL_SOCKET_BAD;
        }
        return descriptor;
    }
    static int close(void* context, curl_socket_t descriptor) noexcept {
        std::erase(static_cast<KeptSockets*>(context)->descriptors_, descriptor);
        return ::close(descriptor);
    }

private:
    /// What reads from it then finds the end of a connection and none of the bytes that came, through TLS too.
    static void put_end_in_place_of(int descriptor) noexcept {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            shutdown(descriptor, SHUT_RDWR);
            return;
        }
        ::close(ends[1]);
        dup2(ends[0], descriptor);
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        ::close(ends[0]);
    }

    std::vector<int> descriptors_;
};

/// The handle is the loop's to the end of the scope.
class UnderWay {
public:
    UnderWay(CURLM* multi, CURL* easy) : multi_(multi), easy_(easy) {
        if (curl.multi_add_handle(multi, easy) != CURLM_OK) throw std::bad_alloc();
    }
    ~UnderWay() { curl.multi_remove_handle(multi_, easy_); }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;

private:
    CURLM* multi_;
    CURL* easy_;
};

class CurlTransport final : public HttpTransport {
public:
    CurlTransport() noexcept : multi_(curl.multi_init()), easy_(curl.easy_init()) {
        if (multi_ != nullptr) curl.multi_setopt(multi_, CURLMOPT_MAXCONNECTS, k_kept_connections);
    }
    ~CurlTransport() override {
        easy_.reset();
        if (multi_ != nullptr) curl.multi_cleanup(multi_);
    }
    CurlTransport(const CurlTransport&) = delete;
    CurlTransport& operator=(const CurlTransport&) = delete;

    [[nodiscard]] bool is_good() const noexcept { return multi_ != nullptr && easy_ != nullptr; }

    HttpResult send(const HttpRequest& request, HttpSink& sink) noexcept override {
        const CancelShield shield;
        try {
            return exchange(request, sink);
        } catch (const std::bad_alloc&) {
            return {HttpEnd::failed, "Out of memory"};
        } catch (const std::exception& error) {
            return failure(error);
        }
    }

private:
    static HttpResult failure(const std::exception& error) noexcept {
        try {
            return {HttpEnd::failed, error.what()};
        } catch (const std::exception&) {
            return {HttpEnd::failed, "Out of memory"};
        }
    }
    HttpResult exchange(const HttpRequest& request, HttpSink& sink) {
        const Url url(curl.url());
        if (url == nullptr) throw std::bad_alloc();
        const CURLUcode wrong = curl.url_set(url.get(), CURLUPART_URL, request.url.c_str(), 0);
        if (wrong != CURLUE_OK) return {HttpEnd::failed, curl.url_strerror(wrong)};
        LineList lines;
        add_header_lines(request, lines);
        Transfer transfer{easy_.get(), url.get(), sink, request.max_header_lines};
        sockets_.discard_disturbed();
        if (!is_fresh_) refresh();
        if (is_encrypted(request.url)) trust_authorities_of_environment();
        set_request(request, transfer, lines);
        return run(transfer, request);
    }

    /// The library counts the kept connections that servers had closed, and would give up after five in a handle's
    /// life. The connections themselves stay.
    void refresh() noexcept {
        CURL* easy = easy_.get();
        curl.easy_reset(easy);
        is_fresh_ = true;
        curl.easy_setopt(easy, CURLOPT_ERRORBUFFER, error_text_);
        curl.easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl.easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);  // else the end waits for a name server that never answers
        curl.easy_setopt(easy, CURLOPT_PROTOCOLS_STR, k_protocols);
        curl.easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, k_protocols);
        // One request at a time has nothing to gain from streams.
        curl.easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        curl.easy_setopt(easy, CURLOPT_USERAGENT, "VellCore/" VELL_VERSION);
        curl.easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        curl.easy_setopt(easy, CURLOPT_BUFFERSIZE, k_receive_bytes);
        curl.easy_setopt(easy, CURLOPT_HEADERFUNCTION, take_header_line);
        curl.easy_setopt(easy, CURLOPT_WRITEFUNCTION, take_body);
        curl.easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, KeptSockets::open);
        curl.easy_setopt(easy, CURLOPT_OPENSOCKETDATA, &sockets_);
        curl.easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, KeptSockets::close);
        curl.easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, &sockets_);
    }

    /// The system's folder of authorities stays in force beside the file.
    void trust_authorities_of_environment() noexcept {
        const char* file = std::getenv("SSL_CERT_FILE");
        if (file != nullptr && *file != '\0') curl.easy_setopt(easy_.get(), CURLOPT_CAINFO, file);
        const char* folder = std::getenv("SSL_CERT_DIR");
        if (folder != nullptr && *folder != '\0') curl.easy_setopt(easy_.get(), CURLOPT_CAPATH, folder);
    }

    void set_request(const HttpRequest& request, Transfer& transfer, const LineList& lines) noexcept {
        CURL* easy = easy_.get();
        curl.easy_setopt(easy, CURLOPT_CURLU, transfer.url);
        curl.easy_setopt(easy, CURLOPT_HTTPHEADER, lines.get());
        // Of this time the library leaves each of a host's addresses its share.
        curl.easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.idle_limit_ms));
        if (request.has_body) {
            curl.easy_setopt(easy, CURLOPT_POST, 1L);
            curl.easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body_bytes));
            curl.easy_setopt(easy, CURLOPT_POSTFIELDS, request.body_bytes > 0 ? request.body : "");
        } else {
            curl.easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        }
        curl.easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method);
        curl.easy_setopt(easy, CURLOPT_HEADERDATA, &transfer);
        curl.easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
    }

    HttpResult run(Transfer& transfer, const HttpRequest& request) {
        error_text_[0] = '\0';
        is_fresh_ = false;
        CURLcode code = CURLE_OK;
        bool has_ended = false;
        {
            const UnderWay under_way(multi_, easy_.get());
            has_ended = drive(transfer, request, code);
        }
        long connections = 0;
        is_fresh_ = curl.easy_getinfo(easy_.get(), CURLINFO_NUM_CONNECTS, &connections) == CURLE_OK && connections == 0;
        if (transfer.is_short_of_memory) throw std::bad_alloc();
        if (transfer.thrown[0] != '\0') return {HttpEnd::failed, transfer.thrown};
        if (!transfer.problem.empty()) return {HttpEnd::failed, transfer.problem};
        if (transfer.is_stopped) return {HttpEnd::stopped, ""};
        // The library takes a connection that closes between two fields for an empty response.
        if (has_ended && code == CURLE_OK && !transfer.has_begun)
            return {HttpEnd::failed, "The connection was closed inside the response's header"};
        if (has_ended && code == CURLE_OK) return {HttpEnd::complete, ""};
        return {HttpEnd::failed, error_text_[0] != '\0' ? error_text_ : curl.easy_strerror(code)};
    }

    static bool is_fine(CURLMcode code, Transfer& transfer) {
        if (code != CURLM_OK) transfer.problem = curl.multi_strerror(code);
        return code == CURLM_OK;
    }

    /// Moves the transfer on until it ends. False when it was ended here; the transfer says why.
    bool drive(Transfer& transfer, const HttpRequest& request, CURLcode& code) {
        using Clock = std::chrono::steady_clock;
        const auto limit = std::chrono::milliseconds(request.idle_limit_ms);
        Clock::time_point last_sign = Clock::now();
        for (int signs = 1;;) {
            int running = 0;
            if (!is_fine(curl.multi_perform(multi_, &running), transfer)) return false;
            if (running == 0) break;
            // Counted from here, so that a sink that takes its time is not idleness of the server.
            const Clock::time_point now = Clock::now();
            if (signs > 0) last_sign = now;
            if (now - last_sign >= limit) {
                char text[64];
                std::snprintf(text, sizeof text, "Timed out: nothing came for %lld.%03lld seconds",
                              static_cast<long long>(limit.count() / 1000),
                              static_cast<long long>(limit.count() % 1000));
                transfer.problem = text;
                return false;
            }
            if (now >= request.deadline) {
                transfer.problem = "Timed out: the request took longer than its limit";
                return false;
            }
            if (!transfer.ask(transfer.sink.goes_on())) return false;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                                  std::min<Clock::duration>(limit - (now - last_sign), request.deadline - now))
                                  .count();
            const int wait_ms = static_cast<int>(std::min<int64_t>(left, k_question_ms));
            if (!is_fine(curl.multi_poll(multi_, nullptr, 0, wait_ms, &signs), transfer)) return false;
        }
        int waiting = 0;
        const CURLMsg* message = curl.multi_info_read(multi_, &waiting);
        code = message != nullptr ? message->data.result : CURLE_FAILED_INIT;
        return true;
    }

    KeptSockets sockets_;
    CURLM* multi_;
    std::unique_ptr<CURL, Release> easy_;
    bool is_fresh_ = false;  ///< as refresh() left it, but for what every request sets
    char error_text_[CURL_ERROR_SIZE] = "";
};

std::unique_ptr<HttpTransport> make_curl_transport() noexcept {
    // Never undone: the host may use the library too.
    static constinit FirstUse first_transport;
    static constinit bool is_ready = false;
    first_transport.run([] { is_ready = load_curl() && curl.global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
    if (!is_ready) return nullptr;
    auto* transport = new (std::nothrow) CurlTransport;
    if (transport == nullptr || transport->is_good()) return std::unique_ptr<HttpTransport>(transport);
    delete transport;
    return nullptr;
}

}  // namespace

std::unique_ptr<HttpTransport> (*make_http_transport)() noexcept = make_curl_transport;

}  // namespace vell
