// The system calls that fail in the field, as a table of function pointers, so that a test can refuse the third
// pwrite. Code that opens, moves or renames files calls through the table; everything else calls the system.
//
// The table is the system's own until a test replaces entries, which it does while no transfer runs.
//
// To port: all entries are POSIX except pread_flags and pwrite_flags, which each system's folder provides
// (see linux/flagged_calls.cpp).
#pragma once

#include <pthread.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>

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
    int (*unlink)(const char* path);
    int (*mkdir)(const char* path, mode_t mode);
    int (*rmdir)(const char* path);
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

}  // namespace vell
