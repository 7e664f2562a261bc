// How long a response's body is (RFC 9112, 6).
#pragma once

#include <cstdint>

#include "platform/http_transport.h"

namespace vell {

struct BodyFraming {
    const char* problem = nullptr;  ///< why nobody can tell where the body ends; null: it is fine
    /// As it is sent; unknown for chunks, and for a body that ends with its connection.
    uint64_t bytes = k_unknown_length;
};

/// Strict where a lenient reading could take a part for the whole: a length is decimal digits, repeated lengths are the
/// same, chunks are the only transfer coding.
[[nodiscard]] BodyFraming read_framing(const HttpHead& head) noexcept;

}  // namespace vell
