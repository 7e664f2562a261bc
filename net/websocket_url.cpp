// URLs are taken apart by libcurl (RFC 3986).

#include "net/websocket_url.h"

#include <strings.h>

#include <algorithm>
#include <string_view>

#include "platform/curl_library.h"

namespace vell {
namespace {

class Url {
public:
    Url(const char* text, unsigned flags) : url_(load_curl() ? curl.url() : nullptr) {
        is_good_ = url_ != nullptr && curl.url_set(url_, CURLUPART_URL, text, flags) == CURLUE_OK;
    }
    ~Url() {
        if (url_ != nullptr) curl.url_cleanup(url_);
    }
    Url(const Url&) = delete;
    Url& operator=(const Url&) = delete;

    [[nodiscard]] bool is_good() const { return is_good_; }
    /// Empty when the URL does not have the part.
    [[nodiscard]] std::string part(CURLUPart which, unsigned flags = 0) const {
        char* text = nullptr;
        if (!is_good_ || curl.url_get(url_, which, &text, flags) != CURLUE_OK) return "";
        std::string result = text;
        curl.free(text);
        return result;
    }
    /// Without the brackets of an IPv6 address.
    [[nodiscard]] std::string host() const {
        const std::string text = part(CURLUPART_HOST);
        return text.size() > 2 && text.front() == '[' ? text.substr(1, text.size() - 2) : text;
    }
    /// "user:password", decoded.
    [[nodiscard]] std::string credentials() const {
        const std::string user = part(CURLUPART_USER, CURLU_URLDECODE);
        const std::string password = part(CURLUPART_PASSWORD, CURLU_URLDECODE);
        return user.empty() && password.empty() ? "" : user + ":" + password;
    }

private:
    CURLU* url_;
    bool is_good_ = false;
};

/// The first of the variables that is set to something.
std::string environment(std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0') return value;
    return "";
}

bool is_suffix_of_host(std::string_view host, std::string_view name) {
    if (!name.empty() && name.front() == '.') name.remove_prefix(1);
    if (name.empty() || name.size() > host.size()) return false;
    const std::string_view end = host.substr(host.size() - name.size());
    return strncasecmp(end.data(), name.data(), name.size()) == 0 &&
           (end.size() == host.size() || host[host.size() - name.size() - 1] == '.');
}

/// "*", or a list of hosts and domains between commas.
bool is_excepted(const std::string& host) {
    const std::string list = environment({"no_proxy", "NO_PROXY"});
    for (size_t at = 0; at < list.size();) {
        const size_t end = std::min(list.find_first_of(", ", at), list.size());
        const std::string_view name = std::string_view(list).substr(at, end - at);
        if (name == "*" || is_suffix_of_host(host, name)) return true;
        at = end + 1;
    }
    return false;
}

void choose_proxy(WebSocketRequest& request) {
    const std::string text = request.is_secure ? environment({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
                                               : environment({"http_proxy", "all_proxy", "ALL_PROXY"});
    if (text.empty() || is_excepted(request.host)) return;
    const Url proxy(text.c_str(), CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME);
    const std::string port = proxy.part(CURLUPART_PORT);
    if (proxy.part(CURLUPART_SCHEME) != "http") return;
    request.proxy_host = proxy.host();
    request.proxy_port = port.empty() ? "1080" : port;
    request.proxy_credentials = proxy.credentials();
}

bool is_printable_ascii(const char* text) {
    return std::all_of(text, text + std::char_traits<char>::length(text), [](char c) { return c > ' ' && c < 0x7F; });
}

bool read_url(const char* text, WebSocketRequest& request) {
    // The parser would take the path for the host.
    if (!is_printable_ascii(text) || std::string_view(text).find(":///") != std::string_view::npos) return false;
    const Url url(text, CURLU_NON_SUPPORT_SCHEME);
    const std::string scheme = url.part(CURLUPART_SCHEME);
    const std::string port = url.part(CURLUPART_PORT);
    request.is_secure = scheme == "wss";
    request.host = url.host();
    if ((scheme != "ws" && scheme != "wss") || request.host.empty()) return false;
    const std::string usual_port = request.is_secure ? "443" : "80";
    request.port = port.empty() ? usual_port : port;
    request.authority = url.part(CURLUPART_HOST) + (request.port == usual_port ? "" : ":" + request.port);
    request.target = url.part(CURLUPART_PATH);
    if (const std::string query = url.part(CURLUPART_QUERY); !query.empty()) request.target += "?" + query;
    request.credentials = url.credentials();
    choose_proxy(request);
    return true;
}

}  // namespace

bool read_websocket_url(const char* url, WebSocketRequest& request) noexcept {
    try {
        return read_url(url, request);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace vell
