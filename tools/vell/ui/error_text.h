// Why the system refuses something.
#pragma once

#include <string>

namespace tool {

/// The text of an error number (errno), in the user's language.
[[nodiscard]] std::string error_text(int error);

}  // namespace tool
