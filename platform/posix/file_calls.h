// The system calls that fail in the field, as a table of function pointers, so that a test can refuse the third
// pwrite. Code that opens, moves or renames files calls through the table; everything else calls the system.
//
// The table is the system's own until a test replaces entries, which it does while no transfer runs.
//
// To port: all entries are POSIX except pread_flags and pwrite_flags (see linux/flagged_calls.cpp) and
// rename_to_free_name, read_folder and entry_facts (see linux/folder_records.cpp), which each system's folder provides.
#pragma once

#include <pthread.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>

#include "platform/folder_records.h"

namespace vell {

struct FileCalls {
    int (*open)(const char* path, int flags, mode_t mode);
    int (*close)(int descriptor);
    int (*flock)(int descriptor, int operation);
    int (*fstat)(int descriptor, struct stat* facts);
    ssize_t (*pread)(int descriptor, void* buffer, size_t bytes, off_t offset);
    ssize_t (*pwrite)(int descriptor, const void* buffer, size_t bytes, off_t offset);
    /// The same with flags for this one call; a system or file system without them answers with an error.
    ssize_t (*pread_flags)(int descriptor, void* buffer, size_t bytes, off_t offset, int flags);
    ssize_t (*pwrite_flags)(int descriptor, const void* buffer, size_t bytes, off_t offset, int flags);
    /// What a submission ring reported for a transfer: bytes moved or a negative error number. Passed through.
    int32_t (*ring_result)(int32_t result);
    int (*fsync)(int descriptor);
    int (*ftruncate)(int descriptor, off_t size);
    int (*rename)(const char* from, const char* to);
    /// A second name for a file, or for a symbolic link itself.
    int (*link)(const char* from, const char* to);
    int (*unlink)(const char* path);
    int (*mkdir)(const char* path, mode_t mode);
    int (*rmdir)(const char* path);
    int (*openat)(int folder, const char* name, int flags);
    int (*unlinkat)(int folder, const char* name, int flags);
    /// renameat2 or its like: refuses an existing destination with EEXIST, and with EINVAL or ENOSYS where the file
    /// system or the system cannot.
    int (*rename_to_free_name)(const char* from, const char* to);
    /// A batch of a folder's records (platform/folder_records.h): bytes, 0 at the end.
    ssize_t (*read_folder)(int folder, void* batch, size_t bytes);
    /// What is known about a name in a folder; `follows_links` looks behind a symbolic link.
    int (*entry_facts)(int folder, const char* name, bool follows_links, EntryFacts* facts);
    /// posix_spawnp: answers an error number, errno is not used.
    int (*spawn)(pid_t* child, const char* program, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment);
    /// pthread_create: answers an error number, errno is not used.
    int (*create_thread)(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument);
};

extern FileCalls file_calls;

/// The system's own calls, for a test to call through and to put back.
extern const FileCalls system_file_calls;

/// Opens a file above the standard streams' numbers: a process that closed its standard input would otherwise get
/// descriptor 0, which callers take for a failure. Close-on-exec is added. A descriptor, or -1 and errno.
int open_above_streams(const char* path, int flags, mode_t mode) noexcept;

// What the system's folder provides for the table.
ssize_t system_pread_flags(int descriptor, void* buffer, size_t bytes, off_t offset, int flags) noexcept;
ssize_t system_pwrite_flags(int descriptor, const void* buffer, size_t bytes, off_t offset, int flags) noexcept;
int system_rename_to_free_name(const char* from, const char* to) noexcept;
ssize_t system_read_folder(int folder, void* batch, size_t bytes) noexcept;
int system_entry_facts(int folder, const char* name, bool follows_links, EntryFacts* facts) noexcept;

}  // namespace vell
