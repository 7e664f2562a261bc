// UTF-8 and UTF-16 the long way round, straight from the tables of forms: what the library is compared with.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace vell::testing {

struct Form {
    unsigned mark, mark_bits;  // of the lead byte
    unsigned length;
    unsigned first, last;  // code points
};
inline constexpr Form k_forms[] = {
    {0x00, 1, 1, 0, 0x7F}, {0x06, 3, 2, 0x80, 0x7FF}, {0x0E, 4, 3, 0x800, 0xFFFF}, {0x1E, 5, 4, 0x10000, 0x10FFFF}};

struct ModelCharacter {
    int cp;
    unsigned length;
    bool is_valid;
};

/// The character at the start of `bytes`, which end in a terminator.
inline ModelCharacter model_decode(const unsigned char* bytes) {
    for (const Form& form : k_forms) {
        const unsigned lead = bytes[0];
        if (lead >> (8 - form.mark_bits) != form.mark) continue;
        unsigned cp = lead % (1u << (8 - form.mark_bits));
        unsigned taken = 1;
        for (; taken < form.length && bytes[taken] / 64 == 2; ++taken)
            cp = cp * 64 + bytes[taken] % 64;
        if (taken == form.length && cp >= form.first && cp <= form.last) return {static_cast<int>(cp), taken, true};
    }
    return {bytes[0], 1, false};
}

struct ModelText {
    std::vector<int> cps;           // without the terminator
    std::vector<unsigned> lengths;  // of each, bytes
    bool is_valid = true;
    size_t valid_bytes = 0;  // before the first invalid character
};

inline ModelText model_read(const std::string& text) {
    ModelText result;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    for (size_t at = 0; bytes[at] != 0;) {
        const ModelCharacter next = model_decode(bytes + at);
        result.cps.push_back(next.cp);
        result.lengths.push_back(next.length);
        result.is_valid = result.is_valid && next.is_valid;
        at += next.length;
        if (result.is_valid) result.valid_bytes = at;
    }
    return result;
}

/// Any non-negative code point up to 0x1FFFFF.
inline std::string model_utf8(int cp) {
    const auto value = static_cast<unsigned>(cp);
    const unsigned length = value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
    std::string bytes;
    for (unsigned i = 1, rest = value; i < length; ++i, rest /= 64)
        bytes.insert(bytes.begin(), static_cast<char>(0x80 + rest % 64));
    const unsigned lead = value >> 6 * (length - 1);
    bytes.insert(bytes.begin(), static_cast<char>(length == 1 ? lead : (0xF0u << (4 - length)) % 256 + lead));
    return bytes;
}

inline std::vector<uint16_t> model_utf16(int cp) {
    if (cp < 0x10000) return {static_cast<uint16_t>(cp)};
    return {static_cast<uint16_t>(0xD800 + cp / 1024), static_cast<uint16_t>(0xDC00 + cp % 1024)};
}

/// How the texts are made up that conversions are tried with.
enum class Script { Ascii, Latin, Cjk, Emoji, Mixed, Damaged, Noise };
inline constexpr Script k_scripts[] = {Script::Ascii, Script::Latin,   Script::Cjk,  Script::Emoji,
                                       Script::Mixed, Script::Damaged, Script::Noise};

inline std::string random_character(std::mt19937& random, Script script) {
    const auto between = [&](int first, int last) { return std::uniform_int_distribution(first, last)(random); };
    const int dice = between(0, 99);
    switch (script) {
        case Script::Ascii:
            return model_utf8(between(1, 0x7F));
        case Script::Latin:
            return model_utf8(dice < 80 ? between(0x20, 0x7E) : between(0xA0, 0x7FF));
        case Script::Cjk:
            return model_utf8(dice < 90 ? between(0x3040, 0x9FFF) : between(0x20, 0x7E));
        case Script::Emoji:
            return model_utf8(dice < 80 ? between(0x1F300, 0x1F9FF) : between(0x20, 0x7E));
        case Script::Mixed: {
            const Form& form = k_forms[random() % 4];
            return model_utf8(between(static_cast<int>(form.first != 0 ? form.first : 1), static_cast<int>(form.last)));
        }
        case Script::Damaged: {
            std::string bytes = random_character(random, Script::Mixed);
            if (dice < 4) bytes.pop_back();
            if (dice >= 96) bytes[0] = static_cast<char>(between(1, 255));
            return bytes;
        }
        case Script::Noise:
            break;
    }
    return {static_cast<char>(between(1, 255))};
}

/// Of at least `bytes` bytes, or a few more.
inline std::string random_text(std::mt19937& random, Script script, size_t bytes) {
    std::string text;
    while (text.size() < bytes)
        text += random_character(random, script);
    return text;
}

}  // namespace vell::testing
