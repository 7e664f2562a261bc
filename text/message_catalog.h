// Message catalogs as GNU gettext compiles them.
#pragma once

#include <string_view>

namespace vell {

/// True when every table and text of a catalog lies inside it, texts with their terminators. What a damaged one would
/// have read otherwise is anybody's guess: the lookup believes it.
[[nodiscard]] bool is_sound_catalog(std::string_view catalog) noexcept;

}  // namespace vell
