#include "net/response_framing.h"

#include <algorithm>

#include "net/content_range.h"
#include "net/text_list.h"

namespace vell {
namespace {

constexpr const char* k_bad_length = "The response has an invalid Content-Length";
constexpr const char* k_bad_coding = "The response has a transfer coding that was not asked for";

/// Adds what one field says. RFC 9110, 8.6: the same length may stand there several times.
bool add_lengths(std::string_view value, uint64_t& bytes) noexcept {
    for (std::string_view rest = value;;) {
        const size_t comma = rest.find(',');
        const auto length = parse_length(without_blanks(rest.substr(0, comma)));
        if (!length || (bytes != k_unknown_length && bytes != *length)) return false;
        bytes = *length;
        if (comma == std::string_view::npos) return true;
        rest.remove_prefix(comma + 1);
    }
}

}  // namespace

BodyFraming read_framing(const HttpHead& head) noexcept {
    constexpr int32_t k_no_content = 204, k_not_modified = 304;
    if (head.status == k_no_content || head.status == k_not_modified) return {.bytes = 0};
    BodyFraming framing;
    bool is_chunked = false, has_bad_length = false;
    for (HttpFieldWalk fields(head); fields.next();) {
        // The transport did not see a field with a blank before its colon (RFC 9112, 5.1).
        const std::string_view name = without_blanks(fields.name());
        const bool is_seen = name.size() == fields.name().size();
        if (is_same_field(name, "Content-Length")) {
            has_bad_length |= !is_seen || !add_lengths(fields.value(), framing.bytes);
        } else if (is_same_field(name, "Transfer-Encoding")) {
            for (ListWalk codings(fields.value()); codings.next();) {
                const bool is_chunks = is_same_field(codings.item(), "chunked");
                // "identity" is of an older HTTP and changes nothing.
                if (!is_seen || is_chunked || (!is_chunks && !is_same_field(codings.item(), "identity")))
                    return {.problem = k_bad_coding};
                is_chunked = is_chunks;
            }
        }
    }
    if (is_chunked) return {};  // whatever the length says
    if (has_bad_length) return {.problem = k_bad_length};
    return framing;
}

}  // namespace vell
