// Copies of strings, the linked list, and files as lists of lines.

#include "vellcore/text_helpers.h"

#include <cstdlib>
#include <cstring>

#include "vellcore/file_io.h"

namespace vell {
namespace {

/// Puts the line that ends at `end` in front of the list.
bool prepend_line(LinkNode** list, const char* line, const char* end) noexcept {
    char* copy = vl_strdupn(line, static_cast<size_t>(end - line));
    if (copy != nullptr && vl_linklist_prepend(list, copy) != nullptr) return true;
    std::free(copy);
    return false;
}

/// The lines of a text, the last one first. False when memory is short.
bool split_lines(LinkNode** list, const char* text, size_t bytes) noexcept {
    const char* const end = text + bytes;
    for (;;) {
        const auto* line_feed = static_cast<const char*>(memchr(text, '\n', static_cast<size_t>(end - text)));
        if (!prepend_line(list, text, line_feed != nullptr ? line_feed : end)) return false;
        if (line_feed == nullptr) return true;
        text = line_feed + 1;
    }
}

}  // namespace
}  // namespace vell

char* vl_strdupn(const char* text, size_t length) noexcept {
    if (text == nullptr || length == SIZE_MAX) return nullptr;
    auto* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr) return nullptr;
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

char* vl_strdup(const char* text) noexcept {
    return text != nullptr ? vl_strdupn(text, strlen(text)) : nullptr;
}

char* vl_strdupcat(const char* first, const char* second) noexcept {
    const size_t first_length = first != nullptr ? strlen(first) : 0;
    const size_t second_length = second != nullptr ? strlen(second) : 0;
    auto* copy = static_cast<char*>(std::malloc(first_length + second_length + 1));
    if (copy == nullptr) return nullptr;
    if (first_length != 0) memcpy(copy, first, first_length);
    if (second_length != 0) memcpy(copy + first_length, second, second_length);
    copy[first_length + second_length] = '\0';
    return copy;
}

size_t vl_strnlen(const char* text, size_t limit) noexcept {
    return text != nullptr ? strnlen(text, limit) : 0;
}

LinkNode* vl_linklist_prepend_nlink(LinkNode** list, void* data, LinkNode* node) noexcept {
    if (list == nullptr || node == nullptr) return nullptr;
    LinkNode* const first = *list;
    *node = {first, data};
    *list = node;
    return first;
}

LinkNode* vl_linklist_prepend(LinkNode** list, void* data) noexcept {
    if (list == nullptr) return nullptr;
    auto* node = static_cast<LinkNode*>(std::malloc(sizeof(LinkNode)));
    if (node != nullptr) vl_linklist_prepend_nlink(list, data, node);
    return node;
}

LinkNode* vl_linklist_reverse(LinkNode** list) noexcept {
    if (list == nullptr) return nullptr;
    LinkNode* reversed = nullptr;
    while (LinkNode* node = *list) {
        *list = node->next;
        node->next = reversed;
        reversed = node;
    }
    *list = reversed;
    return nullptr;
}

void vl_linklist_freeN(LinkNode* list) noexcept {
    while (list != nullptr) {
        LinkNode* const next = list->next;
        std::free(list->link);
        std::free(list);
        list = next;
    }
}

LinkNode* vl_file_read_as_lines(const char* path) noexcept {
    mem_file* file = vl_open(path, "rb");
    if (file == nullptr) return nullptr;
    LinkNode* list = nullptr;
    const bool is_whole =
        vell::split_lines(&list, file->data != nullptr ? static_cast<const char*>(file->data) : "", file->size);
    vl_close(file);
    if (is_whole) {
        vl_linklist_reverse(&list);
        return list;
    }
    vl_linklist_freeN(list);
    return nullptr;
}
