// One walk through a tree of folders, for searches and deletions.
//
// A folder is opened relative to the one above it, so a path that is swapped meanwhile leads nowhere else, and never
// entered again while the walk is inside of it, so loops of links end. Each folder is visited with its entries read,
// then its subfolders in the order of its entries, then it is left. Folders may be nested as deep as memory allows:
// far up the way their descriptors are closed, and reopened, as the same folders or not at all, on the way back.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "files/folder_contents.h"
#include "files/growing_array.h"

namespace vell {

/// A folder that the walk is in.
struct WalkedFolder {
    WalkedFolder* above;     ///< null for the tree's root
    int descriptor;          ///< -1 when it could not be opened, and while it is closed on the way down
    int error;               ///< why it could not be opened or read whole, or 0
    const char* name;        ///< in the folder above; for the root what the walk was started with
    int32_t path_length;     ///< how much of the walk's path is this folder's
    uint64_t device, inode;  ///< what the folder is, while `descriptor` was open once
    int32_t next_entry;      ///< where the search for the next subfolder goes on
    bool failed;             ///< the visitor's
    FolderContents contents;
};

/// What a walk does at its folders.
class TreeVisitor {
public:
    virtual ~TreeVisitor() = default;
    /// The entries of the folder were read; they may be reordered and changed here. `path` is the folder's, for
    /// messages and results. False ends the whole walk without leaving any folder.
    virtual bool enter(WalkedFolder& folder, const char* path) = 0;
    /// True for entries that are folders to enter.
    virtual bool goes_into(const FolderEntry& entry, const char* path) = 0;
    /// All subfolders were left. The folder's descriptor is open, unless it could not be opened or reopened.
    virtual void leave(WalkedFolder&) {}
};

class TreeWalker {
public:
    /// @param follows_links  enter links to folders too.
    TreeWalker(TreeVisitor& visitor, bool follows_links) noexcept : visitor_(visitor), follows_links_(follows_links) {}
    ~TreeWalker();
    TreeWalker(const TreeWalker&) = delete;
    TreeWalker& operator=(const TreeWalker&) = delete;

    /// Walks through the tree below `name` in the open folder `parent` (or AT_FDCWD). `path` is what messages and
    /// results begin with.
    /// @return  false when the visitor ended the walk, or memory was short: errno is set then.
    bool walk(int parent, const char* name, const char* path) noexcept;

private:
    [[nodiscard]] bool go_down(int parent, const char* name) noexcept;
    void go_up() noexcept;
    [[nodiscard]] int open_folder(int parent, const char* name) const noexcept;
    [[nodiscard]] bool identify(WalkedFolder& folder) const noexcept;
    void reopen_above() noexcept;
    [[nodiscard]] const FolderEntry* next_subfolder() noexcept;
    [[nodiscard]] bool append_to_path(const char* name) noexcept;

    TreeVisitor& visitor_;
    bool follows_links_;
    WalkedFolder* current_ = nullptr;
    int32_t depth_ = 0;
    GrowingArray<char> path_;
};

}  // namespace vell
