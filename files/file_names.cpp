// Operations on names; the file system is not asked.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "files/plain_order.h"
#include "vellcore/file_operations.h"

namespace vell {
namespace {

constexpr char k_illegal_chars[] = "?~<>:\"/\\|";
constexpr unsigned char k_last_replaced_code = 30;  // Kept: 31 is a control character too, and stays.

bool is_legal(char byte) noexcept {
    return static_cast<unsigned char>(byte) > k_last_replaced_code && strchr(k_illegal_chars, byte) == nullptr;
}

/// A suffix like "(12)" at a name's end.
struct Suffix {
    char* start;  ///< its opening bracket; the name's end when there is no suffix that can be counted up
    int number;   ///< 0 without one, and when no number stands in the brackets
};

Suffix find_suffix(char* name, char opening, char closing) noexcept {
    char* end = name + strlen(name);
    char* bracket = end > name && end[-1] == closing ? strrchr(name, opening) : nullptr;
    if (bracket == nullptr) return {end, 0};
    const long number = std::strtol(bracket + 1, nullptr, 10);
    const bool can_be_counted_up = number >= INT_MIN && number < INT_MAX;
    return can_be_counted_up ? Suffix{bracket, static_cast<int>(number)} : Suffix{end, 0};
}

}  // namespace
}  // namespace vell

const char* file_extension(const char* path, const char* ext) noexcept {
    if (path == nullptr || ext == nullptr) return nullptr;
    const char* slash = strrchr(path, '/');
    const char* name = slash != nullptr ? slash + 1 : path;
    const size_t name_length = strlen(name);
    const size_t ext_length = strlen(ext);
    if (ext_length > name_length) return nullptr;
    const char* end = name + name_length - ext_length;
    return vell::plain_order(end, ext) == 0 ? end : nullptr;
}

int32_t vl_copy_valid_filename(char* dest, const char* source, int32_t size) noexcept {
    if (dest == nullptr || source == nullptr || size < 0) return 0;
    int32_t taken = 0;
    for (; source[taken] != '\0' && (size == 0 || taken < size); ++taken)
        if (size == 0 || taken < size - 1) dest[taken] = vell::is_legal(source[taken]) ? source[taken] : '_';
    dest[size != 0 && taken == size ? size - 1 : taken] = '\0';
    return taken;
}

bool vl_increment_suffix(char* name, bool square) noexcept {
    if (name == nullptr) return false;
    const char opening = square ? '[' : '(';
    const char closing = square ? ']' : ')';
    const vell::Suffix suffix = vell::find_suffix(name, opening, closing);
    std::sprintf(suffix.start, "%c%d%c", opening, suffix.number + 1, closing);
    return true;
}
