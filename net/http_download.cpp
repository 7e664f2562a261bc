// Downloads that go on. What the caller has is only added to when the response proves that it belongs to the same
// whole; every doubt begins anew.

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <string>

#include "net/content_range.h"
#include "net/http_exchange.h"
#include "net/http_request.h"
#include "net/transport_lease.h"
#include "vellcore/http_client.h"

namespace vell {
namespace {

constexpr int32_t k_ok = 200, k_partial = 206, k_beyond_end = 416;
static_assert(vl_http_transfer::k_unknown_size == k_unknown_length);

/// It goes into requests and into hosts' files: a control character would be more than a version.
bool is_one_line(std::string_view version) {
    return std::none_of(version.begin(), version.end(),
                        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; });
}

/// What names this state of the whole for good (RFC 9110, 8.8): a strong ETag, or a time of change that no further
/// change can share. Empty when the server gives none that fits.
std::string_view lasting_version(const HttpHead& head) {
    const std::string_view tag = head.field("ETag"), changed = head.field("Last-Modified");
    const std::string_view version = tag.starts_with('"') ? tag : changed != head.field("Date") ? changed : "";
    return version.size() < sizeof vl_http_transfer::version && is_one_line(version) ? version : "";
}

class DownloadSink final : public HttpSink {
public:
    DownloadSink(vl_http_transfer& transfer, bool asks_for_rest) : transfer_(transfer), asks_for_rest_(asks_for_rest) {}

    bool begin(const HttpHead& head) override {
        transfer_.status = head.status;
        if (head.status == k_ok) return begin_anew(head);
        if (head.status == k_partial && asks_for_rest_) return begin_rest(head);
        if (head.status == k_beyond_end && asks_for_rest_) return begin_nothing(head);
        result_ = VL_HTTP_REFUSED;
        return false;
    }
    bool take(const void* data, size_t bytes) override {
        if (is_finished_) return true;  // the text of a 416
        if (bytes > body_end_ - transfer_.offset) {
            problem_ = "The server sends more than it announced";
            result_ = VL_HTTP_FAILED;
            return false;
        }
        const bool goes_on = transfer_.data(transfer_, data, bytes);
        transfer_.offset += bytes;
        if (!goes_on) result_ = VL_HTTP_STOPPED;
        return goes_on;
    }
    bool goes_on() override {
        const bool goes_on = transfer_.wait == nullptr || transfer_.wait(transfer_);
        if (!goes_on) result_ = VL_HTTP_STOPPED;
        return goes_on;
    }

    [[nodiscard]] bool wants_new_begin() const { return wants_new_begin_; }
    [[nodiscard]] int32_t finish(const HttpResult& last);

private:
    bool tell_begin() {
        has_begun_ = true;
        const bool goes_on = transfer_.begin == nullptr || transfer_.begin(transfer_);
        if (!goes_on) result_ = VL_HTTP_STOPPED;
        return goes_on;
    }
    bool begin_anew(const HttpHead& head) {
        transfer_.offset = 0;
        transfer_.size = body_end_ = head.body_bytes;
        const std::string_view version = lasting_version(head);
        *std::copy(version.begin(), version.end(), transfer_.version) = '\0';
        return tell_begin();
    }
    /// Nothing when the response says it twice.
    static std::optional<ContentRange> range_of(const HttpHead& head) {
        int count = 0;
        for (HttpFieldWalk fields(head); fields.next();)
            count += is_same_field(fields.name(), "Content-Range") ? 1 : 0;
        return count == 1 ? parse_content_range(head.field("Content-Range")) : std::nullopt;
    }
    /// A server may leave its version out of a partial response, since it was asked for that very version.
    bool is_same_version(const HttpHead& head) const {
        const bool is_tag = transfer_.version[0] == '"';
        const std::string_view version = head.field(is_tag ? "ETag" : "Last-Modified");
        return version.empty() || version == transfer_.version;
    }
    bool begin_rest(const HttpHead& head) {
        const auto range = range_of(head);
        const bool fits = range && range->has_part && range->first == transfer_.offset && is_same_version(head) &&
                          (transfer_.size == k_unknown_length || transfer_.size == range->size) &&
                          (head.body_bytes == k_unknown_length || head.body_bytes == range->last - range->first + 1);
        if (!fits) return ask_anew();
        transfer_.size = range->size;
        body_end_ = range->last + 1;
        return tell_begin();
    }
    /// Everything is there already, or more than everything.
    bool begin_nothing(const HttpHead& head) {
        const auto range = range_of(head);
        const bool fits = range && !range->has_part && range->size == transfer_.offset &&
                          (transfer_.size == k_unknown_length || transfer_.size == range->size);
        if (!fits) return ask_anew();
        transfer_.size = range->size;
        is_finished_ = true;
        return tell_begin();
    }
    bool ask_anew() {
        wants_new_begin_ = true;
        return false;
    }

