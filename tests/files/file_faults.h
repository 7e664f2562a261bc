// Refuses file calls on purpose: the n-th call of the kinds that a test asks for fails with an error number.
#pragma once

#include <atomic>
#include <cerrno>

#include "platform/posix/file_calls.h"

/// While it lives, the `refused_call`-th file call (counted from 1 over all kinds in the table except close, flock
/// and fstat) fails once with `error`. has_fired tells whether that call was reached.
class FileFault {
public:
    FileFault(int refused_call, int error) {
        calls_left = refused_call;
        error_number = error;
        fired = false;
        auto& table = vell::file_calls;
        table.open = [](const char* path, int flags, mode_t mode) {
            return refuses() ? -1 : real().open(path, flags, mode);
        };
        table.pread = [](int fd, void* to, size_t n, off_t at) -> ssize_t {
            return refuses() ? -1 : real().pread(fd, to, n, at);
        };
        table.pwrite = [](int fd, const void* from, size_t n, off_t at) -> ssize_t {
            return refuses() ? -1 : real().pwrite(fd, from, n, at);
        };
        table.pread_flags = [](int fd, void* to, size_t n, off_t at, int flags) -> ssize_t {
            return refuses() ? -1 : real().pread_flags(fd, to, n, at, flags);
        };
        table.pwrite_flags = [](int fd, const void* from, size_t n, off_t at, int flags) -> ssize_t {
            return refuses() ? -1 : real().pwrite_flags(fd, from, n, at, flags);
        };
        table.ring_result = [](int32_t result) { return refuses() ? -error_number.load() : result; };
        table.fsync = [](int fd) { return refuses() ? -1 : real().fsync(fd); };
        table.ftruncate = [](int fd, off_t size) { return refuses() ? -1 : real().ftruncate(fd, size); };
        table.rename = [](const char* from, const char* to) { return refuses() ? -1 : real().rename(from, to); };
        table.link = [](const char* from, const char* to) { return refuses() ? -1 : real().link(from, to); };
        table.unlink = [](const char* path) { return refuses() ? -1 : real().unlink(path); };
        table.mkdir = [](const char* path, mode_t mode) { return refuses() ? -1 : real().mkdir(path, mode); };
        table.rmdir = [](const char* path) { return refuses() ? -1 : real().rmdir(path); };
        table.openat = [](int folder, const char* name, int flags) {
            return refuses() ? -1 : real().openat(folder, name, flags);
        };
        table.unlinkat = [](int folder, const char* name, int flags) {
            return refuses() ? -1 : real().unlinkat(folder, name, flags);
        };
        table.rename_to_free_name = [](const char* from, const char* to) {
            return refuses() ? -1 : real().rename_to_free_name(from, to);
        };
        table.read_folder = [](int folder, void* batch, size_t bytes) -> ssize_t {
            return refuses() ? -1 : real().read_folder(folder, batch, bytes);
        };
        table.entry_facts = [](int folder, const char* name, bool follows_links, vell::EntryFacts* facts) {
            return refuses() ? -1 : real().entry_facts(folder, name, follows_links, facts);
        };
        table.spawn = [](pid_t* child, const char* program, const posix_spawn_file_actions_t* actions,
                         const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
            return refuses() ? error_number.load()
                             : real().spawn(child, program, actions, attributes, arguments, environment);
        };
        table.create_thread = [](pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                                 void* argument) {
            return refuses() ? EAGAIN : real().create_thread(thread, attributes, entry, argument);
        };
    }
    ~FileFault() { vell::file_calls = vell::system_file_calls; }
    FileFault(const FileFault&) = delete;
    FileFault& operator=(const FileFault&) = delete;

    bool has_fired() const { return fired; }

private:
    static const vell::FileCalls& real() { return vell::system_file_calls; }
    static bool refuses() {
        if (--calls_left != 0) return false;
        fired = true;
        errno = error_number;
        return true;
    }
    static inline std::atomic<int> calls_left{0};
    static inline std::atomic<int> error_number{0};
    static inline std::atomic<bool> fired{false};
};

/// Runs `attempt(fault)` with call 1, 2, 3 ... refused, until it runs through without reaching the refused call.
template <typename Attempt>
void for_each_file_fault(int error, Attempt attempt) {
    constexpr int k_most_calls = 10'000;
    for (int call = 1; call < k_most_calls; ++call) {
        const FileFault fault(call, error);
        attempt(fault);
        if (!fault.has_fired()) return;
    }
}
