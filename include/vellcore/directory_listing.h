#pragma once
// The contents of folders: lists, searches with wildcards, sorting in natural order.
//
// A dir_list belongs to the thread that made it until flist_delete; it has no lock. Names are bytes up to the
// terminator, whatever their encoding. Paths follow file_operations.h.

#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "export.h"

/// One name of a list.
struct _file_entry {
    char* name;             ///< the list's own; for a search the full path
    int64_t date;           ///< modification time in seconds since 1970; 0 for mount points
    int32_t length;         ///< of the name in bytes; one more for a folder. Below 64 the name lives in the name pool
    uint8_t is_directory;   ///< 1 for a folder that is no bundle
    uint8_t pool_round[3];  ///< the library's: which life of the name pool the name is from
};
static_assert(sizeof(_file_entry) == 24, "hosts know the layout");

/// A folder's contents, or what a search found.
struct dir_list {
    char path[1024];         ///< the listed folder, or where the search began
    int32_t entry_count;     ///< names in all
    int32_t entry_capacity;  //
    _file_entry* entries;    ///< every name, in the order in which it was added
    int32_t file_count;
    int32_t file_capacity;
    char** files;  ///< the files' names, shared with `entries`
    int32_t directory_count;
    int32_t directory_capacity;
    char** directories;  ///< the folders' names, shared with `entries`
};
static_assert(sizeof(dir_list) == 1072, "hosts know the layout");

// --- Lists ----------------------------------------------------------------------------------------------------

/// How flist_new and flist_sort order a list.
enum FLIST_SORT : int32_t {
    FLIST_UNSORTED = 0,
    FLIST_BY_NAME = 1,  ///< `files` by file_cmp and `directories` by dir_cmp; `entries` keep their order
    FLIST_BY_DATE = 2,  ///< `entries` by date_cmp, when there are two files or two folders; the others keep theirs
};

/// Lists a folder.
///
/// Symbolic links are followed: a link to a folder is listed as a folder. A bundle ("*.app") is listed as a file.
/// Folders named "." or with two dots in front are left out. One "/" or "\" at the end of the path is ignored.
///
/// @param path  a folder of at most 1021 bytes; a name that is no folder lists the folder above it, and the
///              application's data folder when nothing is above it. An empty path lists the root's visible folders, as
///              flist_mountp does.
/// @return  the list, for flist_delete; null for a longer or null path, or when memory is short. A folder that cannot
///          be read gives an empty list and the warning "ERROR: Can't open directory: '%s'".
/// Kept: a name that cannot be examined (a link to nothing, for instance) repeats the entry before it in the folder's
/// own order, with a debug line "Error statting file: %s (%s)".
[[nodiscard]] VELL_API dir_list* flist_new(const char* path, int32_t sort_mode) noexcept;

/// Whether a search tells "A" from "a". Without a flag it does.
enum FLIST_FIND : uint32_t {
    FLIST_CASE_SENSITIVE = 1,    ///< goes before the other two
    FLIST_CASE_INSENSITIVE = 2,  ///< goes before the last
    FLIST_CASE_OF_VOLUME = 4,    ///< as the file system of the folder does
};

/// Finds the files in a folder whose names match a pattern.
///
/// The list's names are full paths: folder + "/" + name; those of 1024 bytes or more are left out. First come the
/// folder's own files, in its own order, then those of each subfolder. Links are followed, but never into a folder
/// that the search is already inside of.
///
/// @param folder   at most 1023 bytes. One "/" or "\" at its end is ignored.
/// @param pattern  see wildcard_match.
/// @param recurse  search the subfolders too, except those with two dots in front.
/// @param flags    FLIST_FIND.
/// @return  the list, for flist_delete; null when nothing matched. A folder that cannot be read is a warning "ERROR:
///          Find, can't open directory: '%s'", and the search goes on.
[[nodiscard]] VELL_API dir_list* flist_findfiles(const char* folder, const char* pattern, bool recurse,
                                                 uint32_t flags) noexcept;

/// Sorts a list in place; `mode` as FLIST_SORT. Equal names keep their order. Null is accepted. When memory is short
/// the order stays as it is, after an error line.
VELL_API void flist_sort(dir_list* list, int32_t mode) noexcept;

/// Frees a list with its names. Null is accepted.
VELL_API void flist_delete(dir_list* list) noexcept;

/// Appends a copy of a name. An empty name, and "." as a folder, is ignored. When memory is short nothing is added;
/// an array that cannot grow is an error line "ALLOC ENSURE: Not enough memory..".
/// @param date  seconds since 1970.
VELL_API void flist_add_dir(dir_list* list, const char* name, int64_t date, int32_t ignored) noexcept;
VELL_API void flist_add_file(dir_list* list, const char* name, int64_t date) noexcept;

/// Gives the memory of all short names back to the system. The names of lists that still exist become invalid; such a
/// list may only be deleted. Shutdown calls it.
VELL_API void flist_flushcache() noexcept;

// --- One entry at a time --------------------------------------------------------------------------------------

/// A folder that is being read. One thread at a time.
struct Directory {
    void* stream = nullptr;  ///< the library's; null while closed
    char path[1024] = {};    ///< with a "/" at its end
};

