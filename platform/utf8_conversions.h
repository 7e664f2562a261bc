// Wide characters as UTF-8, whatever the locale of the process.
//
// To port: POSIX, and a system with the locale "C.UTF-8".
#pragma once

#include <clocale>

namespace vell {

/// To the end of the scope the calling thread's conversions of wide characters make UTF-8. Numbers stay as they are.
class Utf8Conversions {
public:
    Utf8Conversions() noexcept;
    ~Utf8Conversions();
    Utf8Conversions(const Utf8Conversions&) = delete;
    Utf8Conversions& operator=(const Utf8Conversions&) = delete;

private:
    locale_t own_ = nullptr;
    locale_t before_ = nullptr;
};

}  // namespace vell
