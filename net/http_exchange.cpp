// The transport's own way with redirects would send PUT and PATCH again without their bodies.

#include "net/http_exchange.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "net/body_decoder.h"
#include "net/http_request.h"
#include "net/response_framing.h"

namespace vell {
namespace {

bool is_redirect(const HttpHead& head) noexcept {
    constexpr int32_t k_statuses[] = {301, 302, 303, 307, 308};
    return !head.location.empty() &&
           std::find(std::begin(k_statuses), std::end(k_statuses), head.status) != std::end(k_statuses);
}

/// Lets a final response through, decoded where that is wanted, and sees to it that all of it came. The text of a
/// redirect is read and dropped, which keeps the connection; a long one is not worth it.
class HopSink final : public HttpSink {
public:
    HopSink(HttpSink& sink, int32_t& status, Codings codings) : sink_(sink), status_(status), codings_(codings) {}

    bool begin(const HttpHead& head) override {
        status_ = head.status;
        const BodyFraming framing = read_framing(head);
        if (framing.problem != nullptr) {
            problem_ = framing.problem;
            return false;
        }
        wanted_bytes_ = framing.bytes;
        if (is_redirect(head)) {
            location_ = head.location;
            return true;
        }
        if (codings_ == Codings::undone && !decoder_.open(head)) return false;
        HttpHead known = head;
        known.body_bytes = decoder_.is_active() ? k_unknown_length : framing.bytes;
        return sink_.begin(known);
    }
    bool take(const void* data, size_t bytes) override {
        taken_bytes_ += bytes;
        if (location_.empty())
            return decoder_.is_active() ? decoder_.take(data, bytes, sink_) : sink_.take(data, bytes);
        return taken_bytes_ <= k_most_dropped_bytes;
    }
    bool goes_on() override {
        is_given_up_ = !sink_.goes_on();
        return !is_given_up_;
    }
    /// What became of the response, seen from here.
    [[nodiscard]] HttpResult finish(HttpResult result);

    /// Empty when the response was the last, or is not to be followed any more.
    [[nodiscard]] const std::string& location() const { return location_; }
    [[nodiscard]] bool is_given_up() const { return is_given_up_; }

private:
    static constexpr size_t k_most_dropped_bytes = 256 << 10;

    HttpSink& sink_;
    int32_t& status_;
    const Codings codings_;
    BodyDecoder decoder_;
    std::string location_;
    std::string problem_;
    uint64_t wanted_bytes_ = k_unknown_length;  // as sent
    uint64_t taken_bytes_ = 0;
    bool is_given_up_ = false;
};

HttpResult HopSink::finish(HttpResult result) {
    if (result.end == HttpEnd::complete) {
        const bool is_short = wanted_bytes_ != k_unknown_length && taken_bytes_ < wanted_bytes_;
        // A body of no bytes is no stream of any coding; servers send one with a length of 0.
        const bool is_empty = wanted_bytes_ == 0;
        if (is_short) {
            problem_ = "The response ended " + std::to_string(wanted_bytes_ - taken_bytes_) + " bytes too early";
        } else if (!is_empty && decoder_.is_active()) {
            static_cast<void>(decoder_.finish());
        }
    }
    const std::string& problem = problem_.empty() ? decoder_.problem() : problem_;
    if (problem.empty()) return result;
    return {HttpEnd::failed, problem};
}

/// Scheme, host and port of an absolute URL, in lower case, without the user's name.
std::string origin_of(const std::string& url) {
    const size_t host = url.find("://") + std::strlen("://");
    const size_t end = std::min(url.find_first_of("/?#", host), url.size());
    const size_t at = url.rfind('@', end);
    const size_t from = at != std::string::npos && at >= host && at < end ? at + 1 : host;
    std::string origin = url.substr(0, host) + url.substr(from, end - from);
    std::transform(origin.begin(), origin.end(), origin.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return origin;
}

template <size_t Count>
void drop_fields(HttpRequest& request, const char* const (&names)[Count]) {
    std::erase_if(request.fields, [&names](const HttpField& field) {
        return std::any_of(std::begin(names), std::end(names),
                           [&field](const char* name) { return is_same_field(field.name, name); });
    });
}

/// RFC 9110, 15.4, as browsers read it: only a POST changes after 301 and 302.
void redirect(HttpRequest& request, int32_t status, const std::string& location) {
    constexpr const char* k_of_host[] = {"Authorization", "Cookie", "Host", "Proxy-Authorization"};
    constexpr const char* k_about_body[] = {"Content-Type", "Content-Encoding", "Content-Language", "Content-Location"};
    const bool is_post = std::strcmp(request.method, "POST") == 0;
    if (status == 303 || (is_post && (status == 301 || status == 302))) {
        request.method = "GET";
        request.has_body = false;
        drop_fields(request, k_about_body);
    }
    if (origin_of(location) != origin_of(request.url)) drop_fields(request, k_of_host);
    request.url = location;
}

}  // namespace

ExchangeResult exchange(HttpTransport& transport, HttpRequest request, HttpSink& sink, Codings codings) {
    ExchangeResult result;
    for (int redirects = 0;; ++redirects) {
        HopSink hop(sink, result.status, codings);
        result.last = hop.finish(transport.send(request, hop));
        const bool is_followed = !hop.location().empty() && result.last.end != HttpEnd::failed && !hop.is_given_up();
        if (!is_followed) return result;
        const char* problem = url_problem(hop.location().c_str());
        if (redirects == k_most_redirects) problem = "More than 20 redirects in a row";
        if (problem != nullptr) {
            result.last = {HttpEnd::failed, std::string("Redirect: ") + problem};
            return result;
        }
        redirect(request, result.status, hop.location());
    }
}

}  // namespace vell
