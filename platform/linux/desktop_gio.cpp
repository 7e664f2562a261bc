// The desktop through GIO, which reads the same application entries, associations and folders as the desktops do. It
// needs neither a display nor a session bus.

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <gio/gunixmounts.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "platform/desktop.h"
#include "platform/known_folders.h"
#include "platform/lock.h"

namespace vell {
namespace {

struct Release {
    void operator()(void* object) const noexcept { g_object_unref(object); }
    void operator()(char* text) const noexcept { g_free(text); }
    void operator()(GError* error) const noexcept { g_error_free(error); }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

/// Takes a GIO error over and tells it.
bool fail(GError* error, std::string& reason) {
    const Owned<GError> owner(error);
    reason = error != nullptr ? error->message : "no reason given";
    return false;
}

/// Launching goes through a helper program that starts even when the application's program is missing.
bool has_program(GAppInfo* application) {
    if (G_IS_DESKTOP_APP_INFO(application) &&
        g_desktop_app_info_get_boolean(reinterpret_cast<GDesktopAppInfo*>(application), "DBusActivatable") != 0)
        return true;
    const char* program = g_app_info_get_executable(application);
    return program != nullptr && Owned<char>(g_find_program_in_path(program)) != nullptr;
}

/// Starts an application; `uri` may be null.
bool launch(GAppInfo* application, const char* uri, std::string& reason) {
    if (!has_program(application)) {
        reason = std::string("the application's program is missing: ") + g_app_info_get_name(application);
        return false;
    }
    std::string text = uri != nullptr ? uri : "";
    GList uris{text.data(), nullptr, nullptr};
    GError* error = nullptr;
    if (g_app_info_launch_uris(application, uri != nullptr ? &uris : nullptr, nullptr, &error) == 0)
        return fail(error, reason);
    return true;
}

bool open_file(GFile* file, std::string& reason) {
    GError* error = nullptr;
    const Owned<GAppInfo> application(g_file_query_default_handler(file, nullptr, &error));
    if (application == nullptr) return fail(error, reason);
    return launch(application.get(), Owned<char>(g_file_get_uri(file)).get(), reason);
}

bool open_address(const char* url, std::string& reason) {
    GError* error = nullptr;
    if (g_utf8_validate(url, -1, nullptr) == 0 || g_uri_is_valid(url, G_URI_FLAGS_PARSE_RELAXED, &error) == 0)
        return fail(error, reason);
    const Owned<char> scheme(g_uri_parse_scheme(url));
    if (g_ascii_strcasecmp(scheme.get(), "file") == 0)
        return open_file(Owned<GFile>(g_file_new_for_uri(url)).get(), reason);
    const Owned<char> folded(g_ascii_strdown(scheme.get(), -1));
    const Owned<GAppInfo> application(g_app_info_get_default_for_uri_scheme(folded.get()));
    if (application != nullptr) return launch(application.get(), url, reason);
    reason = std::string("no application is registered for ") + folded.get();
    return false;
}

/// An application by the path or the name of its entry, with or without ".desktop", or by the name that users see.
Owned<GAppInfo> find_application(const std::string& name) {
    GDesktopAppInfo* entry = nullptr;
    if (name.front() == '/' && g_str_has_suffix(name.c_str(), ".desktop") != 0) {
        entry = g_desktop_app_info_new_from_filename(name.c_str());
    } else if (name.find('/') == std::string::npos) {
        entry = g_desktop_app_info_new(name.c_str());
        if (entry == nullptr) entry = g_desktop_app_info_new((name + ".desktop").c_str());
    }
    if (entry != nullptr) return Owned<GAppInfo>(reinterpret_cast<GAppInfo*>(entry));
    Owned<GAppInfo> found;
    GList* all = g_app_info_get_all();
    for (GList* item = all; item != nullptr && found == nullptr; item = item->next) {
        auto* each = static_cast<GAppInfo*>(item->data);
        if (name == g_app_info_get_name(each) || name == g_app_info_get_display_name(each))
            found.reset(static_cast<GAppInfo*>(g_object_ref(each)));
    }
    g_list_free_full(all, g_object_unref);
    return found;
}

bool is_network_type(std::string_view type) {
    constexpr std::string_view k_types[] = {"9p",          "afs",        "ceph",   "cifs",  "davfs", "fuse.glusterfs",
                                            "fuse.rclone", "fuse.sshfs", "lustre", "ncpfs", "nfs",   "nfs4",
                                            "smb3",        "smbfs"};
    return std::find(std::begin(k_types), std::end(k_types), type) != std::end(k_types);
}

bool holds_users_files(GUnixMountEntry* mount) {
    const char* options = g_unix_mount_get_options(mount);
    return g_unix_mount_is_system_internal(mount) == 0 && !is_network_type(g_unix_mount_get_fs_type(mount)) &&
           (options == nullptr || std::strstr(options, "x-gvfs-hide") == nullptr) &&
           g_file_test(g_unix_mount_get_mount_path(mount), G_FILE_TEST_IS_DIR) != 0;
}

/// Runs what may run out of memory on our side of GIO, which ends the process when it runs out itself.
template <class Operation>
bool guarded(Operation operation) noexcept {
    const CancelShield shield;
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

bool open_with_default_application(const char* path, std::string& reason) noexcept {
    return guarded([&] { return open_file(Owned<GFile>(g_file_new_for_path(path)).get(), reason); });
}

bool open_url(const char* url, std::string& reason) noexcept {
    return guarded([&] { return open_address(url, reason); });
}

bool open_with_application(const char* application, const char* file, bool& is_known, std::string& reason) noexcept {
    return guarded([&] {
        const Owned<GAppInfo> found = find_application(application);
        is_known = found != nullptr;
        if (!is_known) return false;
        if (file == nullptr) return launch(found.get(), nullptr, reason);
        const Owned<GFile> opened(g_file_new_for_path(file));
        return launch(found.get(), Owned<char>(g_file_get_uri(opened.get())).get(), reason);
    });
}

bool movies_folder(char* path, size_t capacity) noexcept {
    const CancelShield shield;
    const char* folder = g_get_user_special_dir(G_USER_DIRECTORY_VIDEOS);
    if (folder == nullptr) return home_folder("/Videos", path, capacity);
    return g_strlcpy(path, folder, capacity) < capacity;
}

std::vector<std::string> local_volumes() noexcept {
    std::vector<std::string> paths;
    const bool is_complete = guarded([&] {
        paths.emplace_back("/");
        GList* mounts = g_unix_mounts_get(nullptr);
        const auto free_mounts = [](GList* list) noexcept {
            g_list_free_full(list, [](void* mount) { g_unix_mount_free(static_cast<GUnixMountEntry*>(mount)); });
        };
        const std::unique_ptr<GList, decltype(free_mounts)> owner(mounts, free_mounts);
        for (GList* item = mounts; item != nullptr; item = item->next) {
            auto* mount = static_cast<GUnixMountEntry*>(item->data);
            const char* path = g_unix_mount_get_mount_path(mount);
            const bool is_listed = std::find(paths.begin(), paths.end(), path) != paths.end();
            if (!is_listed && holds_users_files(mount)) paths.emplace_back(path);
        }
        return true;
    });
    if (!is_complete) paths.clear();
    return paths;
}

}  // namespace vell
