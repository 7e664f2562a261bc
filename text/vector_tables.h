// Tables that tell how bytes are moved within a vector of 16: what lies at each place comes from the place named there,
// and is 0 for 0x80.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vell {

struct alignas(16) ByteOrder {
    std::array<uint8_t, 16> from;
};

/// From place 16 - n on: the last n bytes go to the front, and zeros behind them.
inline constexpr uint8_t k_last_bytes[32] = {0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,
                                             11,   12,   13,   14,   15,   0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                             0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

/// By the lengths of four characters, less 1, in two bits each: lines up the bytes of their UTF-8, which lie in 32 bits
/// for each, the last byte lowest.
constexpr std::array<ByteOrder, 256> make_sequence_orders() {
    std::array<ByteOrder, 256> orders{};
    for (unsigned lengths = 0; lengths < 256; ++lengths) {
        orders[lengths].from.fill(0x80);
        unsigned stored = 0;
        for (unsigned character = 0; character < 4; ++character)
            for (unsigned left = (lengths >> 2 * character & 3) + 1; left-- > 0;)
                orders[lengths].from[stored++] = static_cast<uint8_t>(4 * character + left);
    }
    return orders;
}
inline constexpr std::array<ByteOrder, 256> k_sequence_orders = make_sequence_orders();

/// By which of eight characters take two bytes, the first in the lowest bit: lines up their bytes, which lie in 16 bits
/// for each, the first byte lowest.
constexpr std::array<ByteOrder, 256> make_pair_orders() {
    std::array<ByteOrder, 256> orders{};
    for (unsigned twos = 0; twos < 256; ++twos) {
        orders[twos].from.fill(0x80);
        unsigned stored = 0;
        for (unsigned character = 0; character < 8; ++character) {
            orders[twos].from[stored++] = static_cast<uint8_t>(2 * character);
            if ((twos >> character & 1) != 0) orders[twos].from[stored++] = static_cast<uint8_t>(2 * character + 1);
        }
    }
    return orders;
}
inline constexpr std::array<ByteOrder, 256> k_pair_orders = make_pair_orders();

/// By a set of lanes, the first in the lowest bit: brings those of the set to the front, and zeros behind them.
template <size_t LaneBytes>
constexpr auto make_squeezing_orders() {
    constexpr unsigned k_lanes = 16 / LaneBytes;
    std::array<ByteOrder, size_t{1} << k_lanes> orders{};
    for (unsigned kept = 0; kept < orders.size(); ++kept) {
        orders[kept].from.fill(0x80);
        unsigned stored = 0;
        for (unsigned byte = 0; byte < 16; ++byte)
            if ((kept >> byte / LaneBytes & 1) != 0) orders[kept].from[stored++] = static_cast<uint8_t>(byte);
    }
    return orders;
}
inline constexpr auto k_squeezed_units = make_squeezing_orders<2>();
inline constexpr auto k_squeezed_words = make_squeezing_orders<4>();

}  // namespace vell
