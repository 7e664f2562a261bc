// Paths that are put together piece by piece.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace vell {

inline constexpr size_t k_path_bytes = 1024;  // of one path, terminator included

/// A path of at most k_path_bytes.
class PathText {
public:
    PathText() noexcept { cut(0); }

    /// False when it does not fit; the path is then as it was.
    [[nodiscard]] bool append(std::string_view text) noexcept {
        if (text.size() >= sizeof text_ - length_) return false;
        memcpy(text_ + length_, text.data(), text.size());
        cut(length_ + text.size());
        return true;
    }
    void cut(size_t length) noexcept {
        length_ = length;
        text_[length_] = '\0';
    }
    [[nodiscard]] bool ends_in(char last) const noexcept { return length_ > 0 && text_[length_ - 1] == last; }
    [[nodiscard]] size_t length() const noexcept { return length_; }
    [[nodiscard]] const char* text() const noexcept { return text_; }

private:
    char text_[k_path_bytes];
    size_t length_;
};

}  // namespace vell
