// A library whose constructor opens the library that $NESTING_OPENS names and whose destructor closes it. It takes
// $NESTING_MILLISECONDS to load.

#include <time.h>

#include <cstdlib>

#include "vellcore/dynamic_library.h"

namespace {

void* opened = nullptr;

[[gnu::constructor]] void load() {
    if (const char* name = std::getenv("NESTING_OPENS")) opened = vl_open_library(name, 0);
    if (const char* text = std::getenv("NESTING_MILLISECONDS")) {
        const long milliseconds = std::atol(text);
        const timespec pause{milliseconds / 1000, milliseconds % 1000 * 1000000};
        nanosleep(&pause, nullptr);
    }
}

[[gnu::destructor]] void unload() {
    vl_close_library(opened);
}

}  // namespace
