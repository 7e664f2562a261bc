// Sorting lists: by name the two arrays of names, by date the entries.

#include "files/merge_sort.h"
#include "files/plain_order.h"
#include "files/sort_keys.h"
#include "vellcore/directory_listing.h"

namespace vell {
namespace {

const char* name_of_pointer(const void* names, int32_t index) noexcept {
    return static_cast<char* const*>(names)[index];
}

const char* name_of_entry(const void* entries, int32_t index) noexcept {
    return static_cast<const _file_entry*>(entries)[index].name;
}

template <class T, class IsBefore>
void sort_records(GrowingArray<T>& records, IsBefore is_before) noexcept {
    GrowingArray<T> scratch;
    if (scratch.resize(records.count()))
        merge_sort(records.data(), static_cast<size_t>(records.count()), scratch.data(), is_before);
}

void sort_files(char** files, int32_t count) noexcept {
    SortKeys keys;
    if (!keys.make(name_of_pointer, files, count)) return;
    sort_records(keys.keys(), [](const SortKey& a, const SortKey& b) { return file_order(a, b) < 0; });
    for (const SortKey& key : keys.keys())
        *files++ = const_cast<char*>(key.name);
}

void sort_directories(char** directories, int32_t count) noexcept {
    GrowingArray<char*> scratch;
    if (!scratch.resize(count)) return;
    merge_sort(directories, static_cast<size_t>(count), scratch.data(),
               [](const char* a, const char* b) { return dir_cmp(&a, &b) < 0; });
}

/// date_cmp with the names' comparison prepared.
int date_order(const _file_entry* entries, const SortKey& a, const SortKey& b) noexcept {
    const _file_entry& first = entries[a.index];
    const _file_entry& second = entries[b.index];
    const bool needs_name = first.is_directory == second.is_directory && first.date == second.date;
    return needs_name && first.is_directory == 0 ? file_order(a, b) : date_cmp(&first, &second);
}

void sort_entries(_file_entry* entries, int32_t count) noexcept {
    SortKeys keys;
    GrowingArray<_file_entry> before;
    if (!keys.make(name_of_entry, entries, count) || !before.resize(count)) return;
    std::copy(entries, entries + count, before.data());
    const _file_entry* const unsorted = before.data();
    sort_records(keys.keys(),
                 [unsorted](const SortKey& a, const SortKey& b) { return date_order(unsorted, a, b) < 0; });
    for (const SortKey& key : keys.keys())
        *entries++ = unsorted[key.index];
}

}  // namespace
}  // namespace vell

void flist_sort(dir_list* list, int32_t mode) noexcept {
    if (list == nullptr) return;
    if (mode == FLIST_BY_NAME) {
        if (list->file_count > 1) vell::sort_files(list->files, list->file_count);
        if (list->directory_count > 1) vell::sort_directories(list->directories, list->directory_count);
    } else if (mode == FLIST_BY_DATE && (list->file_count > 1 || list->directory_count > 1)) {
        vell::sort_entries(list->entries, list->entry_count);
    }
}
