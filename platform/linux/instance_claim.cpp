// The instance claim: an exclusive lock on a file in the user's runtime folder.
//
// The file is never deleted: a process that finds it and one that makes it anew would otherwise lock two files of one
// name. The kernel drops the lock when the last descriptor of the process closes it; a forked child closes its copy
// at once, so that it does not hold the claim for its parent.

#include "platform/instance_claim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/fork_handlers.h"

namespace vell {
namespace {

constexpr size_t k_path_bytes = 1024;
constexpr size_t k_longest_name = 200;  // bytes of a file name; longer ones are cut and told apart by a hash
constexpr int k_first_own_descriptor = 3;

/// Descriptors of the claims that this process holds; -1 is free. A host has one claim, a test perhaps a few.
std::atomic<int> held_claims[8] = {-1, -1, -1, -1, -1, -1, -1, -1};

void close_claims_in_child() noexcept {
    for (std::atomic<int>& held : held_claims)
        if (const int descriptor = held.exchange(-1); descriptor >= 0) close(descriptor);
}

const ForkEntry fork_entry(ForkOrder::instance_claim, {nullptr, nullptr, close_claims_in_child});

/// A folder that belongs to the caller and that nobody else can write to.
bool is_own_folder(const char* path) noexcept {
    struct stat status {};
    return lstat(path, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool find_runtime_folder(char (&folder)[k_path_bytes]) noexcept {
    const char* named = std::getenv("XDG_RUNTIME_DIR");
    if (named != nullptr && named[0] == '/' && std::strlen(named) < sizeof folder && is_own_folder(named)) {
        std::snprintf(folder, sizeof folder, "%s", named);
        return true;
    }
    const unsigned user = geteuid();
    std::snprintf(folder, sizeof folder, "/run/user/%u", user);
    if (is_own_folder(folder)) return true;
    std::snprintf(folder, sizeof folder, "/tmp/.runtime-%u", user);
    if (mkdir(folder, 0700) != 0 && errno != EEXIST) return false;
    return is_own_folder(folder);
}

/// FNV-1a, 64 bits (Fowler, Noll and Vo).
uint64_t hash_of(const char* text) noexcept {
    uint64_t hash = 0xcbf29ce484222325;
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 0x100000001b3;
    return hash;
}

bool is_plain(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == ' ';
}

/// A file name for `name`: every byte but the plain ones is written as %XX, and long names end in a hash.
void make_file_name(const char* name, char (&out)[k_longest_name + 32]) noexcept {
    size_t length = 0;
    for (const char* c = name; *c != '\0' && length + 3 <= k_longest_name; ++c) {
        if (is_plain(*c))
            out[length++] = *c;
        else
            length += static_cast<size_t>(std::snprintf(out + length, 4, "%%%02X", static_cast<unsigned char>(*c)));
    }
    out[length] = '\0';
    if (length + 3 > k_longest_name)
        std::snprintf(out + length, sizeof out - length, "-%016llx", static_cast<unsigned long long>(hash_of(name)));
}

/// Opens the claim's file, past the standard descriptors. -1 on failure.
int open_claim_file(const char* path) noexcept {
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
    const int descriptor = open(path, flags, 0600);
    if (descriptor < 0 || descriptor >= k_first_own_descriptor) return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, k_first_own_descriptor);
    close(descriptor);
    return moved;
}

void remember_claim(int descriptor) noexcept {
    for (std::atomic<int>& held : held_claims) {
        int free_place = -1;
        if (held.compare_exchange_strong(free_place, descriptor)) return;
    }
}

}  // namespace

InstanceClaim claim_instance(const char* name) noexcept {
    char folder[k_path_bytes];
    if (!find_runtime_folder(folder)) return InstanceClaim::impossible;
    char file_name[k_longest_name + 32];
    make_file_name(name, file_name);
    char path[k_path_bytes + sizeof file_name];
    std::snprintf(path, sizeof path, "%s/%s", folder, file_name);
    const int descriptor = open_claim_file(path);
    if (descriptor < 0) return InstanceClaim::impossible;
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        const bool is_held = errno == EWOULDBLOCK;
        close(descriptor);
        return is_held ? InstanceClaim::held : InstanceClaim::impossible;
    }
    // The sticky bit keeps cleaners of runtime folders away from a file that looks old.
    if (fchmod(descriptor, S_ISVTX | 0600) != 0) errno = 0;
    remember_claim(descriptor);
    return InstanceClaim::taken;
}

}  // namespace vell
