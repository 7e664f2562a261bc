// Conversions: the first byte is the capacity, the rest a text, which is read as UTF-8, as UTF-16 and as UTF-32. What
// comes out of whole texts is what single steps over their characters make.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vellcore/unicode_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void require(bool is_true) {
    if (!is_true) std::abort();
}

/// A copy of exactly its size with a terminator of `unit` bytes.
std::unique_ptr<uint8_t[]> terminated(const uint8_t* text, size_t bytes, size_t unit) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes + unit]());
    if (bytes != 0) std::memcpy(copy.get(), text, bytes);
    return copy;
}

/// UTF-8 as a buffer of `capacity` gets it: `next` gives code points, the last of them 0.
template <class Next>
std::string utf8_of(Next next, size_t capacity) {
    std::string text;
    char sequence[4];
    for (int cp = next(); cp != 0; cp = next()) {
        const int length = vl_utf8_encode(cp, sequence, sizeof sequence);
        if (length == 0 || text.size() + static_cast<size_t>(length) > capacity) break;
        text.append(sequence, static_cast<size_t>(length));
    }
    return text.substr(0, capacity - 1).c_str();
}

void check_utf8(const char* text, size_t capacity) {
    std::vector<unsigned int> cps;
    std::vector<unsigned short> units;
    bool is_valid = true;
    for (const auto* at = reinterpret_cast<const uint8_t*>(text); *at != 0;) {
        int cp = 0;
        unsigned short pair[2];
        is_valid = is_valid && utf8_code_len(at) != 0;
        at += utf8_decode(at, &cp);
        cps.push_back(static_cast<unsigned int>(cp));
        units.insert(units.end(), pair, pair + vl_utf16_encode(cp, pair, 2));
    }
    require(vl_utf8_strlen(text) == cps.size());
    require(vl_utf8_is_valid(text) == (is_valid ? 1 : 0));

    const std::unique_ptr<unsigned int[]> utf32(new unsigned int[capacity]);
    vl_utf8_to_utf32(text, utf32.get(), capacity);
    cps.resize(cps.size() < capacity ? cps.size() + 1 : capacity);
    cps.back() = 0;
    require(std::memcmp(utf32.get(), cps.data(), cps.size() * sizeof cps[0]) == 0);

    const std::unique_ptr<unsigned short[]> utf16(new unsigned short[capacity]);
    vl_utf8_to_utf16(text, utf16.get(), capacity);
    const bool is_cut = units.size() >= capacity;
    units.resize(is_cut ? capacity : units.size() + 1);
    units.back() = 0;
    require(std::memcmp(utf16.get(), units.data(), (units.size() - 1) * sizeof units[0]) == 0);
    require(utf16[units.size() - 1] == 0 && utf16[capacity - 1] == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t capacity = size_t{data[0]} * 4 + 1;
    check_utf8(reinterpret_cast<const char*>(terminated(data + 1, size - 1, 1).get()), capacity);

    const std::unique_ptr<char[]> out(new char[capacity]);
    const auto utf16 = terminated(data + 1, (size - 1) / 2 * 2, 2);
    size_t pos = 0;
    const auto next_of_utf16 = [&] { return vl_utf16_get_code_point(utf16.get(), &pos); };
    require(utf8_of(next_of_utf16, capacity) == vl_utf16_to_utf8(utf16.get(), out.get(), capacity));

    const auto bytes = terminated(data + 1, (size - 1) / 4 * 4, 4);
    std::vector<unsigned int> utf32((size - 1) / 4 + 1);
    std::memcpy(utf32.data(), bytes.get(), utf32.size() * 4);
    // Half of the units are made code points, or hardly any text would have more than one.
    for (size_t i = 0; i < utf32.size(); i += 2)
        utf32[i] &= 0x1FFFFF;
    const unsigned int* at = utf32.data();
    const auto next_of_utf32 = [&] { return static_cast<int>(*at++); };
    require(utf8_of(next_of_utf32, capacity) == vl_utf32_to_utf8(utf32.data(), out.get(), capacity));
    return 0;
}
