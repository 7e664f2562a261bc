// What callers write, made into a request.
#pragma once

#include <cstdint>
#include <string>

#include "platform/http_transport.h"

namespace vell {

/// Why a URL is not sent, or null. What is wrong inside its parts the transport finds.
[[nodiscard]] const char* url_problem(const char* url) noexcept;

/// Adds what a header text says to the request, in place of a field of that name. A text without a colon or with more
/// than one says nothing. @return  why the request must not be sent, or null.
[[nodiscard]] const char* add_header(HttpRequest& request, const char* header);

/// "GET" for 0; "PUT" for what is no vl_http_request_type.
[[nodiscard]] const char* method_of(int32_t type) noexcept;

/// A time-out in seconds as the transport counts it; the default for 0, and for what is no time.
[[nodiscard]] int64_t idle_limit_ms(double seconds) noexcept;

inline constexpr size_t k_error_text_bytes = 256;

/// Copies a text, cut, with "?" for what is not printable ASCII.
void copy_error_text(char (&to)[k_error_text_bytes], const std::string& text) noexcept;

}  // namespace vell
