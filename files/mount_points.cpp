// The root's visible folders, which is where volumes are mounted.

#include <cstdio>
#include <cstdlib>

#include "files/directory_list.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/directory_listing.h"

int32_t flist_gen_mountp(dir_list* list, bool) noexcept {
    if (list == nullptr) return 0;
    list->path[0] = '/';
    list->path[1] = '\0';
    dir_list* root = flist_new("/", FLIST_BY_DATE);
    for (int32_t i = 0; root != nullptr && i < root->entry_count; ++i) {
        const _file_entry& entry = root->entries[i];
        char path[sizeof list->path];
        std::snprintf(path, sizeof path, "/%s", entry.name);
        if (entry.is_directory != 0 && !cocoa_file_is_hidden(path)) flist_add_dir(list, entry.name, 0, 0);
    }
    flist_delete(root);
    return list->directory_count;
}

dir_list* flist_mountp(bool) noexcept {
    dir_list* list = vell::make_list();
    if (list == nullptr || flist_gen_mountp(list, false) > 0) return list;
    flist_delete(list);
    return nullptr;
}
