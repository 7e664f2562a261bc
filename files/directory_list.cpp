// Lists: their names and arrays, and the listing of one folder.
//
// A name of less than 64 bytes (of a folder, less than 63) lives in the name pool, a longer one in memory of its own;
// the stored length, which is one more for a folder, tells which.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "files/directory_list.h"
#include "files/folder_contents.h"
#include "files/name_pool.h"
#include "platform/posix/file_calls.h"
#include "vellcore/desktop_shell.h"
#include "vellcore/directory_listing.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"

namespace vell {
namespace {

constexpr int32_t k_initial_names = 1024;
constexpr int32_t k_initial_directories = 128;
constexpr size_t k_longest_listed_path = 1021;

StoredName store_name(const char* name, size_t length, int32_t stored_length) noexcept {
    if (static_cast<size_t>(stored_length) < k_pool_item_bytes) return store_in_pool(name, length);
    auto* text = static_cast<char*>(std::malloc(length + 1));
    if (text != nullptr) memcpy(text, name, length + 1);
    return {text, 0};
}

void give_back(const _file_entry& entry) noexcept {
    if (static_cast<size_t>(entry.length) >= k_pool_item_bytes) {
        std::free(entry.name);
        return;
    }
    const uint8_t* round = entry.pool_round;
    give_back_to_pool({entry.name, uint32_t{round[0]} | uint32_t{round[1]} << 8U | uint32_t{round[2]} << 16U});
}

_file_entry make_entry(StoredName name, int64_t date, int32_t length, bool is_directory) noexcept {
    const auto round_byte = [&](unsigned shift) { return static_cast<uint8_t>(name.round >> shift); };
    return {name.text, date, length, is_directory, {round_byte(0), round_byte(8), round_byte(16)}};
}

/// The array of names that an entry also goes into.
struct NameArray {
    char**& names;
    int32_t& count;
    int32_t& capacity;
    int32_t initial;
};

// Room in both arrays comes first, so that a list is never left with a name in one of them only.
void append(dir_list& list, const NameArray& names, const char* name, int64_t date, bool is_directory) noexcept {
    const size_t length = strlen(name);
    const size_t stored_length = length + (is_directory ? 1 : 0);
    if (stored_length > INT32_MAX ||
        alloc_ensure(list.entries, list.entry_count, list.entry_capacity, 1, k_initial_names) == 0 ||
        alloc_ensure(names.names, names.count, names.capacity, 1, names.initial) == 0)
        return;
    const StoredName stored = store_name(name, length, static_cast<int32_t>(stored_length));
    if (stored.text == nullptr) return;
    list.entries[list.entry_count++] = make_entry(stored, date, static_cast<int32_t>(stored_length), is_directory);
    names.names[names.count++] = stored.text;
}

bool is_separator(char byte) noexcept {
    return byte == '/' || byte == '\\';
}

/// Cuts the last name off, with the separator in front of it.
void cut_last_name(char* path) noexcept {
    size_t length = strlen(path);
    while (length > 0 && !is_separator(path[length - 1]))
        --length;
    path[length > 0 ? length - 1 : 0] = '\0';
}

bool is_drive(const char* path) noexcept {
    return path[0] != '\0' && path[1] == ':' && path[2] == '\0';
}

/// Turns the list's path, as the caller gave it, into that of the folder to list.
void settle_on_folder(char (&path)[1024]) noexcept {
    cut_last_separator(path);
    if (is_drive(path) || file_is_directory(path)) return;
    cut_last_name(path);
    if (path[0] != '\0') return;
    const char* data = file_get_data();
    memcpy(path, data, strnlen(data, sizeof path - 1) + 1);
    path[sizeof path - 1] = '\0';
}

void add_entries(dir_list& list, FolderContents& contents) noexcept {
    for (const FolderEntry& entry : contents.entries()) {
        if (!entry.is_directory())
            flist_add_file(&list, entry.name, entry.modified_s);
        else if (!is_left_out(entry.name))
            flist_add_dir(&list, entry.name, entry.modified_s, 0);
    }
}

void list_folder(dir_list& list) noexcept {
    FolderContents contents;
    const int folder = file_calls.open(list.path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (folder < 0 || contents.read(folder) != 0) msgwarn("ERROR: Can't open directory: '%s'\n", list.path);
    for (FolderEntry& entry : contents.entries())
        entry.wants_facts = true;
    contents.fetch_facts(folder);
    contents.repeat_unknown(list.path);
    add_entries(list, contents);
    if (folder >= 0) file_calls.close(folder);
}

}  // namespace

dir_list* make_list() noexcept {
    return static_cast<dir_list*>(std::calloc(1, sizeof(dir_list)));
}

void cut_last_separator(char* path) noexcept {
    const size_t length = strlen(path);
    if (length > 1 && is_separator(path[length - 1])) path[length - 1] = '\0';
}

}  // namespace vell

void alloc_ensure_report_failure() noexcept {
    msgerror("ALLOC ENSURE: Not enough memory..");
}

void flist_add_dir(dir_list* list, const char* name, int64_t date, int32_t) noexcept {
    if (list == nullptr || name == nullptr || *name == '\0' || strcmp(name, ".") == 0) return;
    const vell::NameArray names{list->directories, list->directory_count, list->directory_capacity,
                                vell::k_initial_directories};
    vell::append(*list, names, name, date, /*is_directory*/ true);
}

void flist_add_file(dir_list* list, const char* name, int64_t date) noexcept {
    if (list == nullptr || name == nullptr || *name == '\0') return;
    const vell::NameArray names{list->files, list->file_count, list->file_capacity, vell::k_initial_names};
    vell::append(*list, names, name, date, /*is_directory*/ false);
}

void flist_delete(dir_list* list) noexcept {
    if (list == nullptr) return;
    for (int32_t i = list->entry_count; i-- > 0;)
        vell::give_back(list->entries[i]);
    std::free(list->files);
    std::free(list->directories);
    std::free(list->entries);
    std::free(list);
}

dir_list* flist_new(const char* path, int32_t sort_mode) noexcept {
    if (path == nullptr || strnlen(path, vell::k_longest_listed_path + 1) > vell::k_longest_listed_path) return nullptr;
    if (*path == '\0') return flist_mountp(false);
    dir_list* list = vell::make_list();
    if (list == nullptr) return nullptr;
    memcpy(list->path, path, strlen(path) + 1);
    vell::settle_on_folder(list->path);
    vell::list_folder(*list);
    flist_sort(list, sort_mode);
    return list;
}
