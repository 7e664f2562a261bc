// Keys whose bytes compare as file_namecmp compares the names.
//
// A byte becomes its folded character with the sign bit turned over, so that signed order becomes that of unsigned
// bytes. A run of digits becomes a "0" and its number in 4 bytes, the highest first: against anything but a digit all
// digits compare alike. A zero ends the key, which is how the end of a name compares. No key is the beginning of
// another, so comparing the bytes up to the shorter key's length is enough.
//
// Two names with different extensions compare as plain text instead. Extensions of up to seven bytes are kept whole in
// a word, longer ones as a hash that leaves equality to be looked at.

#include "files/sort_keys.h"

#include <algorithm>
#include <cstring>

#include "files/plain_order.h"

namespace vell {
namespace {

constexpr unsigned char k_sign = 0x80;
constexpr size_t k_number_bytes = 5;
constexpr uint64_t k_no_extension = 0;
constexpr uint64_t k_long_extension = uint64_t{1} << 63U;

unsigned char* put_number(unsigned char* out, unsigned number) noexcept {
    *out++ = '0' ^ k_sign;
    for (unsigned shift = 32; shift > 0; shift -= 8)
        *out++ = static_cast<unsigned char>(number >> (shift - 8));
    return out;
}

unsigned char* put_key(unsigned char* out, const char* name) noexcept {
    while (*name != '\0') {
        if (is_digit(*name))
            out = put_number(out, take_number(name));
        else
            *out++ = folded(static_cast<unsigned char>(*name++)) ^ k_sign;
    }
    *out++ = k_sign;
    return out;
}

/// A "." counts as part of the extension, so that "a." has one and "a" has none.
uint64_t extension_word(const char* name) noexcept {
    const char* dot = strrchr(name, '.');
    if (dot == nullptr) return k_no_extension;
    uint64_t word = '.';
    size_t length = 0;
    for (const char* at = dot + 1; *at != '\0'; ++at, ++length)
        word = length < 6 ? word << 8U | static_cast<unsigned char>(*at)
                          : (word ^ static_cast<unsigned char>(*at)) * 0x100000001B3U;
    return length <= 6 ? word : word | k_long_extension;
}

bool have_different_extensions(const SortKey& a, const SortKey& b) noexcept {
    if (a.extension == k_no_extension || b.extension == k_no_extension) return false;
    if (a.extension != b.extension) return true;
    return (a.extension & k_long_extension) != 0 && strcmp(strrchr(a.name, '.'), strrchr(b.name, '.')) != 0;
}

/// The 8 bytes of a key from `at` on, zeros behind its end.
uint64_t head_of(const SortKey& key, uint32_t at) noexcept {
    uint64_t head = 0;
    for (uint32_t i = at; i < at + sizeof head; ++i)
        head = head << 8U | (i < key.key_bytes ? key.key[i] : 0);
    return head;
}

}  // namespace

bool SortKeys::make(const char* (*name_at)(const void* names, int32_t index), const void* names,
                    int32_t count) noexcept {
    if (!keys_.resize(count)) return false;
    size_t most_bytes = 0;
    for (int32_t i = 0; i < count; ++i) {
        const char* name = name_at(names, i);
        const size_t length = strlen(name);
        const auto digits = static_cast<size_t>(std::count_if(name, name + length, is_digit));
        most_bytes += length + digits * (k_number_bytes - 1) + 1;
        keys_[i].name = name;
        keys_[i].index = i;
    }
    if (most_bytes > INT32_MAX) {
        alloc_ensure_report_failure();
        return false;
    }
    if (!bytes_.resize(static_cast<int32_t>(most_bytes))) return false;
    unsigned char* out = bytes_.data();
    for (SortKey& key : keys_) {
        key.key = out;
        out = put_key(out, key.name);
        key.key_bytes = static_cast<uint32_t>(out - key.key);
        key.extension = extension_word(key.name);
    }
    share_heads();
    return true;
}

// The names of a sequence begin alike; the heads are taken from where the keys begin to differ.
void SortKeys::share_heads() noexcept {
    if (keys_.count() == 0) return;
    const SortKey& first = keys_[0];
    uint32_t shared = first.key_bytes;
    for (const SortKey& key : keys_) {
        const uint32_t limit = std::min(shared, key.key_bytes);
        shared = static_cast<uint32_t>(std::mismatch(first.key, first.key + limit, key.key).first - first.key);
    }
    for (SortKey& key : keys_)
        key.head = head_of(key, shared);
}

int file_order(const SortKey& a, const SortKey& b) noexcept {
    if (have_different_extensions(a, b)) return plain_order(a.name, b.name);
    if (a.head != b.head) return a.head < b.head ? -1 : 1;
    return memcmp(a.key, b.key, std::min(a.key_bytes, b.key_bytes));
}

}  // namespace vell
