// SHA-1 after RFC 3174. Whole blocks are taken straight from the caller's bytes, by the processor's own instructions
// where it has them.

#include "util/sha1.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <utility>

#include "vellcore/hash_functions.h"

namespace vell {
namespace {

constexpr size_t k_block_bytes = 64;
constexpr size_t k_length_bytes = 8;  // of the message length at the end of the last block

uint32_t word_at(const unsigned char* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

/// Word `Step` of the message schedule, kept in a ring of 16 (RFC 3174, 6.2).
template <size_t Step>
[[gnu::always_inline]] inline uint32_t next_word(uint32_t (&words)[16]) {
    if constexpr (Step >= 16) {
        words[Step % 16] =
            std::rotl(words[(Step + 13) % 16] ^ words[(Step + 8) % 16] ^ words[(Step + 2) % 16] ^ words[Step % 16], 1);
    }
    return words[Step % 16];
}

/// The functions and constants of RFC 3174, 5. The halves of the third share no bit, so they are added.
template <size_t Round>
[[gnu::always_inline]] inline uint32_t mix(uint32_t b, uint32_t c, uint32_t d) {
    if constexpr (Round == 0) return (((c ^ d) & b) ^ d) + 0x5A827999;
    if constexpr (Round == 1) return (b ^ c ^ d) + 0x6ED9EBA1;
    if constexpr (Round == 2) return (b & c) + (d & (b ^ c)) + 0x8F1BBCDC;
    return (b ^ c ^ d) + 0xCA62C1D6;
}

/// One step. The five values change places from step to step instead of being moved.
template <size_t Step>
[[gnu::always_inline]] inline void take_step(uint32_t (&value)[5], uint32_t (&words)[16]) {
    constexpr size_t a = (80 - Step) % 5, b = (a + 1) % 5, c = (a + 2) % 5, d = (a + 3) % 5, e = (a + 4) % 5;
    value[e] += std::rotl(value[a], 5) + mix<Step / 20>(value[b], value[c], value[d]) + next_word<Step>(words);
    value[b] = std::rotl(value[b], 30);
}

template <size_t... Steps>
[[gnu::always_inline]] inline void take_steps(uint32_t (&value)[5], uint32_t (&words)[16],
                                              std::index_sequence<Steps...>) {
    (take_step<Steps>(value, words), ...);
}

/// The block function of this processor, found by the first call that asks.
Sha1TakeBlocks chosen_function() {
    static constinit std::atomic<Sha1TakeBlocks> chosen{nullptr};
    Sha1TakeBlocks function = chosen.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = sha1_by_instructions();
        if (function == nullptr) function = sha1_take_blocks_plainly;
        chosen.store(function, std::memory_order_relaxed);
    }
    return function;
}

/// Counts the message's bits. @return  false when there are more than 64 bits can count.
bool count_bits(SHA1Context& context, size_t bytes) {
    const uint64_t before = uint64_t{context.Length_High} << 32 | context.Length_Low;
    const uint64_t bits = before + uint64_t{bytes} * 8;
    context.Length_Low = static_cast<uint32_t>(bits);
    context.Length_High = static_cast<uint32_t>(bits >> 32);
    return bits >= before;
}

void append(SHA1Context& context, const unsigned char* data, size_t bytes) {
    const Sha1TakeBlocks take_blocks = chosen_function();
    auto pending = static_cast<size_t>(context.Message_Block_Index) % k_block_bytes;
    context.Message_Block_Index = static_cast<int>((pending + bytes) % k_block_bytes);
    if (pending > 0) {
        const size_t taken = std::min(bytes, k_block_bytes - pending);
        std::memcpy(context.Message_Block + pending, data, taken);
        data += taken;
        bytes -= taken;
        if (pending + taken < k_block_bytes) return;
        take_blocks(context.Intermediate_Hash, context.Message_Block, 1);
    }
    if (bytes >= k_block_bytes) take_blocks(context.Intermediate_Hash, data, bytes / k_block_bytes);
    std::memcpy(context.Message_Block, data + bytes / k_block_bytes * k_block_bytes, bytes % k_block_bytes);
}

/// One bit, then zeros up to 8 bytes before the end of a block, then the length (RFC 3174, 4).
void pad(SHA1Context& context) {
    constexpr unsigned char padding[k_block_bytes] = {0x80};
    unsigned char length[k_length_bytes];
    const uint32_t words[] = {context.Length_High, context.Length_Low};
    for (size_t i = 0; i < k_length_bytes; ++i)
        length[i] = static_cast<unsigned char>(words[i / 4] >> (24 - 8 * (i % 4)));
    const size_t room = k_block_bytes - k_length_bytes;
    const auto pending = static_cast<size_t>(context.Message_Block_Index) % k_block_bytes;
    append(context, padding, pending < room ? room - pending : room + k_block_bytes - pending);
    append(context, length, sizeof length);
}

}  // namespace

void sha1_take_blocks_plainly(uint32_t (&chain)[5], const unsigned char* data, size_t blocks) {
    for (; blocks > 0; --blocks, data += k_block_bytes) {
        uint32_t words[16];
        for (size_t i = 0; i < 16; ++i)
            words[i] = word_at(data + 4 * i);
        uint32_t value[5];
        std::memcpy(value, chain, sizeof value);
        take_steps(value, words, std::make_index_sequence<80>());
        for (size_t i = 0; i < 5; ++i)
            chain[i] += value[i];
    }
}

}  // namespace vell

void vl_SHA1Reset(SHA1Context* context) noexcept {
    if (context == nullptr) return;
    *context = {{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0}, 0, 0, {}, 0, 0, 0};
}

void vl_SHA1Input(SHA1Context* context, const unsigned char* data, unsigned int length) noexcept {
    if (context == nullptr || data == nullptr || length == 0) return;
    if (context->Computed != 0 || context->Corrupted != 0 || !vell::count_bits(*context, length)) {
        context->Corrupted = 1;
        return;
    }
    vell::append(*context, data, length);
}

int vl_SHA1Result(SHA1Context* context) noexcept {
    if (context == nullptr || context->Corrupted != 0) return 0;
    if (context->Computed == 0) {
        vell::pad(*context);
        context->Computed = 1;
    }
    return 1;
}
