// Libraries on systems with ELF files.

#include "platform/library_loader.h"

#include <dlfcn.h>

namespace vell {

const char* const library_suffix = ".so";

int library_mode(bool shares_symbols) noexcept {
    return RTLD_LAZY | (shares_symbols ? RTLD_GLOBAL : RTLD_LOCAL);
}

}  // namespace vell
