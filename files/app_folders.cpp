// Where the application's folders are, and paths below them.
//
// A set of folders is filled while only start-up knows it and published whole; a later set leaves the earlier one
// where it is, since hosts hold pointers to its texts.

#include "files/app_folders.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "files/path_checks.h"
#include "platform/known_folders.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"
#include "vellcore/startup.h"

namespace vell {
namespace {

/// Puts a path together from its pieces. @return  false when it does not fit; `out` is then cut.
bool join(char (&out)[k_path_bytes], std::initializer_list<const char*> pieces) noexcept {
    size_t length = 0;
    bool fits = true;
    for (const char* piece : pieces) {
        const size_t room = sizeof out - 1 - length;
        const size_t added = strnlen(piece, room);
        fits = fits && piece[added] == '\0';
        memcpy(out + length, piece, added);
        length += added;
    }
    out[length] = '\0';
    return fits;
}

bool ends_in(const char* path, char last) noexcept {
    const size_t length = strlen(path);
    return length > 0 && path[length - 1] == last;
}

/// The module's path; of a module inside a bundle, the bundle's with its "/".
void find_code(char (&code)[k_path_bytes]) noexcept {
    code[0] = '\0';
    if (!vl_modulename(code, sizeof code)) return;
    code[sizeof code - 1] = '\0';
    char* bundle = strstr(code, ".app");
    char* slash = bundle != nullptr ? strchr(bundle, '/') : nullptr;
    if (slash != nullptr) slash[1] = '\0';
}

void find_data(AppFolders& folders, const char* app_name, const char* data_env) noexcept {
    const char* chosen = data_env != nullptr && *data_env != '\0' ? std::getenv(data_env) : nullptr;
    char path[k_path_bytes];
    if (chosen != nullptr && *chosen != '\0') {
        join(folders.data, {chosen});
    } else if (app_name == nullptr || (join(path, {folders.code, "Settings/System.reg"}) && file_exists(path))) {
        join(folders.data, {folders.code});
    } else if (application_support_folder(path, sizeof path)) {
        join(folders.data, {path, "/", app_name});
    } else {
        join(folders.data, {"/Library/Application Support/", app_name});
    }
}

void find_settings(AppFolders& folders) noexcept {
    const char* between = ends_in(folders.data, '/') ? "" : "/";
    join(folders.default_settings, {folders.data, between, "Defaults"});
    const char* module_name = strrchr(folders.code, '/');
    const int module_folder_length = module_name != nullptr ? static_cast<int>(module_name - folders.code) : 0;
    std::snprintf(folders.search_list, sizeof folders.search_list, "%s%sSettings|%s|%.*s|", folders.data, between,
                  folders.default_settings, module_folder_length, folders.code);
}

/// Turns a folder that is not absolute into one below `data`, and takes one "/" or "\" off its end.
bool resolve_folder(char (&out)[k_path_bytes], const char* data, const char* folder) noexcept {
    const bool is_absolute = folder[0] == '/' || (folder[0] != '\0' && folder[1] == ':');
    const char* between = is_absolute || ends_in(data, '/') ? "" : "/";
    if (!join(out, {is_absolute ? "" : data, between, folder})) return false;
    if (ends_in(out, '/') || ends_in(out, '\\')) out[strlen(out) - 1] = '\0';
    return true;
}

/// file_ensure_directory below a data folder that need not be the published one.
bool ensure_directory_below(char (&out)[k_path_bytes], const char* data, const char* folder,
                            const char* file) noexcept {
    char path[k_path_bytes];
    if (!resolve_folder(path, data, folder)) return false;
    constexpr size_t k_shortest_made = 3;
    if (strlen(path) >= k_shortest_made && !ensure_folder(path)) {
        msgerror("Error creating directory %s : %s\n", path, os_errormsg());
        return false;
    }
    return join(out, {path, "/", file != nullptr ? file : ""});
}

void find_log_file(AppFolders& folders, const char* app_name) noexcept {
    char name[k_path_bytes];
    join(name, {app_name, ".log"});
    if (!ensure_directory_below(folders.log_file, folders.data, "Settings/logs", name)) {
        join(folders.log_file, {name});
    }
}

constinit const AppFolders no_folders{};
constinit std::atomic<const AppFolders*> published_folders{&no_folders};

}  // namespace

const AppFolders& app_folders() noexcept {
    return *published_folders.load(std::memory_order_acquire);
}

}  // namespace vell

void file_initialize(const char* app_name, const char* data_env) noexcept {
    umask(0);
    auto* folders = static_cast<vell::AppFolders*>(std::calloc(1, sizeof(vell::AppFolders)));
    if (folders == nullptr) {
        msg_initialize(nullptr);
        return;
    }
    vell::find_code(folders->code);
    vell::find_data(*folders, app_name, data_env);
    vell::find_settings(*folders);
    if (app_name != nullptr) vell::find_log_file(*folders, app_name);
    folders->previous = &vell::app_folders();
    vell::published_folders.store(folders, std::memory_order_release);
    if (app_name == nullptr) {
        msg_initialize(nullptr);
        return;
    }
    constexpr int32_t k_old_logs = 10;
    file_backup(folders->log_file, k_old_logs);
    // A log that cannot be opened goes to standard error as it is; the level is that of a stream either way.
    if (!vell::redirect_standard_error(folders->log_file)) errno = 0;
    msg_initialize(stderr);
}

const char* file_get_data() noexcept {
    return vell::app_folders().data;
}
const char* file_get_code() noexcept {
    return vell::app_folders().code;
}
const char* file_get_default_settings() noexcept {
    return vell::app_folders().default_settings;
}
const char* file_get_logfile() noexcept {
    return vell::app_folders().log_file;
}

char* file_ensure_directory(const char* folder, const char* file, char* out) noexcept {
    thread_local char own_buffer[vell::k_path_bytes];
    if (folder == nullptr) return nullptr;
    char path[vell::k_path_bytes];
    if (!vell::ensure_directory_below(path, vell::app_folders().data, folder, file)) return nullptr;
    char* buffer = out != nullptr ? out : own_buffer;
    memcpy(buffer, path, strlen(path) + 1);
    return buffer;
}
