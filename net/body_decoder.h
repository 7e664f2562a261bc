// Bodies that were packed (RFC 9110, 8.4.1), made what they were before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/http_transport.h"

namespace vell {

/// What we ask for.
inline constexpr const char* k_offered_codings = "gzip, deflate";

/// Undoes the codings of one response, the last one first, and checks that each of them came to its end: checksums,
/// lengths, and nothing missing or behind. All calls but finish() may throw std::bad_alloc.
class BodyDecoder {
public:
    BodyDecoder();
    ~BodyDecoder();
    BodyDecoder(const BodyDecoder&) = delete;
    BodyDecoder& operator=(const BodyDecoder&) = delete;

    /// Reads which codings there are. False: one of them is unknown, and problem() says which.
    [[nodiscard]] bool open(const HttpHead& head);
    /// There is something to undo.
    [[nodiscard]] bool is_active() const noexcept { return !stages_.empty(); }
    /// Hands on to the sink what can be decoded so far. False when the sink answered false, or there is a problem.
    [[nodiscard]] bool take(const void* data, size_t bytes, HttpSink& sink);
    /// The body has ended. False: in the middle.
    [[nodiscard]] bool finish();
    /// Empty while there is none.
    [[nodiscard]] const std::string& problem() const noexcept { return problem_; }

private:
    class Stage;
    [[nodiscard]] bool decode(size_t stage, const unsigned char* data, size_t bytes, HttpSink& sink);

    std::vector<std::unique_ptr<Stage>> stages_;  // in the order of decoding
    std::string problem_;
};

}  // namespace vell
