// GNU gettext manual, 10.3, "The Format of GNU MO Files": seven words, a table of (length, offset) for the messages and
// one for their translations, a hash table of message numbers from 1. All in the byte order of the first word.

#include "text/message_catalog.h"

#include <cstdint>
#include <cstring>

namespace vell {
namespace {

constexpr uint32_t k_magic = 0x950412DE;
constexpr uint64_t k_word_bytes = 4;
constexpr uint64_t k_header_bytes = 7 * k_word_bytes;

class CatalogReader {
public:
    explicit CatalogReader(std::string_view catalog) : catalog_(catalog) {}

    [[nodiscard]] bool read_order() {
        if (catalog_.size() < k_header_bytes) return false;
        is_swapped_ = word(0) != k_magic;
        return word(0) == k_magic;
    }
    [[nodiscard]] uint64_t word(uint64_t offset) const {
        uint32_t value = 0;
        memcpy(&value, catalog_.data() + offset, sizeof value);
        return is_swapped_ ? __builtin_bswap32(value) : value;
    }
    [[nodiscard]] bool has(uint64_t offset, uint64_t bytes) const {
        return offset <= catalog_.size() && bytes <= catalog_.size() - offset;
    }
    /// A table of lengths and offsets, with what they lead to.
    [[nodiscard]] bool has_texts(uint64_t table, uint64_t count) const {
        if (!has(table, count * 2 * k_word_bytes)) return false;
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t entry = table + i * 2 * k_word_bytes;
            const uint64_t length = word(entry), offset = word(entry + k_word_bytes);
            if (!has(offset, length + 1) || catalog_[offset + length] != '\0') return false;
        }
        return true;
    }
    [[nodiscard]] bool has_numbers(uint64_t table, uint64_t count, uint64_t largest) const {
        if (!has(table, count * k_word_bytes)) return false;
        for (uint64_t i = 0; i < count; ++i)
            if (word(table + i * k_word_bytes) > largest) return false;
        return true;
    }

private:
    std::string_view catalog_;
    bool is_swapped_ = false;
};

}  // namespace

bool is_sound_catalog(std::string_view catalog) noexcept {
    CatalogReader reader(catalog);
    if (!reader.read_order()) return false;
    const uint64_t count = reader.word(8), messages = reader.word(12), translations = reader.word(16);
    const uint64_t hash_size = reader.word(20), hash_table = reader.word(24);
    // The second hash of a table divides by its size less two.
    constexpr uint64_t k_smallest_hash_table = 3;
    const bool has_usable_hash = hash_size == 0 || hash_size >= k_smallest_hash_table;
    // The first message is the header, which is read without a look at the count.
    return count >= 1 && has_usable_hash && reader.has_texts(messages, count) &&
           reader.has_texts(translations, count) && reader.has_numbers(hash_table, hash_size, count);
}

}  // namespace vell
