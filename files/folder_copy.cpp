// Copies of files and folders, with one reader and one writer for all files of a call.

#include "vellcore/folder_copy.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "files/copy_engine.h"
#include "files/path_checks.h"
#include "files/path_text.h"
#include "vellcore/directory_listing.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

/// Appends "/" and a name to a path for as long as this object lives.
class AppendedName {
public:
    AppendedName(PathText& path, const char* name) noexcept : path_(path), length_before_(path.length()) {
        fits_ = path.append("/") && path.append(name);
    }
    ~AppendedName() { path_.cut(length_before_); }
    AppendedName(const AppendedName&) = delete;
    AppendedName& operator=(const AppendedName&) = delete;
    [[nodiscard]] bool fits() const noexcept { return fits_; }

private:
    PathText& path_;
    size_t length_before_;
    bool fits_;
};

/// A folder between the one that is copied and the present one, to be recognised when a link leads back to it.
struct FolderOnTheWay {
    FolderOnTheWay() noexcept = default;
    explicit FolderOnTheWay(const char* path, const FolderOnTheWay* outer = nullptr) noexcept : above(outer) {
        struct stat facts {};
        if (stat(path, &facts) != 0) return;
        device = facts.st_dev;
        inode = facts.st_ino;
    }
    [[nodiscard]] bool is_same(const FolderOnTheWay& other) const noexcept {
        return device == other.device && inode == other.inode;
    }
    [[nodiscard]] bool was_entered() const noexcept {
        const FolderOnTheWay* outer = above;
        while (outer != nullptr && !outer->is_same(*this))
            outer = outer->above;
        return outer != nullptr;
    }

    dev_t device = 0;
    ino_t inode = 0;
    const FolderOnTheWay* above = nullptr;
};

/// Makes a folder where its files go: a relative one in the current folder, not in the data folder, and one whose name
/// ends in "\\" under its whole name.
bool make_destination(const char* folder) noexcept {
    const size_t length = strlen(folder);
    if (folder[0] == '/' && folder[length - 1] != '\\') return file_ensure_directory(folder) != nullptr;
    if (ensure_folder(folder)) return true;
    msgerror("Error creating directory %s : %s\n", folder, os_errormsg());
    return false;
}

/// One call of vl_filecopy.
class PlainCopy {
public:
    explicit PlainCopy(unsigned long long& bytes) noexcept : bytes_(bytes) {}

    int32_t copy_file(const char* source, const char* destination) noexcept;
    int32_t copy_file_into(const char* source, const char* folder) noexcept;
    int32_t copy_folder(const char* source, const char* destination, bool recursive) noexcept;

private:
    int32_t copy_listed(bool recursive, const FolderOnTheWay& here) noexcept;
    [[nodiscard]] dir_list* list_source() const noexcept;
    bool copy_files(const dir_list& list) noexcept;
    int32_t copy_subfolder(const char* name, const FolderOnTheWay& here) noexcept;

    unsigned long long& bytes_;
    CopyTools tools_;
    PathText source_;  // of the folder being copied
    PathText destination_;
    FolderOnTheWay top_destination_;  // not to be copied into itself
};

int32_t PlainCopy::copy_file(const char* source, const char* destination) noexcept {
    const CopyJob job{.source = source,
                      .destinations = &destination,
                      .destination_count = 1,
                      .bytes_copied = &bytes_,
                      .takes_empty_source = false};
    switch (run_copy(job, tools_).fault) {
        case CopyFault::none:
            return 0;
        case CopyFault::source_open:
            return -1;
        case CopyFault::destination_exists:
        case CopyFault::destination_open:
            return -2;
        case CopyFault::source_read:
        case CopyFault::write:
            break;
    }
    return -3;
}

int32_t PlainCopy::copy_file_into(const char* source, const char* folder) noexcept {
    // Kept: the name is taken with the "/" before it, so that the path holds "//".
    const char* slash = strrchr(source, '/');
    PathText path;
    const bool fits = path.append(folder) && (path.ends_in('/') || path.append("/")) &&
                      path.append(slash != nullptr ? slash : source);
    return fits ? copy_file(source, path.text()) : -2;
}

int32_t PlainCopy::copy_folder(const char* source, const char* destination, bool recursive) noexcept {
    if (!make_destination(destination)) return 0;
    if (!source_.append(source) || !destination_.append(destination)) return -1;
    top_destination_ = FolderOnTheWay(destination_.text());
    return copy_listed(recursive, FolderOnTheWay(source_.text()));
}

int32_t PlainCopy::copy_listed(bool recursive, const FolderOnTheWay& here) noexcept {
    dir_list* list = list_source();
    if (list == nullptr) return 0;
    int32_t count = copy_files(*list) ? list->file_count : -1;
    for (int i = 0; recursive && count >= 0 && i < list->directory_count; ++i) {
        const int32_t below = copy_subfolder(list->directories[i], here);
        count = below >= 0 ? count + below : -1;
    }
    flist_delete(list);
    return count;
}

/// The listing of the source folder; null also when the folder has gone, for which its parent would be listed.
dir_list* PlainCopy::list_source() const noexcept {
    PathText path = source_;
    // One "/" or "\" is taken off; without this a "\" that belongs to the name would be.
    if (!path.append("/")) return nullptr;
    dir_list* list = flist_new(path.text(), /*sort_mode*/ 1);
    if (list == nullptr || source_.text() == std::string_view(list->path)) return list;
    flist_delete(list);
    return nullptr;
}

bool PlainCopy::copy_files(const dir_list& list) noexcept {
    for (int i = 0; i < list.file_count; ++i) {
        const AppendedName from(source_, list.files[i]);
        const AppendedName to(destination_, list.files[i]);
        if (!from.fits() || !to.fits() || copy_file(source_.text(), destination_.text()) < 0) return false;
    }
    return true;
}

int32_t PlainCopy::copy_subfolder(const char* name, const FolderOnTheWay& here) noexcept {
    const bool has_outer = make_destination(destination_.text());
    const AppendedName from(source_, name);
    const AppendedName to(destination_, name);
    if (!from.fits() || !to.fits()) return -1;
    const FolderOnTheWay folder(source_.text(), &here);
    if (folder.was_entered() || folder.is_same(top_destination_)) return 0;
    if (!has_outer || !make_destination(destination_.text())) return 0;
    return copy_listed(/*recursive*/ true, folder);
}

}  // namespace
}  // namespace vell

int32_t vl_filecopy(const char* source, const char* destination, bool recursive, unsigned long long& bytes) noexcept {
    if (source == nullptr || destination == nullptr) return -1;
    if (strcmp(source, destination) == 0) {
        msgerror("FileCopy: Source and destination are the same!\n'%s' no copy done\n", source);
        return -1;
    }
    bytes = 0;
    const bool is_folder = file_is_directory(source);
    if (!is_folder && !file_exists(source)) return 0;
    vell::PlainCopy copy(bytes);
    if (is_folder) return copy.copy_folder(source, destination, recursive);
    return file_is_directory(destination) ? copy.copy_file_into(source, destination)
                                          : copy.copy_file(source, destination);
}
