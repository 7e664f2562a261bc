// Searches through a tree: all files that match a pattern, or the first of one name.
//
// A file's facts cost more than its name, so only names that match are examined, and those whose kind the folder does
// not tell.

#include <fcntl.h>

#include <cstdio>
#include <cstring>

#include "files/directory_list.h"
#include "files/path_text.h"
#include "files/tree_walker.h"
#include "platform/posix/file_calls.h"
#include "vellcore/directory_listing.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr size_t k_longest_found = 1023;   // bytes of a path that a list takes
constexpr size_t k_longest_folder = 1022;  // bytes of a folder's path that a search enters

bool may_be_folder(const FolderEntry& entry) noexcept {
    return entry.kind == EntryKind::link || entry.kind == EntryKind::unknown;
}

/// What both searches have in common: which folders they enter.
class Search : public TreeVisitor {
public:
    explicit Search(bool recurse) noexcept : recurse_(recurse) {}

    bool goes_into(const FolderEntry& entry, const char* path) override {
        return recurse_ && entry.is_directory() && !is_left_out(entry.name) &&
               strlen(path) + 1 + strlen(entry.name) <= k_longest_folder;
    }

protected:
    bool recurse_;
};

class PatternSearch : public Search {
public:
    PatternSearch(dir_list& list, const char* pattern, bool recurse, uint32_t flags) noexcept
        : Search(recurse), list_(list), pattern_(pattern), flags_(flags) {}

    bool enter(WalkedFolder& folder, const char* path) override {
        if (folder.error != 0)
            msgwarn("ERROR: Find, can't open directory: '%s'\n", folder.above == nullptr ? folder.name : path);
        if (folder.descriptor < 0) return true;
        const bool case_sensitive = is_case_sensitive(folder.descriptor);
        for (FolderEntry& entry : folder.contents.entries())
            entry.wants_facts = may_be_folder(entry) || (!entry.is_directory() && matches(entry, case_sensitive));
        folder.contents.fetch_facts(folder.descriptor);
        folder.contents.repeat_unknown(path);
        for (const FolderEntry& entry : folder.contents.entries())
            if (!entry.is_directory() && entry.name[0] != '\0' && matches(entry, case_sensitive)) add(path, entry);
        return true;
    }

private:
    [[nodiscard]] bool is_case_sensitive(int folder) const noexcept {
        if ((flags_ & FLIST_CASE_SENSITIVE) != 0) return true;
        if ((flags_ & FLIST_CASE_INSENSITIVE) != 0) return false;
        return (flags_ & FLIST_CASE_OF_VOLUME) == 0 || are_names_case_sensitive(folder);
    }
    [[nodiscard]] bool matches(const FolderEntry& entry, bool case_sensitive) const noexcept {
        return wildcard_match(entry.name, pattern_, case_sensitive);
    }
    void add(const char* path, const FolderEntry& entry) noexcept {
        PathText full;
        if (full.append(path) && full.append("/") && full.append(entry.name))
            flist_add_file(&list_, full.text(), entry.modified_s);
    }

    dir_list& list_;
    const char* pattern_;
    uint32_t flags_;
};

class NameSearch : public Search {
public:
    NameSearch(const char* name, char* out, int32_t size) noexcept
        : Search(/*recurse*/ true), name_(name), out_(out), size_(size) {}

    bool enter(WalkedFolder& folder, const char* path) override {
        if (folder.descriptor < 0) return true;
        EntryFacts facts{};
        if (file_calls.entry_facts(folder.descriptor, name_, /*follows_links*/ true, &facts) == 0 &&
            facts.kind == EntryKind::file) {
            has_found_ = true;
            if (std::snprintf(out_, static_cast<size_t>(size_), "%s/%s", path, name_) >= size_) *out_ = '\0';
            return false;
        }
        for (FolderEntry& entry : folder.contents.entries())
            entry.wants_facts = may_be_folder(entry);
        folder.contents.fetch_facts(folder.descriptor);
        folder.contents.repeat_unknown(path);
        return true;
    }

    [[nodiscard]] bool has_found() const noexcept { return has_found_ && *out_ != '\0'; }

private:
    const char* name_;
    char* out_;
    int32_t size_;
    bool has_found_ = false;
};

/// What the full paths begin with: nothing for the root, whose "/" stands between anyway.
const char* beginning_of_paths(const char* folder) noexcept {
    return strcmp(folder, "/") == 0 ? "" : folder;
}

}  // namespace
}  // namespace vell

dir_list* flist_findfiles(const char* folder, const char* pattern, bool recurse, uint32_t flags) noexcept {
    if (folder == nullptr || pattern == nullptr) return nullptr;
    const size_t length = strnlen(folder, vell::k_longest_found + 1);
    dir_list* list = length <= vell::k_longest_found ? vell::make_list() : nullptr;
    if (list == nullptr) return nullptr;
    memcpy(list->path, folder, length + 1);
    vell::cut_last_separator(list->path);
    if (strlen(list->path) <= vell::k_longest_folder) {
        vell::PatternSearch search(*list, pattern, recurse, flags);
        vell::TreeWalker walker(search, /*follows_links*/ true);
        walker.walk(AT_FDCWD, list->path, vell::beginning_of_paths(list->path));
    }
    if (list->file_count > 0) return list;
    flist_delete(list);
    return nullptr;
}

int32_t file_search(const char* folder, const char* name, char* out, int32_t size) noexcept {
    if (folder == nullptr || *folder == '\0' || name == nullptr || out == nullptr || size < 1) return 0;
    const char* slash = strrchr(name, '/');
    const char* last_name = slash != nullptr ? slash + 1 : name;
    char start[vell::k_longest_folder + 1];
    if (*last_name == '\0' || strlen(folder) >= sizeof start) return 0;
    memcpy(start, folder, strlen(folder) + 1);
    vell::cut_last_separator(start);
    vell::NameSearch search(last_name, out, size);
    vell::TreeWalker walker(search, /*follows_links*/ true);
    walker.walk(AT_FDCWD, start, vell::beginning_of_paths(start));
    return search.has_found() ? 1 : 0;
}
