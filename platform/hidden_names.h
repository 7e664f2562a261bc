// Which items of a folder the desktop does not show.
//
// To port: a system that marks each item itself looks at the item in `hides` and loads nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vell {

/// What one folder hides, loaded when it is made: make one per listing, not one per item. One thread at a time.
class HiddenNames {
public:
    /// @param folder  descriptor of the folder, also one that was opened with O_PATH; used in here only.
    explicit HiddenNames(int folder) noexcept;

    /// @param name  of an item in the folder. The folder itself and the one above, "." and "..", are never hidden.
    [[nodiscard]] bool hides(std::string_view name) const noexcept;

private:
    std::string text_;                     // of the folder's list
    std::vector<std::string_view> names_;  // its lines, sorted
};

/// One item asked for by its path. False when it does not exist. Symbolic links are not followed.
[[nodiscard]] bool is_hidden_item(const char* path) noexcept;

}  // namespace vell
