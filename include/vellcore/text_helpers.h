#pragma once
// Small helpers: copies of strings, a linked list, the lines of a file, base64.
//
// All memory here comes from malloc and is freed with free by whoever receives it. Any thread may call anything; a list
// belongs to one thread at a time.

#include <cstddef>
#include <cstdint>

#include "export.h"

// --- Strings ----------------------------------------------------------------------------------------------------

/// Copies exactly `length` bytes, terminators among them included, and puts a terminator behind.
/// @return  the copy; null when memory is short, or for a null text.
[[nodiscard]] VELL_API char* vl_strdupn(const char* text, size_t length) noexcept;

/// Copies a string. @return  the copy; null when memory is short, or for a null text.
[[nodiscard]] VELL_API char* vl_strdup(const char* text) noexcept;

/// Copies `first` followed by `second`; null is an empty text. @return  null when memory is short.
[[nodiscard]] VELL_API char* vl_strdupcat(const char* first, const char* second) noexcept;

/// The length of a string, looked for in its first `limit` bytes only.
/// @return  bytes; `limit` when there is no terminator before it. 0 for null.
[[nodiscard]] VELL_API size_t vl_strnlen(const char* text, size_t limit) noexcept;

// --- A linked list ----------------------------------------------------------------------------------------------

/// A list is a pointer to its first node, null when it is empty. Calls that change it take that pointer's address.
struct LinkNode {
    LinkNode* next;  ///< null at the end
    void* link;      ///< the element
};
static_assert(sizeof(LinkNode) == 2 * sizeof(void*), "hosts know the layout");

/// Puts the caller's node in front, with `data`. @return  the node that was in front before, or null.
VELL_API LinkNode* vl_linklist_prepend_nlink(LinkNode** list, void* data, LinkNode* node) noexcept;

/// Puts a new node in front. @return  the node; null, with the list unchanged, when memory is short.
VELL_API LinkNode* vl_linklist_prepend(LinkNode** list, void* data) noexcept;

/// Turns the list round in place. @return  always null.
VELL_API LinkNode* vl_linklist_reverse(LinkNode** list) noexcept;

/// Frees every element and every node, both with free.
VELL_API void vl_linklist_freeN(LinkNode* list) noexcept;

/// Reads a text file as a list of its lines, in their order.
///
/// A line ends at a line feed, which is not part of it; a carriage return is. What follows the last line feed is a line
/// as well: a file that ends in one has an empty line at its end, and an empty file has one empty line.
///
/// @return  strings, for vl_linklist_freeN; null when the file cannot be read, is a directory, or memory is short.
[[nodiscard]] VELL_API LinkNode* vl_file_read_as_lines(const char* path) noexcept;

// --- Base64 (RFC 4648, 4) ---------------------------------------------------------------------------------------

/// Decodes base64.
///
/// The first "=" ends the text. Nothing is skipped: a byte outside the alphabet, a line break for instance, counts as
/// the value 0. The last two or three characters of a text may lack their padding; a single one gives nothing.
///
/// @param length    of `text`, bytes.
/// @param capacity  of `out`, bytes. What does not fit is dropped.
/// @return  bytes stored.
VELL_API size_t vl_base64_decode(const char* text, size_t length, void* out, size_t capacity) noexcept;

/// The same on all threads of the processing pool, each with its part of the text. An "=" in the middle of the text
/// ends only the part that it lies in.
///
/// @return  the length that the text decodes to when it is well formed, whatever was stored.
/// @thread  one at a time: it takes the whole pool. Without a pool the caller decodes alone.
VELL_API size_t vl_base64_decode_mt(const char* text, size_t length, void* out, size_t capacity) noexcept;
