#pragma once
// Services of the desktop: the pool that start-up holds, well-known folders, the user's locale.
//
// Every path copy is bounded by the size of the caller's buffer, whose last byte is always a terminator.

#include <cstdint>

#include "export.h"

/// A pool for the desktop's temporary objects: made first at start-up and released last at shutdown. On a system
/// without such pools it is a token.
/// @return  never null. Give it back with vl_release_autorelease_pool.
[[nodiscard]] VELL_API void* vl_create_autorelease_pool() noexcept;
[[nodiscard]] VELL_API void* cocoa_create_autorelease_pool() noexcept;

/// Releases a pool. Null is accepted.
VELL_API void vl_release_autorelease_pool(void* pool) noexcept;
VELL_API void cocoa_release_autorelease_pool(void* pool) noexcept;

/// The folder in which applications keep their data: $XDG_DATA_HOME, or ".local/share" in the user's home. Always an
/// absolute path, without a "/" at its end; it may not exist.
/// @param size  bytes of `buffer`, terminator included.
/// @return  false, with `buffer` untouched, when there is none, or for a null buffer or a size below 1.
VELL_API bool cocoa_application_support_path(char* buffer, int32_t size) noexcept;

/// The user's locale as language and country, for example "en_GB". When the system does not tell (a "C" locale, for
/// instance) the answer of the last call that knew, or "en_US".
/// @return  a buffer of the calling thread, overwritten by its next call.
[[nodiscard]] VELL_API const char* cocoa_user_locale() noexcept;
