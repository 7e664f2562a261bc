// SHA-1 with the SHA extensions: one instruction takes four rounds (platform/CMakeLists.txt sets the options).

#include "platform/x86_64/sha1_blocks.h"

#include <immintrin.h>

#include <utility>

namespace vell {
namespace {

constexpr size_t k_block_bytes = 64;
constexpr size_t k_groups = 20;  // of four rounds

struct Rounds {
    __m128i abcd;      // chaining value, a in the highest place
    __m128i e;         // in the highest place: e before the first group, then what the last group began with
    __m128i words[4];  // the last sixteen words of the message schedule, first word highest
};

template <size_t Group>
[[gnu::always_inline]] inline void take_group(Rounds& rounds) {
    __m128i(&words)[4] = rounds.words;
    __m128i& current = words[Group % 4];
    // RFC 3174, 6.1 b: a word is the rotated exclusive or of those 3, 8, 14 and 16 places before it.
    if constexpr (Group >= 4) {
        const __m128i partly =
            _mm_xor_si128(_mm_sha1msg1_epu32(current, words[(Group + 1) % 4]), words[(Group + 2) % 4]);
        current = _mm_sha1msg2_epu32(partly, words[(Group + 3) % 4]);
    }
    const __m128i sum = Group == 0 ? _mm_add_epi32(rounds.e, current) : _mm_sha1nexte_epu32(rounds.e, current);
    rounds.e = rounds.abcd;
    rounds.abcd = _mm_sha1rnds4_epu32(rounds.abcd, sum, Group / 5);
}

template <size_t... Groups>
[[gnu::always_inline]] inline void take_groups(Rounds& rounds, std::index_sequence<Groups...>) {
    (take_group<Groups>(rounds), ...);
}

}  // namespace

void sha1_take_blocks_by_extension(uint32_t (&chain)[5], const unsigned char* data, size_t blocks) {
    const __m128i swapped = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    Rounds rounds;
    rounds.abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(chain)), 0x1B);
    rounds.e = _mm_set_epi32(static_cast<int>(chain[4]), 0, 0, 0);
    for (; blocks > 0; --blocks, data += k_block_bytes) {
        const __m128i abcd_before = rounds.abcd, e_before = rounds.e;
        for (size_t i = 0; i < 4; ++i)
            rounds.words[i] =
                _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * i)), swapped);
        take_groups(rounds, std::make_index_sequence<k_groups>());
        rounds.abcd = _mm_add_epi32(rounds.abcd, abcd_before);
        rounds.e = _mm_sha1nexte_epu32(rounds.e, e_before);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(chain), _mm_shuffle_epi32(rounds.abcd, 0x1B));
    chain[4] = static_cast<uint32_t>(_mm_extract_epi32(rounds.e, 3));
}

}  // namespace vell
