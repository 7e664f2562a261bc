// The running module's path, as start-up was told it.
#pragma once

namespace vell {

/// Keeps the module's path: an absolute one as it is, any other below the current folder; cut to 1023 bytes. Null
/// means that it is not known. Called by start-up only, while no other thread asks for the name.
void set_module_name(const char* path) noexcept;

}  // namespace vell
