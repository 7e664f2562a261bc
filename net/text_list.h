// Lists in header fields: items between commas, empty ones left out (RFC 9110, 5.6.1).
#pragma once

#include <algorithm>
#include <string_view>

#include "platform/http_transport.h"

namespace vell {

class ListWalk {
public:
    explicit ListWalk(std::string_view list) noexcept : rest_(list) {}
    /// False after the last.
    [[nodiscard]] bool next() noexcept {
        for (item_ = {}; item_.empty() && !rest_.empty();) {
            const size_t comma = std::min(rest_.find(','), rest_.size());
            item_ = without_blanks(rest_.substr(0, comma));
            rest_.remove_prefix(std::min(comma + 1, rest_.size()));
        }
        return !item_.empty();
    }
    [[nodiscard]] std::string_view item() const noexcept { return item_; }

private:
    std::string_view rest_, item_;
};

}  // namespace vell
