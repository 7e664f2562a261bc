// What servers write above a body, and what callers write as a header: fields are found as they stand, ranges mean what
// they say, and no line break gets into a request.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "net/content_range.h"
#include "net/http_request.h"
#include "platform/http_transport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

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
    vell::HttpRequest request;
    if (vell::add_header(request, text.c_str()) != nullptr && !request.fields.empty()) std::abort();
    for (const vell::HttpField& field : request.fields) {
        if (field.name.empty() || (field.name + field.value).find_first_of("\r\n:") != std::string::npos) std::abort();
    }
    const bool is_sent = vell::url_problem(text.c_str()) == nullptr;
    if (is_sent && text.substr(0, text.find('\0')).find_first_of("\r\n ") != std::string::npos) std::abort();
    return 0;
}
