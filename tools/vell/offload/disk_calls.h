// The system calls of offload, verify and hash that fail in the field, as a table of function pointers, so that a test
// can refuse the third write. What is one system's own (uncached transfers, renaming without replacing, reserving
// space) is in disk_calls.cpp.
//
// Names are relative to an open folder. Every entry answers as the POSIX call does: -1 and errno on failure.
#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

#include <ctime>

namespace tool {

struct DiskCalls {
    int (*open)(int folder, const char* name, int flags, mode_t mode);  ///< close-on-exec is added
    ssize_t (*read)(int file, void* buffer, size_t bytes, off_t offset);
    ssize_t (*write)(int file, const void* buffer, size_t bytes, off_t offset);
    ssize_t (*append)(int file, const void* buffer, size_t bytes);
    int (*reserve)(int file, off_t bytes);  ///< space for a file that will have this size
    int (*cut)(int file, off_t size);
    int (*sync_data)(int file);  ///< contents and size
    int (*sync)(int file);       ///< everything; for a folder its names
    int (*set_times)(int file, const timespec times[2]);
    int (*set_mode)(int file, mode_t mode);
    int (*facts)(int folder, const char* name, struct stat* facts);  ///< of a symbolic link itself
    int (*file_facts)(int file, struct stat* facts);
    int (*rename)(int folder, const char* from, const char* to, bool replaces);
    int (*remove)(int folder, const char* name);
    int (*make_folder)(int folder, const char* name, mode_t mode);
    int (*space)(int file, struct statvfs* space);
};

extern DiskCalls disk_calls;

/// The system's own calls, for a test to call through and to put back.
extern const DiskCalls system_disk_calls;

/// Tries to keep the file's transfers out of the system's cache. True when they bypass it: buffer, offset and length
/// must then be multiples of k_transfer_alignment.
bool bypass_cache(int file);
/// Back to transfers through the cache, of any alignment.
void use_cache(int file);
/// Drops what the cache holds of a part of the file and is on disk already; 0 bytes: to the file's end.
void drop_from_cache(int file, off_t offset = 0, off_t bytes = 0);

inline constexpr size_t k_transfer_alignment = 4096;

}  // namespace tool
