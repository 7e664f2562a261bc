// Deleting a folder with what it holds.
//
// Everything is removed relative to descriptors of folders that were opened without following links, so neither a link
// nor a path that somebody swaps meanwhile leads out of the tree.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "files/merge_sort.h"
#include "files/plain_order.h"
#include "files/tree_walker.h"
#include "platform/posix/file_calls.h"
#include "vellcore/directory_listing.h"
#include "vellcore/file_operations.h"

namespace vell {
namespace {

bool is_dot_name(const char* name) noexcept {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

/// Folders before files, each in their natural order.
bool goes_first(const FolderEntry& a, const FolderEntry& b) noexcept {
    if (a.is_directory() != b.is_directory()) return a.is_directory();
    return (a.is_directory() ? plain_order(a.name, b.name) : file_namecmp(a.name, b.name)) < 0;
}

/// Removes a file, a link or an empty folder. The folder's own call is tried when the other says that it is one.
bool remove_entry(int folder, const char* name) noexcept {
    if (file_calls.unlinkat(folder, name, 0) == 0) return true;
    const int error = errno;
    EntryFacts facts{};
    const bool is_folder =
        file_calls.entry_facts(folder, name, /*follows_links*/ false, &facts) == 0 && facts.kind == EntryKind::folder;
    errno = error;
    return is_folder && file_calls.unlinkat(folder, name, AT_REMOVEDIR) == 0;
}

class Deletion : public TreeVisitor {
public:
    Deletion(int parent, bool recursive) noexcept : parent_(parent), recursive_(recursive) {}

    bool enter(WalkedFolder& folder, const char*) override {
        auto& entries = folder.contents.entries();
        for (FolderEntry& entry : entries)
            if (entry.kind == EntryKind::unknown) examine(folder.descriptor, entry);
        GrowingArray<FolderEntry> scratch;
        if (scratch.resize(entries.count()))
            merge_sort(entries.data(), static_cast<size_t>(entries.count()), scratch.data(), goes_first);
        return true;
    }

    bool goes_into(const FolderEntry& entry, const char*) override {
        return recursive_ && entry.is_directory() && !is_dot_name(entry.name);
    }

    // The root is left last, so what remains is its result.
    void leave(WalkedFolder& folder) override {
        const int parent = folder.above != nullptr ? folder.above->descriptor : parent_;
        succeeded_ = remove_files(folder) && parent >= 0 && file_calls.unlinkat(parent, folder.name, AT_REMOVEDIR) == 0;
        if (!succeeded_) error_ = errno;
    }

    [[nodiscard]] bool succeeded() const noexcept { return succeeded_; }
    [[nodiscard]] int error() const noexcept { return error_; }

private:
    static void examine(int folder, FolderEntry& entry) noexcept {
        EntryFacts facts{};
        if (file_calls.entry_facts(folder, entry.name, /*follows_links*/ false, &facts) == 0) entry.kind = facts.kind;
    }

    static bool remove_files(WalkedFolder& folder) noexcept {
        for (const FolderEntry& entry : folder.contents.entries())
            if (!entry.is_directory() && !is_dot_name(entry.name) && !remove_entry(folder.descriptor, entry.name))
                return false;
        return true;
    }

    int parent_;
    bool recursive_;
    bool succeeded_ = false;
    int error_ = 0;
};

/// Opens the folder that holds the last name of `path`, without the need to read it. `path` is cut there; `name`
/// becomes its last name, empty for "/". "/"s at the end are not part of the name: "link/" is the link.
int open_parent(char* path, const char*& name) noexcept {
    size_t length = strlen(path);
    while (length > 0 && path[length - 1] == '/')
        path[--length] = '\0';
    char* slash = strrchr(path, '/');
    name = slash != nullptr ? slash + 1 : path;
    if (slash == nullptr) return file_calls.open(".", k_folder_handle, 0);
    *slash = '\0';
    return file_calls.open(slash == path ? "/" : path, k_folder_handle, 0);
}

/// 0, or an errno value.
int delete_below(int parent, const char* name, bool recursive) noexcept {
    EntryFacts facts{};
    if (file_calls.entry_facts(parent, name, /*follows_links*/ false, &facts) != 0) return errno;
    if (facts.kind != EntryKind::folder) return file_calls.unlinkat(parent, name, 0) == 0 ? 0 : errno;
    Deletion deletion(parent, recursive);
    TreeWalker walker(deletion, /*follows_links*/ false);
    if (!walker.walk(parent, name, name)) return errno;
    return deletion.succeeded() ? 0 : deletion.error();
}

}  // namespace
}  // namespace vell

int32_t file_delete_directory(const char* path, bool recursive) noexcept {
    char copy[PATH_MAX];
    if (path == nullptr || *path == '\0' || strlen(path) >= sizeof copy) return -1;
    memcpy(copy, path, strlen(path) + 1);
    const char* name = nullptr;
    const int parent = vell::open_parent(copy, name);
    if (parent < 0) return -1;
    const bool is_refused = *name == '\0' || vell::is_dot_name(name);
    const int error = is_refused ? EINVAL : vell::delete_below(parent, name, recursive);
    vell::file_calls.close(parent);
    errno = error;
    return error == 0 ? 1 : -1;
}
