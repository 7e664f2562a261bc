// By zlib. A transport's own decoder would not tell a stream that ended from one that stopped.

#include "net/body_decoder.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <new>

#include "net/text_list.h"

namespace vell {
namespace {

constexpr size_t k_max_stages = 5;
constexpr size_t k_piece = 32 << 10;  // bytes decoded at a time
constexpr size_t k_max_leftover = 4;  // bytes behind deflate without a wrapping: some servers add a checksum
constexpr int k_window = MAX_WBITS;   // as zlib counts: plus 16 for gzip, plus 32 for gzip or zlib, negative for raw
constexpr size_t k_zlib_header_bytes = 2;

enum class Coding { gzip, deflate };

/// RFC 1950, 2.2. "deflate" means this format, but some servers send the bare deflate stream.
bool is_zlib_header(const std::array<unsigned char, k_zlib_header_bytes>& bytes) noexcept {
    constexpr unsigned k_method_mask = 0x0F, k_deflate = 8, k_max_window = 7, k_check = 31;
    return (bytes[0] & k_method_mask) == k_deflate && bytes[0] >> 4 <= k_max_window &&
           (bytes[0] * 256U + bytes[1]) % k_check == 0;
}

}  // namespace

/// One coding.
class BodyDecoder::Stage {
public:
    explicit Stage(Coding coding) : coding_(coding) {
        if (inflateInit2(&stream_, coding == Coding::gzip ? k_window + 32 : k_window) != Z_OK) throw std::bad_alloc();
    }
    ~Stage() { inflateEnd(&stream_); }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    /// Calls `hand_on(data, bytes)` with what comes out. False when that answers false, or the data is no such stream.
    template <class HandOn>
    bool take(const unsigned char* data, size_t bytes, HandOn hand_on) {
        if (coding_ == Coding::gzip || held_ == header_.size()) return inflate_all(data, bytes, hand_on);
        // What kind of deflate it is shows in the first bytes, which may come one by one.
        for (; bytes > 0 && held_ < header_.size(); ++data, --bytes)
            header_[held_++] = *data;
        if (held_ < header_.size()) return true;
        is_raw_ = !is_zlib_header(header_);
        if (is_raw_ && inflateReset2(&stream_, -k_window) != Z_OK) throw std::bad_alloc();
        return inflate_all(header_.data(), header_.size(), hand_on) && inflate_all(data, bytes, hand_on);
    }
    [[nodiscard]] bool has_ended() const noexcept { return has_ended_; }
    [[nodiscard]] const char* problem() const noexcept { return problem_; }

private:
    template <class HandOn>
    bool inflate_all(const unsigned char* data, size_t bytes, HandOn hand_on) {
        stream_.next_in = const_cast<unsigned char*>(data);
        stream_.avail_in = static_cast<uInt>(bytes);
        while (stream_.avail_in > 0 || is_full_) {
            if (has_ended_ && !begin_next_member()) return problem_ == nullptr;
            stream_.next_out = piece_.data();
            stream_.avail_out = static_cast<uInt>(piece_.size());
            const int result = inflate(&stream_, Z_NO_FLUSH);
            const size_t made = piece_.size() - stream_.avail_out;
            is_full_ = stream_.avail_out == 0;
            has_ended_ = result == Z_STREAM_END;
            if (has_ended_) is_full_ = false;
            if (result == Z_MEM_ERROR) throw std::bad_alloc();
            if (made > 0 && !hand_on(piece_.data(), made)) return false;
            if (result == Z_BUF_ERROR) break;  // it wants more
            if (result != Z_OK && result != Z_STREAM_END) return fail(stream_.msg);
        }
        return true;
    }
    /// RFC 1952, 2.2: a gzip file is any number of members. False when this is not one: then all input is used up.
    bool begin_next_member() {
        if (coding_ == Coding::gzip) {
            has_ended_ = false;
            return inflateReset2(&stream_, k_window + 16) == Z_OK;
        }
        leftover_ += stream_.avail_in;
        stream_.avail_in = 0;
        if (!is_raw_ || leftover_ > k_max_leftover) fail("data behind its end");
        return false;
    }
    bool fail(const char* problem) noexcept {
        problem_ = problem != nullptr ? problem : "invalid data";
        return false;
    }

    const Coding coding_;
    z_stream stream_{};
    std::array<unsigned char, k_piece> piece_;                 // of what comes out
    std::array<unsigned char, k_zlib_header_bytes> header_{};  // of deflate
    size_t held_ = 0;                                          // bytes of it
    bool is_raw_ = false;
    bool is_full_ = false;  // the last piece was; more may come out without input
    bool has_ended_ = false;
    size_t leftover_ = 0;  // bytes behind the end
    const char* problem_ = nullptr;
};

BodyDecoder::BodyDecoder() = default;
BodyDecoder::~BodyDecoder() = default;

bool BodyDecoder::open(const HttpHead& head) {
    for (HttpFieldWalk fields(head); fields.next();) {
        if (!is_same_field(fields.name(), "Content-Encoding")) continue;
        for (ListWalk codings(fields.value()); codings.next();) {
            const std::string_view name = codings.item();
            const bool is_gzip = is_same_field(name, "gzip") || is_same_field(name, "x-gzip");
            if (is_same_field(name, "identity") || is_same_field(name, "none")) continue;
            if (!is_gzip && !is_same_field(name, "deflate")) {
                problem_ = "Unsupported content coding '" + std::string(name) + "'";
                return false;
            }
            if (stages_.size() == k_max_stages) {
                problem_ = "The response has too many content codings";
                return false;
            }
            stages_.insert(stages_.begin(), std::make_unique<Stage>(is_gzip ? Coding::gzip : Coding::deflate));
        }
    }
    return true;
}

bool BodyDecoder::take(const void* data, size_t bytes, HttpSink& sink) {
    return decode(0, static_cast<const unsigned char*>(data), bytes, sink);
}

bool BodyDecoder::decode(size_t stage, const unsigned char* data, size_t bytes, HttpSink& sink) {
    if (stage == stages_.size()) return sink.take(data, bytes);
    Stage& now = *stages_[stage];
    const bool goes_on = now.take(data, bytes, [&](const unsigned char* made, size_t made_bytes) {
        return decode(stage + 1, made, made_bytes, sink);
    });
    if (now.problem() != nullptr)
        problem_ = std::string("The body is not what its Content-Encoding says: ") + now.problem();
    return goes_on;
}

bool BodyDecoder::finish() {
    const bool is_whole =
        std::all_of(stages_.begin(), stages_.end(), [](const auto& stage) { return stage->has_ended(); });
    if (!is_whole && problem_.empty()) problem_ = "The packed body ended too early";
    return is_whole;
}

}  // namespace vell
