// Reads with plain calls, since a listing for a person also shows links that lead nowhere; order and patterns are the
// library's.

#include "commands/ls_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "commands/ls.h"
#include "ui/error_text.h"
#include "ui/failure.h"
#include "ui/file_names.h"
#include "ui/translation.h"
#include "vellcore/directory_listing.h"

namespace tool {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

struct DeleteList {
    void operator()(dir_list* list) const { flist_delete(list); }
};

/// True for a folder itself, not for a link to one: what a recursive listing enters.
bool is_own_folder(const ListedName& name) {
    return name.kind == ListedKind::folder && !name.is_link;
}

ListedKind kind_of(mode_t mode) {
    if (S_ISREG(mode)) return ListedKind::file;
    if (S_ISDIR(mode)) return ListedKind::folder;
    return S_ISLNK(mode) ? ListedKind::link : ListedKind::other;
}

/// False when the name is gone.
bool examine(int folder, const char* name, ListedName& out) {
    struct stat facts {};
    if (fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return false;
    const bool is_link = S_ISLNK(facts.st_mode);
    struct stat target {};
    if (is_link && fstatat(folder, name, &target, 0) == 0) facts = target;
    out = {name, kind_of(facts.st_mode), is_link, S_ISREG(facts.st_mode) ? static_cast<uint64_t>(facts.st_size) : 0,
           facts.st_mtime};
    return true;
}

/// Folders first, each part in natural order. A list of the library's sorts, whose entries are found by their names.
void sort_names(std::vector<ListedName>& names) {
    const std::unique_ptr<dir_list, DeleteList> list(static_cast<dir_list*>(std::calloc(1, sizeof(dir_list))));
    if (list == nullptr) throw std::bad_alloc();
    std::unordered_map<std::string_view, ListedName*> by_name;
    for (ListedName& name : names) {
        by_name[name.name] = &name;
        if (name.kind == ListedKind::folder)
            flist_add_dir(list.get(), name.name.c_str(), 0, 0);
        else
            flist_add_file(list.get(), name.name.c_str(), 0);
    }
    if (list->entry_count != static_cast<int>(names.size())) throw std::bad_alloc();
    flist_sort(list.get(), FLIST_BY_NAME);
    std::vector<ListedName> sorted;
    sorted.reserve(names.size());
    for (int i = 0; i < list->directory_count; ++i)
        sorted.push_back(*by_name.at(list->directories[i]));
    for (int i = 0; i < list->file_count; ++i)
        sorted.push_back(*by_name.at(list->files[i]));
    names = std::move(sorted);
}

std::vector<ListedName> read_names(DIR* folder, const LsOptions& options) {
    std::vector<ListedName> names;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(folder);
        if (entry == nullptr) break;
        const std::string_view name = entry->d_name;
        ListedName listed;
        if (name == "." || name == ".." || (name[0] == '.' && !options.shows_hidden)) continue;
        if (examine(dirfd(folder), entry->d_name, listed)) names.push_back(listed);
    }
    if (errno != 0) throw Failure{k_exit_unread_folder, error_text(errno)};
    sort_names(names);
    return names;
}

bool is_wanted(const ListedName& name, const LsOptions& options) {
    return options.pattern.empty() || wildcard_match(name.name.c_str(), options.pattern.c_str(), !options.ignores_case);
}

/// Walks down the folders; each is closed before the next is opened.
class Lister {
public:
    Lister(const LsOptions& options, const std::function<void(const ListedFolder&)>& show)
        : options_(options), show_(show) {}

    void list(const std::string& path, const std::string& below) {
        std::vector<ListedName> names = read(path);
        ListedFolder shown{below, {}};
        for (const ListedName& name : names)
            if (is_wanted(name, options_)) shown.names.push_back(name);
        show_(shown);
        if (!options_.is_recursive) return;
        for (const ListedName& name : names)
            if (is_own_folder(name))
                go_down(path + (path.back() == '/' ? "" : "/") + name.name, below + name.name + "/");
    }

    [[nodiscard]] bool has_read_all() const { return has_read_all_; }

private:
    std::vector<ListedName> read(const std::string& path) const {
        const OpenFolder folder(opendir(path.c_str()));
        if (folder == nullptr) throw Failure{k_exit_unread_folder, error_text(errno)};
        return read_names(folder.get(), options_);
    }

    // The rest is shown all the same.
    void go_down(const std::string& path, const std::string& below) {
        try {
            list(path, below);
        } catch (const Failure& failure) {
            std::fprintf(
                stderr, "vell: %s\n",
                formatted(tr("problem", "cannot read %s: %s"), printable_name(path).c_str(), failure.message.c_str())
                    .c_str());
            has_read_all_ = false;
        }
    }

    const LsOptions& options_;
    const std::function<void(const ListedFolder&)>& show_;
    bool has_read_all_ = true;
};

}  // namespace

bool for_each_folder(const LsOptions& options, const std::function<void(const ListedFolder&)>& show) {
    ListedName first;
    const auto fail = [&](const std::string& reason) {
        throw Failure{k_exit_unread_path, formatted(tr("problem", "cannot list %s: %s"),
                                                    printable_name(options.path).c_str(), reason.c_str())};
    };
    if (!examine(AT_FDCWD, options.path.c_str(), first)) fail(error_text(errno));
    if (first.kind != ListedKind::folder) {
        show({"", {first}});
        return true;
    }
    Lister lister(options, show);
    try {
        lister.list(options.path, "");
    } catch (const Failure& failure) {
        fail(failure.message);
    }
    return lister.has_read_all();
}

}  // namespace tool