/// One name in a folder.
struct DirEntry {
    char name[1024] = {};
    int32_t is_directory = 0;  ///< 1 for a folder that is no bundle
    int64_t date = 0;          ///< modification time in seconds since 1970
};

/// Opens a folder for reading, for DirectoryClose. @return false, with `stream` null, when it cannot be opened or the
/// path is longer than 1022 bytes; errno is set.
[[nodiscard]] VELL_API bool DirectoryOpen(Directory* directory, const char* path) noexcept;

/// Reads the next name, "." and ".." included; symbolic links are followed. @return false at the end.
/// Kept: a name that cannot be examined leaves `entry` as it was and answers true, with a debug line "Error statting
/// file: %s (%s)". Begin with a fresh DirEntry, so that a first such name is empty.
[[nodiscard]] VELL_API bool DirectoryReadNextEntry(Directory* directory, DirEntry* entry) noexcept;

/// Closes a folder. A null or closed one is ignored.
VELL_API void DirectoryClose(Directory* directory) noexcept;

// --- Mount points ---------------------------------------------------------------------------------------------

/// The root's folders that the desktop does not hide, the oldest first, with date 0.
/// @return  the list, for flist_delete; null when there is none.
[[nodiscard]] VELL_API dir_list* flist_mountp(bool ignored) noexcept;

/// Appends the same to a list, whose path becomes "/". @return the number of folders in the list; 0 for null.
VELL_API int32_t flist_gen_mountp(dir_list* list, bool ignored) noexcept;

// --- Order ----------------------------------------------------------------------------------------------------

/// Compares two names in natural order: runs of digits count as numbers, so "frame2" comes before "frame10" and "a007"
/// equals "a7"; "A" to "Z" count as "a" to "z".
///
/// Names that both have an extension (from the last ".") which is not the same, byte for byte, compare as plain text
/// without regard to case. So this is no strict order: "a10.x" < "a1z.y" < "a2.x" < "a10.x". Sort with flist_sort, or
/// with an algorithm that stays in bounds then.
///
/// Bytes compare as signed 8-bit characters in the natural comparison, as unsigned ones in the plain one. A number
/// ends where the next digit would carry it beyond 32 bits; the rest of its digits is ignored.
/// @return  negative, 0 or positive.
[[nodiscard]] VELL_API int32_t file_namecmp(const char* a, const char* b) noexcept;

/// Comparisons for qsort and the like. The arguments point to array elements: char* for files (file_namecmp) and
/// folders (plain text without regard to case), _file_entry for dates (folders first, then the older; equal dates by
/// name).
[[nodiscard]] VELL_API int32_t file_cmp(const void* a, const void* b) noexcept;
[[nodiscard]] VELL_API int32_t dir_cmp(const void* a, const void* b) noexcept;
[[nodiscard]] VELL_API int32_t date_cmp(const void* a, const void* b) noexcept;

// --- Patterns -------------------------------------------------------------------------------------------------

/// True when the whole name matches the pattern. Bytes, not code points.
///
/// | pattern | matches                                                                                     |
/// |---------|---------------------------------------------------------------------------------------------|
/// | `*`     | any bytes, also none                                                                        |
/// | `?`     | one byte                                                                                    |
/// | `[a-fx]`| one byte of the class: single bytes, and ranges in either direction. There is no negation,  |
/// |         | `[]` matches nothing, and a class that is not closed ends with the pattern                   |
/// | `\x`    | the byte x itself; not inside a class. A pattern that ends in `\` matches nothing           |
/// | others  | themselves                                                                                  |
///
/// @param case_sensitive  false: "A" to "Z" count as "a" to "z", in the ends of ranges too.
/// The time is bounded by the length of the name times that of the pattern.
[[nodiscard]] VELL_API bool wildcard_match(const char* name, const char* pattern, bool case_sensitive) noexcept;

// --- Arrays ---------------------------------------------------------------------------------------------------

/// Writes the error line of alloc_ensure. The template calls it; hosts have no need to.
VELL_API void alloc_ensure_report_failure() noexcept;

/// Makes room in an array from malloc (or null with capacity 0) for `add` more elements.
///
/// A full array doubles; while that is not enough, it doubles again below 1024 elements and grows by 128 from there.
///
/// @param count     elements in use.
/// @param initial   the capacity of an array that has none yet.
/// @return  the free elements, at least `add`; 0, with the error line "ALLOC ENSURE: Not enough memory.." and nothing
///          changed, when memory is short.
template <class T>
int32_t alloc_ensure(T*& array, int32_t count, int32_t& capacity, int32_t add, int32_t initial) noexcept {
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved with byte copies");
    constexpr int64_t k_doubling_ends = 1024;
    constexpr int64_t k_step = 128;
    const int64_t needed = int64_t{count} + add;
    if (needed <= capacity) return capacity - count;
    int64_t grown = capacity > 0 ? int64_t{capacity} * 2 : initial > 0 ? initial : 1;
    while (grown < needed)
        grown = grown < k_doubling_ends ? grown * 2 : grown + k_step;
    void* moved =
        grown > INT32_MAX ? nullptr : std::realloc(static_cast<void*>(array), static_cast<size_t>(grown) * sizeof(T));
    if (moved == nullptr) {
        alloc_ensure_report_failure();
        return 0;
    }
    array = static_cast<T*>(moved);
    capacity = static_cast<int32_t>(grown);
    return capacity - count;
}
