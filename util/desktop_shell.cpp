// Desktop services. State: the last locale that the system told, under `locale_lock`; the mount points that were handed
// out, under `volumes_lock`. They are kept for good, since hosts hold pointers to them and there are only so many.

#include "vellcore/desktop_shell.h"

#include <climits>
#include <cstring>
#include <new>
#include <set>
#include <string>

#include "platform/desktop.h"
#include "platform/fork_handlers.h"
#include "platform/hidden_names.h"
#include "platform/known_folders.h"
#include "platform/lock.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr size_t k_locale_bytes = 64;  // of an identifier, terminator included

Mutex locale_lock;
const ForkEntry locale_fork_entry(ForkOrder::user_locale, locale_lock);
char last_locale[k_locale_bytes] VELL_GUARDED_BY(locale_lock) = "en_US";

Mutex volumes_lock;
const ForkEntry volumes_fork_entry(ForkOrder::volumes, volumes_lock);
std::set<std::string>* kept_paths VELL_GUARDED_BY(volumes_lock) = nullptr;  // mount points that hosts have pointers to

/// What a pool is on a system that needs none: an address to hand out.
char pool_token;

/// Asks for a folder and copies it, cut to the buffer.
bool copy_folder(bool (*ask)(char* path, size_t capacity) noexcept, char* buffer, int32_t size) noexcept {
    char path[PATH_MAX];
    if (buffer == nullptr || size < 1 || !ask(path, sizeof path)) return false;
    std::strncpy(buffer, path, static_cast<size_t>(size));
    buffer[size - 1] = '\0';
    return true;
}

/// Tells the log why something could not be opened. @return  `is_open`.
bool report(bool is_open, const char* what, const std::string& reason) noexcept {
    if (!is_open) msgdebug("Desktop: can't open '%s': %s", what, reason.c_str());
    return is_open;
}

/// A copy of the text that stays. Null when memory is short.
const char* keep(const std::string& path) noexcept {
    const ScopedLock lock(volumes_lock);
    try {
        if (kept_paths == nullptr) kept_paths = new std::set<std::string>;
        return kept_paths->insert(path).first->c_str();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

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

bool cocoa_application_path(char* buffer, int32_t size) noexcept {
    return vell::copy_folder(vell::application_folder, buffer, size);
}

bool cocoa_application_support_path(char* buffer, int32_t size) noexcept {
    return vell::copy_folder(vell::application_support_folder, buffer, size);
}

bool cocoa_movies_path(char* buffer, int32_t size) noexcept {
    return vell::copy_folder(vell::movies_folder, buffer, size);
}

// Kept: the "/0" at the end is a zero as a digit, and the result is the length without it.
int32_t cocoa_get_temp_path(char* buffer, int32_t size) noexcept {
    if (!vell::copy_folder(vell::temporary_folder, buffer, size)) return 0;
    const auto length = static_cast<int32_t>(std::strlen(buffer));
    if (length >= size - 3) return 0;
    if (buffer[length - 1] != '/') std::memcpy(buffer + length, "/0", 3);
    return length;
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

bool cocoa_file_is_hidden(const char* path) noexcept {
    return path != nullptr && std::strcmp(path, "/Volumes") != 0 && vell::is_hidden_item(path);
}

bool cocoa_open_file_with_default_app(const char* path) noexcept {
    if (path == nullptr || *path == '\0') return false;
    std::string reason;
    return vell::report(vell::open_with_default_application(path, reason), path, reason);
}

bool cocoa_open_dir_in_finder(const char* path) noexcept {
    return cocoa_open_file_with_default_app(path);
}

bool cocoa_open_url(const char* url) noexcept {
    if (url == nullptr) return false;
    std::string reason;
    return vell::report(vell::open_url(url, reason), url, reason);
}

bool cocoa_open_file_with_application(const char* application, const char* file) noexcept {
    if (application == nullptr || *application == '\0') return false;
    std::string reason;
    bool is_known = false;
    if (vell::open_with_application(application, file, is_known, reason)) return true;
    if (is_known) return vell::report(false, application, reason);
    // No application of the desktop: a program then.
    return cocoa_open_file_with_executable(application, file, nullptr, /*wait*/ 0);
}

int32_t cocoa_get_num_mounted_local_volume_paths() noexcept {
    return static_cast<int32_t>(vell::local_volumes().size());
}

const char* cocoa_get_mounted_local_volume_path(int32_t index) noexcept {
    const std::vector<std::string> volumes = vell::local_volumes();
    if (index < 0 || static_cast<size_t>(index) >= volumes.size()) return nullptr;
    return vell::keep(volumes[static_cast<size_t>(index)]);
}
