// Desktop services. The one piece of state is the last locale that the system told, under `locale_lock`.

#include "vellcore/desktop_shell.h"

#include <cstring>

#include "platform/known_folders.h"
#include "platform/lock.h"

namespace vell {
namespace {

constexpr size_t k_locale_bytes = 64;  // of an identifier, terminator included

Mutex locale_lock;
char last_locale[k_locale_bytes] VELL_GUARDED_BY(locale_lock) = "en_US";

/// What a pool is on a system that needs none: an address to hand out.
char pool_token;

}  // namespace
}  // namespace vell

void* vl_create_autorelease_pool() noexcept {
    return cocoa_create_autorelease_pool();
}

void vl_release_autorelease_pool(void* pool) noexcept {
    if (pool != nullptr) cocoa_release_autorelease_pool(pool);
}

void* cocoa_create_autorelease_pool() noexcept {
    return &vell::pool_token;
}

void cocoa_release_autorelease_pool(void*) noexcept {}

bool cocoa_application_support_path(char* buffer, int32_t size) noexcept {
    char path[4096];
    if (buffer == nullptr || size < 1 || !vell::application_support_folder(path, sizeof path)) return false;
    std::strncpy(buffer, path, static_cast<size_t>(size));
    buffer[size - 1] = '\0';
    return true;
}

const char* cocoa_user_locale() noexcept {
    thread_local char answer[vell::k_locale_bytes];
    const bool is_known = vell::user_locale(answer, sizeof answer);
    const vell::ScopedLock lock(vell::locale_lock);
    if (is_known) {
        std::memcpy(vell::last_locale, answer, sizeof answer);
    } else {
        std::memcpy(answer, vell::last_locale, sizeof answer);
    }
    return answer;
}
