// What servers write above a body, and what callers write as a header: fields are found as they stand, ranges mean what
// they say, and no line break gets into a request.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "net/body_decoder.h"
#include "net/content_range.h"
#include "net/http_request.h"
#include "net/response_framing.h"
#include "platform/http_transport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

/// Takes a mebibyte and no more.
class DecodedSink final : public vell::HttpSink {
public:
    bool begin(const vell::HttpHead&) override { return true; }
    bool take(const void*, size_t bytes) override {
        constexpr size_t k_room = 1 << 20;
        is_full |= bytes > k_room - taken_bytes_;
        if (!is_full) taken_bytes_ += bytes;
        return !is_full;
    }
    bool is_full = false;

private:
    size_t taken_bytes_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    vell::HttpHead head;
    head.lines = text;
    const std::string_view value = head.field("Content-Range");
    if (!value.empty() && text.find(value) == std::string::npos) std::abort();
    for (const std::string_view each : {std::string_view(text), value}) {
        const auto range = vell::parse_content_range(each);
        if (!range || !range->has_part) continue;
        if (range->first > range->last || range->last >= range->size) std::abort();
        std::string again = "bytes " + std::to_string(range->first) + "-" + std::to_string(range->last) + "/";
        again += range->size == vell::k_unknown_length ? "*" : std::to_string(range->size);
        const auto read = vell::parse_content_range(again);
        if (!read || read->first != range->first || read->last != range->last || read->size != range->size)
            std::abort();
    }
    const vell::BodyFraming framing = vell::read_framing(head);
    if (framing.problem != nullptr && framing.bytes != vell::k_unknown_length) std::abort();
    const auto status = vell::parse_status_line(text);
    if (status && (*status < 100 || *status > 999)) std::abort();
    vell::BodyDecoder decoder;
    DecodedSink sink;
    head.lines = size % 2 == 0 ? "Content-Encoding: gzip, deflate" : "Content-Encoding: deflate";
    const bool goes_on = decoder.open(head) && decoder.take(text.data(), text.size(), sink);
    if (goes_on != (decoder.problem().empty() && !sink.is_full)) std::abort();
    vell::HttpRequest request;
    if (vell::add_header(request, text.c_str()) != nullptr && !request.fields.empty()) std::abort();
    for (const vell::HttpField& field : request.fields) {
        if (field.name.empty() || (field.name + field.value).find_first_of("\r\n:") != std::string::npos) std::abort();
    }
    const bool is_sent = vell::url_problem(text.c_str()) == nullptr;
    if (is_sent && text.substr(0, text.find('\0')).find_first_of("\r\n ") != std::string::npos) std::abort();
    return 0;
}
