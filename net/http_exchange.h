// A request with the redirects that follow from it.
#pragma once

#include "platform/http_transport.h"

namespace vell {

inline constexpr int k_most_redirects = 20;

struct ExchangeResult {
    HttpResult last;     ///< of the last request
    int32_t status = 0;  ///< of the last response; 0 when none came
};

enum class Codings {
    kept,    ///< the sink gets the body as it was sent
    undone,  ///< the sink gets what was packed
};

/// Sends the request, and what redirects make of it. The sink sees the last response only; the text of a redirect is
/// dropped. A response is complete when all of its body came, by its length and by its codings. Throws std::bad_alloc.
[[nodiscard]] ExchangeResult exchange(HttpTransport& transport, HttpRequest request, HttpSink& sink, Codings codings);

}  // namespace vell
