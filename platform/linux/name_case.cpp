// Which folders tell "A" from "a": all but those of a few foreign file systems, and those marked with chattr +F.

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>

#include <algorithm>
#include <iterator>

#include "platform/folder_records.h"

namespace vell {
namespace {

// From the kernel's linux/magic.h and the file systems' own sources.
constexpr uint32_t k_insensitive[] = {
    0x00004D44,  // FAT
    0x2011BAB0,  // exFAT
    0x7366746E,  // NTFS
    0x0000482B,  // HFS+; its case-sensitive form has a number of its own
    0xFF534D42,  // SMB 1
    0xFE534D42,  // SMB 2 and later
};

}  // namespace

bool are_names_case_sensitive(int folder) noexcept {
    struct statfs facts {};
    if (fstatfs(folder, &facts) == 0) {
        const auto type = static_cast<uint32_t>(facts.f_type);
        if (std::find(std::begin(k_insensitive), std::end(k_insensitive), type) != std::end(k_insensitive))
            return false;
    }
    int flags = 0;
    return ioctl(folder, FS_IOC_GETFLAGS, &flags) != 0 || (flags & FS_CASEFOLD_FL) == 0;
}

}  // namespace vell
