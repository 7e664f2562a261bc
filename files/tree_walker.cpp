// The walk keeps its way from the root to the current folder as a chain of WalkedFolders. The descriptors of the
// nearest ones are open; those further up are closed and reopened through "..", or by path where a link was followed.

#include "files/tree_walker.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "platform/posix/file_calls.h"

namespace vell {
namespace {

constexpr int32_t k_open_folders = 32;

void close_folder(WalkedFolder& folder) noexcept {
    if (folder.descriptor >= 0) file_calls.close(folder.descriptor);
    folder.descriptor = -1;
}

bool is_same_folder(int descriptor, const WalkedFolder& folder) noexcept {
    struct stat facts {};
    return file_calls.fstat(descriptor, &facts) == 0 && facts.st_dev == folder.device && facts.st_ino == folder.inode;
}

}  // namespace

TreeWalker::~TreeWalker() {
    while (current_ != nullptr) {
        WalkedFolder* above = current_->above;
        close_folder(*current_);
        delete current_;
        current_ = above;
    }
}

int TreeWalker::open_folder(int parent, const char* name) const noexcept {
    return file_calls.openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follows_links_ ? 0 : O_NOFOLLOW));
}

/// Notes which folder was opened. False when the walk is inside of it already.
bool TreeWalker::identify(WalkedFolder& folder) const noexcept {
    struct stat facts {};
    if (file_calls.fstat(folder.descriptor, &facts) != 0) {
        folder.error = errno;
        return true;
    }
    folder.device = facts.st_dev;
    folder.inode = facts.st_ino;
    for (const WalkedFolder* above = folder.above; above != nullptr; above = above->above)
        if (above->device == folder.device && above->inode == folder.inode) return false;
    return true;
}

bool TreeWalker::append_to_path(const char* name) noexcept {
    const int32_t at = current_ != nullptr ? current_->path_length : 0;
    const auto length = static_cast<int32_t>(strlen(name));
    const int32_t slash = current_ != nullptr ? 1 : 0;
    if (!path_.resize(at + slash + length + 1)) return false;
    if (slash != 0) path_[at] = '/';
    memcpy(path_.data() + at + slash, name, static_cast<size_t>(length) + 1);
    return true;
}

/// Enters a folder. False when the visitor ends the walk or memory is short.
bool TreeWalker::go_down(int parent, const char* name) noexcept {
    auto* folder = new (std::nothrow) WalkedFolder{};
    if (folder == nullptr) {
        errno = ENOMEM;
        return false;
    }
    folder->above = current_;
    folder->name = name;
    folder->path_length = path_.count() - 1;
    folder->descriptor = open_folder(parent, name);
    if (folder->descriptor < 0) folder->error = errno;
    if (folder->descriptor >= 0 && !identify(*folder)) {
        close_folder(*folder);
        delete folder;
        return true;
    }
    current_ = folder;
    ++depth_;
    WalkedFolder* far = folder;
    for (int32_t i = 0; far != nullptr && i < k_open_folders; ++i)
        far = far->above;
    if (far != nullptr) close_folder(*far);
    if (folder->error == 0) folder->error = folder->contents.read(folder->descriptor);
    return visitor_.enter(*folder, path_.data());
}

/// Opens the folder above again when it was closed on the way down.
void TreeWalker::reopen_above() noexcept {
    WalkedFolder& above = *current_->above;
    if (above.descriptor >= 0 || above.inode == 0) return;
    int descriptor = file_calls.openat(current_->descriptor, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0 && !is_same_folder(descriptor, above)) {
        file_calls.close(descriptor);
        path_[above.path_length] = '\0';
        descriptor = open_folder(AT_FDCWD, path_.data());
        if (descriptor >= 0 && !is_same_folder(descriptor, above)) {
            file_calls.close(descriptor);
            descriptor = -1;
        }
    }
    above.descriptor = descriptor;
}

void TreeWalker::go_up() noexcept {
    WalkedFolder* left = current_;
    if (left->above != nullptr) reopen_above();
    visitor_.leave(*left);
    current_ = left->above;
    --depth_;
    close_folder(*left);
    delete left;
}

const FolderEntry* TreeWalker::next_subfolder() noexcept {
    auto& entries = current_->contents.entries();
    if (current_->descriptor < 0) return nullptr;
    path_[current_->path_length] = '\0';
    while (current_->next_entry < entries.count()) {
        const FolderEntry& entry = entries[current_->next_entry++];
        if (visitor_.goes_into(entry, path_.data())) return &entry;
    }
    return nullptr;
}

bool TreeWalker::walk(int parent, const char* name, const char* path) noexcept {
    if (!append_to_path(path) || !go_down(parent, name)) return false;
    while (current_ != nullptr) {
        const FolderEntry* next = next_subfolder();
        if (next == nullptr) {
            go_up();
        } else if (!append_to_path(next->name) || !go_down(current_->descriptor, next->name)) {
            return false;
        }
    }
    return true;
}

}  // namespace vell
