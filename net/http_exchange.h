// A request with the redirects that follow from it.
#pragma once

#include "platform/http_transport.h"

namespace vell {

inline constexpr int k_most_redirects = 20;

struct ExchangeResult {
    HttpResult last;     ///< of the last request
    int32_t status = 0;  ///< of the last response; 0 when none came
};

/// Sends the request, and what redirects make of it. The sink sees the last response only; the text of a redirect is
/// dropped. Throws std::bad_alloc.
[[nodiscard]] ExchangeResult exchange(HttpTransport& transport, HttpRequest request, HttpSink& sink);

}  // namespace vell
