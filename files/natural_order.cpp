// The order of names as people read them. sort_keys.cpp makes keys of the same order; change both together.

#include <cstring>

#include "files/plain_order.h"
#include "vellcore/directory_listing.h"

namespace vell {
namespace {

bool have_different_extensions(const char* a, const char* b) noexcept {
    const char* a_extension = strrchr(a, '.');
    const char* b_extension = strrchr(b, '.');
    return a_extension != nullptr && b_extension != nullptr && strcmp(a_extension, b_extension) != 0;
}

signed char signed_folded(char byte) noexcept {
    return static_cast<signed char>(folded(static_cast<unsigned char>(byte)));
}

// A name that has ended compares as if a zero followed, so the end needs no case of its own.
int natural_order(const char* a, const char* b) noexcept {
    while (*a != '\0' || *b != '\0') {
        if (is_digit(*a) && is_digit(*b)) {
            const unsigned a_number = take_number(a);
            const unsigned b_number = take_number(b);
            if (a_number != b_number) return a_number > b_number ? 1 : -1;
            continue;
        }
        const int difference = *a == '\0'   ? -static_cast<signed char>(*b)
                               : *b == '\0' ? static_cast<signed char>(*a)
                                            : signed_folded(*a) - signed_folded(*b);
        if (difference != 0) return difference;
        ++a;
        ++b;
    }
    return 0;
}

const char* name_in(const void* element) noexcept {
    return *static_cast<const char* const*>(element);
}

}  // namespace
}  // namespace vell

int32_t file_namecmp(const char* a, const char* b) noexcept {
    if (a == nullptr) a = "";
    if (b == nullptr) b = "";
    return vell::have_different_extensions(a, b) ? vell::plain_order(a, b) : vell::natural_order(a, b);
}

int32_t file_cmp(const void* a, const void* b) noexcept {
    return file_namecmp(vell::name_in(a), vell::name_in(b));
}

int32_t dir_cmp(const void* a, const void* b) noexcept {
    const char* a_name = vell::name_in(a);
    const char* b_name = vell::name_in(b);
    if (*a_name != '\0' && *b_name != '\0') return vell::plain_order(a_name, b_name);
    return static_cast<signed char>(*a_name) - static_cast<signed char>(*b_name);
}

int32_t date_cmp(const void* a, const void* b) noexcept {
    const auto* first = static_cast<const _file_entry*>(a);
    const auto* second = static_cast<const _file_entry*>(b);
    if (first->is_directory != second->is_directory) return first->is_directory != 0 ? -1 : 1;
    if (first->date != second->date) return first->date < second->date ? -1 : 1;
    return first->is_directory != 0 ? vell::plain_order(first->name, second->name)
                                    : file_namecmp(first->name, second->name);
}
