// Base64 after RFC 4648, 4, forgiving as hosts expect it: see text_helpers.h. Runs of the alphabet's characters are
// decoded in vectors; the walk over groups of four takes over where they stop, and hands back.

#include "text/base64.h"

#include <algorithm>
#include <array>

#include "vellcore/processing_pool.h"
#include "vellcore/text_helpers.h"

namespace vell {
namespace {

constexpr std::array<uint8_t, 256> make_values() {
    std::array<uint8_t, 256> values{};
    constexpr char k_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (uint8_t i = 0; i < 64; ++i)
        values[static_cast<uint8_t>(k_alphabet[i])] = i;
    return values;
}
constexpr std::array<uint8_t, 256> k_values = make_values();

/// Stores the first `count` bytes of a group of up to four characters, as far as there is room.
void store_group(uint32_t group, size_t count, uint8_t* out, size_t capacity, size_t& stored) noexcept {
    for (size_t i = 0; i < count && stored < capacity; ++i)
        out[stored++] = static_cast<uint8_t>(group >> (16 - 8 * i));
}

size_t decode(const char* text, size_t length, uint8_t* out, size_t capacity) noexcept {
    constexpr size_t k_stretch = 64;  // characters that are walked over before vectors are tried again
    size_t stored = 0;
    for (size_t at = 0; at < length;) {
        const Base64Progress run = decode_base64_vectors(text + at, length - at, out + stored, capacity - stored);
        at += run.characters;
        stored += run.bytes;
        for (const size_t end = std::min(length, at + k_stretch); at < end;) {
            uint32_t group = 0;
            size_t characters = 0;
            for (; characters < 4 && at < length && text[at] != '='; ++characters)
                group |= uint32_t{k_values[static_cast<uint8_t>(text[at++])]} << (18 - 6 * characters);
            if (characters > 1) store_group(group, characters - 1, out, capacity, stored);
            if (characters < 4) return stored;
        }
    }
    return stored;
}

/// The parts of one text, by the share of the pool that decodes them.
struct Parts {
    const char* text;
    size_t length;
    uint8_t* out;
    size_t capacity;

    void decode_share(size_t share, size_t shares) const noexcept {
        const size_t chunk = length / shares;
        const bool is_last = share + 1 == shares;
        const size_t begin = chunk * share / 4 * 4;
        const size_t end = is_last ? length : chunk * (share + 1) / 4 * 4;
        const size_t out_begin = std::min(begin / 4 * 3, capacity);
        const size_t out_end = is_last ? capacity : std::min(end / 4 * 3, capacity);
        decode(text + begin, end - begin, out + out_begin, out_end - out_begin);
    }
};

}  // namespace
}  // namespace vell

size_t vl_base64_decode(const char* text, size_t length, void* out, size_t capacity) noexcept {
    if (text == nullptr || out == nullptr) return 0;
    return vell::decode(text, length, static_cast<uint8_t*>(out), capacity);
}

size_t vl_base64_decode_mt(const char* text, size_t length, void* out, size_t capacity) noexcept {
    if (text == nullptr) return 0;
    vell::Parts parts{text, length, static_cast<uint8_t*>(out), out != nullptr ? capacity : 0};
    smp_exec(
        [](void* argument, void*, void*, void*, void*, void*) {
            const auto shares = static_cast<size_t>(std::max(smp_numprocs(), 1));
            static_cast<const vell::Parts*>(argument)->decode_share(static_cast<size_t>(smp_id()), shares);
        },
        &parts);
    while (length > 0 && text[length - 1] == '=')
        --length;
    return length / 4 * 3 + (length % 4 != 0 ? length % 4 - 1 : 0);
}
