// Reading a folder name by name, for hosts that want no list.

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "files/folder_contents.h"
#include "platform/posix/file_calls.h"
#include "vellcore/directory_listing.h"

namespace vell {
namespace {

constexpr size_t k_batch_bytes = size_t{32} << 10U;
constexpr size_t k_longest_path = 1022;  // a "/" and a terminator follow

/// A folder being read: the batch at hand and how far its records were handed out.
struct Stream {
    int folder;
    size_t at;
    size_t end;
    alignas(8) std::byte batch[k_batch_bytes];

    /// The next record's entry; false at the end.
    bool next(FolderEntry& entry) noexcept {
        if (at == end) {
            const ssize_t bytes = file_calls.read_folder(folder, batch, sizeof batch);
            if (bytes <= 0) return false;
            at = 0;
            end = static_cast<size_t>(bytes);
        }
        const FolderRecord record = take_record(batch, at);
        entry = {record.name, 0, 0, record.kind, true};
        return true;
    }
};

}  // namespace
}  // namespace vell

bool DirectoryOpen(Directory* directory, const char* path) noexcept {
    if (directory == nullptr) return false;
    directory->stream = nullptr;
    size_t length = path != nullptr ? strnlen(path, vell::k_longest_path + 1) : 0;
    if (length == 0 || length > vell::k_longest_path) {
        errno = length == 0 ? ENOENT : ENAMETOOLONG;
        return false;
    }
    memcpy(directory->path, path, length + 1);
    auto* stream = new (std::nothrow) vell::Stream;
    if (stream == nullptr) return false;
    stream->folder = vell::file_calls.open(directory->path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    stream->at = stream->end = 0;
    if (stream->folder < 0) {
        delete stream;
        return false;
    }
    if (directory->path[length - 1] != '/' && directory->path[length - 1] != '\\') directory->path[length++] = '/';
    directory->path[length] = '\0';
    directory->stream = stream;
    return true;
}

bool DirectoryReadNextEntry(Directory* directory, DirEntry* entry) noexcept {
    if (directory == nullptr || directory->stream == nullptr || entry == nullptr) return false;
    auto* stream = static_cast<vell::Stream*>(directory->stream);
    vell::FolderEntry read{};
    if (!stream->next(read)) return false;
    vell::fetch_entry_facts(stream->folder, read);
    if (read.error != 0) {
        vell::report_unknown_entry(directory->path, read.name, read.error);
        return true;
    }
    memcpy(entry->name, read.name, strnlen(read.name, sizeof entry->name - 1) + 1);
    entry->name[sizeof entry->name - 1] = '\0';
    entry->is_directory = read.is_directory() ? 1 : 0;
    entry->date = read.modified_s;
    return true;
}

void DirectoryClose(Directory* directory) noexcept {
    if (directory == nullptr || directory->stream == nullptr) return;
    auto* stream = static_cast<vell::Stream*>(directory->stream);
    vell::file_calls.close(stream->folder);
    delete stream;
    directory->stream = nullptr;
}
