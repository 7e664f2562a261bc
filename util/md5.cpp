// MD5 after RFC 1321. Whole blocks are taken straight from the caller's bytes.
//
// The speed limit is the chain from step to step through the value replaced last, b, so the round functions are
// written with as little as possible behind b.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>

#include "vellcore/hash_functions.h"

namespace vell {
namespace {

constexpr size_t k_block_bytes = 64;
constexpr size_t k_length_bytes = 8;  // of the message length at the end of the last block

uint32_t word_at(const unsigned char* bytes) noexcept {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
    return word;
}

void put_word(unsigned char* bytes, uint32_t word) noexcept {
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
    std::memcpy(bytes, &word, sizeof word);
}

// RFC 1321, 3.4: the sines, 2^32 * |sin(step + 1)|.
constexpr uint32_t k_sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int k_shifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

/// Number of the word that a step takes in.
constexpr size_t word_of(size_t step) noexcept {
    constexpr size_t k_factors[4] = {1, 5, 3, 7};
    constexpr size_t k_offsets[4] = {0, 1, 5, 0};
    return (k_factors[step / 16] * (step % 16) + k_offsets[step / 16]) % 16;
}

/// The round functions F, G, H and I of RFC 1321, 3.4. F is written with one operation behind b; the two halves of G
/// share no bit, so they are added and only one of them waits for b.
template <size_t Round>
[[gnu::always_inline]] inline uint32_t mix(uint32_t b, uint32_t c, uint32_t d) noexcept {
    if constexpr (Round == 0) return ((c ^ d) & b) ^ d;
    if constexpr (Round == 1) return (~d & c) + (d & b);
    if constexpr (Round == 2) return b ^ (c ^ d);
    return c ^ (b | ~d);
}

/// One step. The four values change places from step to step: the one that a step replaces is b of the next.
template <size_t Step>
[[gnu::always_inline]] inline void take_step(uint32_t (&value)[4], const uint32_t (&words)[16]) noexcept {
    constexpr size_t a = (64 - Step) % 4, b = (a + 1) % 4, c = (a + 2) % 4, d = (a + 3) % 4;
    const uint32_t sum = value[a] + words[word_of(Step)] + k_sines[Step] + mix<Step / 16>(value[b], value[c], value[d]);
    value[a] = std::rotl(sum, k_shifts[Step / 16][Step % 4]) + value[b];
}

template <size_t... Steps>
[[gnu::always_inline]] inline void take_steps(uint32_t (&value)[4], const uint32_t (&words)[16],
                                              std::index_sequence<Steps...>) noexcept {
    (take_step<Steps>(value, words), ...);
}

/// Takes `blocks` whole blocks into the chaining value.
void take_blocks(uint32_t (&chain)[4], const unsigned char* data, size_t blocks) noexcept {
    uint32_t value[4] = {chain[0], chain[1], chain[2], chain[3]};
    for (; blocks > 0; --blocks, data += k_block_bytes) {
        uint32_t words[16];
        for (size_t i = 0; i < 16; ++i)
            words[i] = word_at(data + 4 * i);
        const uint32_t before[4] = {value[0], value[1], value[2], value[3]};
        take_steps(value, words, std::make_index_sequence<64>());
        for (size_t i = 0; i < 4; ++i)
            value[i] += before[i];
    }
    for (size_t i = 0; i < 4; ++i)
        chain[i] = value[i];
}

size_t pending_bytes(const md5_state_s& state) noexcept {
    return state.count[0] / 8 % k_block_bytes;
}

void count_bits(md5_state_s& state, size_t bytes) noexcept {
    const uint64_t bits = (uint64_t{state.count[1]} << 32 | state.count[0]) + uint64_t{bytes} * 8;
    state.count[0] = static_cast<uint32_t>(bits);
    state.count[1] = static_cast<uint32_t>(bits >> 32);
}

void append(md5_state_s& state, const unsigned char* data, size_t bytes) noexcept {
    size_t pending = pending_bytes(state);
    count_bits(state, bytes);
    if (pending > 0) {
        const size_t taken = std::min(bytes, k_block_bytes - pending);
        std::memcpy(state.buf + pending, data, taken);
        data += taken;
        bytes -= taken;
        pending += taken;
        if (pending < k_block_bytes) return;
        take_blocks(state.abcd, state.buf, 1);
    }
    take_blocks(state.abcd, data, bytes / k_block_bytes);
    std::memcpy(state.buf, data + bytes / k_block_bytes * k_block_bytes, bytes % k_block_bytes);
}

}  // namespace
}  // namespace vell

void vl_md5_init(md5_state_s* state) noexcept {
    if (state == nullptr) return;
    *state = {{0, 0}, {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {}};
}

void vl_md5_append(md5_state_s* state, const unsigned char* data, int length) noexcept {
    if (state == nullptr || data == nullptr || length <= 0) return;
    vell::append(*state, data, static_cast<size_t>(length));
}

void vl_md5_finish(md5_state_s* state, unsigned char digest[16]) noexcept {
    if (state == nullptr || digest == nullptr) return;
    unsigned char length[vell::k_length_bytes];
    vell::put_word(length, state->count[0]);
    vell::put_word(length + 4, state->count[1]);
    // One bit, then zeros up to 8 bytes before the end of a block (RFC 1321, 3.1).
    constexpr unsigned char padding[vell::k_block_bytes] = {0x80};
    const size_t pending = vell::pending_bytes(*state);
    const size_t room = vell::k_block_bytes - vell::k_length_bytes;
    vell::append(*state, padding, pending < room ? room - pending : room + vell::k_block_bytes - pending);
    vell::append(*state, length, sizeof length);
    for (size_t i = 0; i < 4; ++i)
        vell::put_word(digest + 4 * i, state->abcd[i]);
}
