// Folders through getdents64 and statx, without a C library's stream between.

#include "platform/folder_records.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/posix/file_calls.h"

namespace vell {
namespace {

/// The kernel's record, up to the name; see getdents64(2). The whole is padded to a multiple of 8 bytes.
struct RecordHead {
    uint64_t inode;
    int64_t next_offset;
    uint16_t record_bytes;
    uint8_t type;  // DT_REG ..., which are the mode's type bits shifted
};
constexpr size_t k_name_at = 19;

EntryKind kind_of(unsigned mode) noexcept {
    switch (mode & S_IFMT) {
        case 0:
            return EntryKind::unknown;
        case S_IFREG:
            return EntryKind::file;
        case S_IFDIR:
            return EntryKind::folder;
        case S_IFLNK:
            return EntryKind::link;
        default:
            return EntryKind::other;
    }
}

}  // namespace

const int k_folder_handle = O_PATH | O_DIRECTORY | O_CLOEXEC;

FolderRecord take_record(const void* batch, size_t& offset) noexcept {
    const char* at = static_cast<const char*>(batch) + offset;
    RecordHead head;
    memcpy(&head, at, sizeof head);
    offset += head.record_bytes;
    return {at + k_name_at, kind_of(unsigned{head.type} << 12U)};
}

ssize_t system_read_folder(int folder, void* batch, size_t bytes) noexcept {
    return syscall(SYS_getdents64, folder, batch, bytes);
}

int system_entry_facts(int folder, const char* name, bool follows_links, EntryFacts* facts) noexcept {
    struct statx all {};
    const int flags = follows_links ? 0 : AT_SYMLINK_NOFOLLOW;
    if (statx(folder, name, flags | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_MTIME | STATX_INO, &all) != 0) return -1;
    *facts = {makedev(all.stx_dev_major, all.stx_dev_minor), all.stx_ino, all.stx_mtime.tv_sec, kind_of(all.stx_mode)};
    return 0;
}

int system_rename_to_free_name(const char* from, const char* to) noexcept {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}

}  // namespace vell