    vl_http_transfer& transfer_;
    const bool asks_for_rest_;
    uint64_t body_end_ = k_unknown_length;  // where the whole stands when the body has come
    bool has_begun_ = false;
    bool is_finished_ = false;
    bool wants_new_begin_ = false;
    std::optional<int32_t> result_;  // decided by what came or by the caller
    std::string problem_;
};

int32_t DownloadSink::finish(const HttpResult& last) {
    std::string problem = problem_;
    if (result_ == VL_HTTP_REFUSED) {
        problem = "The server answers with status " + std::to_string(transfer_.status);
    } else if (last.end == HttpEnd::failed) {
        problem = last.error;
    } else if (!result_ && problem.empty() && transfer_.size != k_unknown_length && transfer_.offset < transfer_.size) {
        problem = "The response ended " + std::to_string(transfer_.size - transfer_.offset) + " bytes too early";
    }
    if (!problem.empty()) copy_error_text(transfer_.error_text, problem);
    if (result_) return *result_;
    if (is_finished_ || problem.empty()) return VL_HTTP_DONE;
    return has_begun_ ? VL_HTTP_CUT : VL_HTTP_FAILED;
}

void ask_for_rest(const vl_http_transfer& transfer, HttpRequest& request) {
    request.fields.push_back({"Range", "bytes=" + std::to_string(transfer.offset) + "-"});
    request.fields.push_back({"If-Range", transfer.version});
}

int32_t fail(vl_http_transfer& transfer, const char* problem) {
    copy_error_text(transfer.error_text, problem);
    return VL_HTTP_FAILED;
}

int32_t download(vl_http_transfer& transfer) {
    transfer.status = 0;
    if (transfer.url == nullptr || transfer.data == nullptr)
        return fail(transfer, "No URL, or nobody to take the data");
    if (const char* problem = url_problem(transfer.url)) return fail(transfer, problem);
    HttpRequest request;
    request.url = transfer.url;
    request.idle_limit_ms = idle_limit_ms(transfer.timeout);
    request.max_header_lines = vl_http_get_limits().header_lines;
    request.fields = {{"Accept-Encoding", "identity"}, {"Cache-Control", "no-cache"}};
    if (transfer.header != nullptr) {
        if (const char* problem = add_header(request, transfer.header)) return fail(transfer, problem);
    }
    const TransportLease lease(nullptr);
    if (lease.get() == nullptr) return fail(transfer, k_no_transport);
    const bool has_version = transfer.version[0] != '\0' && is_one_line(transfer.version);
    for (bool asks_for_rest = transfer.offset > 0 && has_version;; asks_for_rest = false) {
        HttpRequest wanted = request;
        if (asks_for_rest) ask_for_rest(transfer, wanted);
        DownloadSink sink(transfer, asks_for_rest);
        const ExchangeResult result = exchange(*lease.get(), std::move(wanted), sink, Codings::kept);
        transfer.status = result.status;
        if (!sink.wants_new_begin()) return sink.finish(result.last);
    }
}

}  // namespace
}  // namespace vell

int32_t vl_http_download(vl_http_transfer& transfer) noexcept {
    try {
        return vell::download(transfer);
    } catch (const std::bad_alloc&) {
        transfer.status = 0;
        constexpr char k_text[] = "Out of memory";
        std::memcpy(transfer.error_text, k_text, sizeof k_text);
        return VL_HTTP_FAILED;
    }
}
