// Text that others wrote, made fit for terminals and logs.

#include <cstring>
#include <string_view>

#include "platform/strict_utf8.h"
#include "vellcore/unicode_text.h"

namespace {

bool is_harmless(uint32_t code) noexcept {
    if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return false;
    const bool turns_text = code == 0x61C || (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
                            (code >= 0x2066 && code <= 0x2069) || code == 0xFEFF;
    return !turns_text;
}

/// Appends pieces as long as they fit, and counts on.
class Output {
public:
    Output(char* out, size_t capacity) noexcept : out_(out), capacity_(capacity) {}
    void add(const char* piece, size_t bytes) noexcept {
        length_ += bytes;
        if (is_full_ || stored_ + bytes >= capacity_) {
            is_full_ = true;
        } else {
            std::memcpy(out_ + stored_, piece, bytes);
            stored_ += bytes;
        }
    }
    void add_escape(char byte) noexcept {
        constexpr char k_digits[] = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        const char hexadecimal[] = {'\\', 'x', k_digits[value >> 4], k_digits[value & 15]};
        switch (byte) {
            case '\n':
                return add("\\n", 2);
            case '\t':
                return add("\\t", 2);
            case '\r':
                return add("\\r", 2);
            case '\\':
                return add("\\\\", 2);
            default:
                return add(hexadecimal, sizeof hexadecimal);
        }
    }
    size_t finish() noexcept {
        if (capacity_ > 0) out_[stored_] = '\0';
        return length_;
    }

private:
    char* out_;
    const size_t capacity_;
    size_t stored_ = 0, length_ = 0;
    bool is_full_ = false;
};

}  // namespace

size_t vl_utf8_printable(char* out, size_t capacity, const char* text, size_t length, int32_t backslashes) noexcept {
    Output output(out, capacity);
    for (std::string_view rest(text, length); !rest.empty();) {
        uint32_t code = 0;
        const uint32_t bytes = vell::strict_utf8_length(rest, code);
        const bool is_doubled = code == '\\' && backslashes == VL_BACKSLASHES_DOUBLED;
        if (bytes != 0 && is_harmless(code) && !is_doubled) {
            output.add(rest.data(), bytes);
            rest.remove_prefix(bytes);
            continue;
        }
        for (uint32_t i = 0; i < (bytes != 0 ? bytes : 1); ++i)
            output.add_escape(rest[i]);
        rest.remove_prefix(bytes != 0 ? bytes : 1);
    }
    return output.finish();
}
