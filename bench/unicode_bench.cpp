// Length, validity and conversions of 64 bytes, 1 MiB and (ASCII) 64 MiB of four kinds of text, beside ICU, GLib and
// iconv. A copy of the same bytes stands beside the ASCII texts for the rate of the memory.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <iconv.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "vellcore/unicode_text.h"

namespace {

struct Script {
    const char* name;
    int first, last;        // code points
    unsigned ascii_in_ten;  // characters out of ten that are ASCII instead
};
constexpr Script k_scripts[] = {
    {"ascii", 0x20, 0x7E, 0}, {"latin", 0xC0, 0x17F, 8}, {"cjk", 0x4E00, 0x9FFF, 1}, {"emoji", 0x1F300, 0x1F6FF, 2}};

/// One text in all its forms. The UTF-16 is for the peers, whose pairs differ from ours.
struct Text {
    Text(const Script& script, size_t bytes, unsigned seed) {
        std::mt19937 random(seed);
        char buffer[4];
        for (;;) {
            const bool is_ascii = random() % 10 < script.ascii_in_ten;
            const int first = is_ascii ? 0x20 : script.first;
            const int last = is_ascii ? 0x7E : script.last;
            const int cp = first + static_cast<int>(random() % static_cast<unsigned>(last - first + 1));
            const int length = vl_utf8_encode(cp, buffer, sizeof buffer);
            if (utf8.size() + static_cast<size_t>(length) > bytes) break;
            utf8.append(buffer, static_cast<size_t>(length));
            ++characters;
        }
        own_utf16.resize(utf8.size() + 1);
        vl_utf8_to_utf16(utf8.c_str(), own_utf16.data(), own_utf16.size());
        utf32.resize(utf8.size() + 1);
        vl_utf8_to_utf32(utf8.c_str(), utf32.data(), utf32.size());
        utf16.resize(utf8.size() + 1);
        int32_t units = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(utf16.data(), static_cast<int32_t>(utf16.size()), &units, utf8.data(),
                      static_cast<int32_t>(utf8.size()), &status);
        utf16_units = static_cast<size_t>(units);
        out.resize(4 * utf8.size() + 256);
    }

    char* out_bytes() { return out.data(); }
    template <class Unit>
    Unit* out_units() {
        return reinterpret_cast<Unit*>(out.data());
    }

    std::string utf8;
    std::vector<unsigned short> own_utf16;
    std::vector<UChar> utf16;
    std::vector<unsigned int> utf32;
    std::vector<char> out;
    size_t utf16_units = 0, characters = 0;
};

/// One conversion by iconv into the text's output. @return  bytes made.
size_t convert(iconv_t converter, const void* in, size_t bytes, Text& text) {
    char* from = const_cast<char*>(static_cast<const char*>(in));
    char* to = text.out_bytes();
    size_t left = text.out.size();
    iconv(converter, &from, &bytes, &to, &left);
    return text.out.size() - left;
}

template <const char* To, const char* From>
iconv_t converter() {
    static const iconv_t opened = iconv_open(To, From);
    return opened;
}
constexpr char k_utf8[] = "UTF-8", k_utf16[] = "UTF-16LE", k_utf32[] = "UTF-32LE";

/// What is measured; the result is the same for all peers and is compared.
using Operation = size_t (*)(Text&);

size_t characters_icu(Text& text) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.utf8.c_str());
    size_t count = 0;
    for (size_t at = 0; s[at] != 0; ++count) {
        UChar32 cp = 0;
        U8_NEXT(s, at, SIZE_MAX, cp);
        benchmark::DoNotOptimize(cp);
    }
    return count;
}

size_t is_valid_icu(Text& text) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.utf8.c_str());
    for (size_t at = 0; s[at] != 0;) {
        UChar32 cp = 0;
        U8_NEXT(s, at, SIZE_MAX, cp);
        if (cp < 0) return 0;
    }
    return 1;
}

size_t to_utf16_icu(Text& text) {
    int32_t units = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(text.out_units<UChar>(), static_cast<int32_t>(text.out.size() / 2), &units, text.utf8.c_str(), -1,
                  &status);
    return static_cast<size_t>(units);
}

size_t from_utf16_icu(Text& text) {
    int32_t bytes = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(text.out_bytes(), static_cast<int32_t>(text.out.size()), &bytes, text.utf16.data(), -1, &status);
    return static_cast<size_t>(bytes);
}

size_t to_utf32_icu(Text& text) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.utf8.c_str());
    auto* out = text.out_units<UChar32>();
    size_t count = 0;
    for (size_t at = 0; s[at] != 0; ++count)
        U8_NEXT(s, at, SIZE_MAX, out[count]);
    return count;
}

size_t from_utf32_icu(Text& text) {
    auto* out = text.out_units<uint8_t>();
    size_t at = 0;
    for (const unsigned int* cp = text.utf32.data(); *cp != 0; ++cp)
        U8_APPEND_UNSAFE(out, at, *cp);
    return at;
}

size_t freed(void* made, glong elements) {
    benchmark::DoNotOptimize(made);
    g_free(made);
    return static_cast<size_t>(elements);
}

size_t to_utf16_glib(Text& text) {
    glong units = 0;
    gunichar2* made = g_utf8_to_utf16(text.utf8.c_str(), -1, nullptr, &units, nullptr);
    return freed(made, units);
}

size_t from_utf16_glib(Text& text) {
    glong bytes = 0;
    char* made = g_utf16_to_utf8(reinterpret_cast<const gunichar2*>(text.utf16.data()), -1, nullptr, &bytes, nullptr);
    return freed(made, bytes);
}

size_t to_utf32_glib(Text& text) {
    glong units = 0;
    gunichar* made = g_utf8_to_ucs4(text.utf8.c_str(), -1, nullptr, &units, nullptr);
    return freed(made, units);
}

size_t from_utf32_glib(Text& text) {
    glong bytes = 0;
    char* made = g_ucs4_to_utf8(text.utf32.data(), -1, nullptr, &bytes, nullptr);
    return freed(made, bytes);
}

struct Row {
    const char* group;
    const char* who;
    Operation operation;
    size_t (*expected)(const Text&);
};

size_t length_of(const Text& text) {
    return text.characters;
}
size_t one(const Text&) {
    return 1;
}
size_t units_of(const Text& text) {
    return text.utf16_units;
}
size_t bytes_of(const Text& text) {
    return text.utf8.size();
}
/// Of ours only the last element tells that it worked; looking for the end would be measured.
size_t was_made(const Text&) {
    return 0;
}

const Row k_rows[] = {
    {"utf8_length", "vellcore", [](Text& text) { return vl_utf8_strlen(text.utf8.c_str()); }, length_of},
    {"utf8_length", "icu", characters_icu, length_of},
    {"utf8_length", "glib", [](Text& text) { return static_cast<size_t>(g_utf8_strlen(text.utf8.c_str(), -1)); },
     length_of},
    {"utf8_valid", "vellcore", [](Text& text) { return static_cast<size_t>(vl_utf8_is_valid(text.utf8.c_str())); },
     one},
    {"utf8_valid", "icu", is_valid_icu, one},
    {"utf8_valid", "glib",
     [](Text& text) { return static_cast<size_t>(g_utf8_validate(text.utf8.c_str(), -1, nullptr)); }, one},
    {"utf8_to_utf16", "vellcore",
     [](Text& text) {
         const size_t capacity = text.out.size() / 2;
         return size_t{vl_utf8_to_utf16(text.utf8.c_str(), text.out_units<unsigned short>(), capacity)[capacity - 1]};
     },
     was_made},
    {"utf8_to_utf16", "icu", to_utf16_icu, units_of},
    {"utf8_to_utf16", "glib", to_utf16_glib, units_of},
    {"utf8_to_utf16", "iconv",
     [](Text& text) { return convert(converter<k_utf16, k_utf8>(), text.utf8.data(), text.utf8.size(), text) / 2; },
     units_of},
    {"utf8_to_utf32", "vellcore",
     [](Text& text) {
         const size_t capacity = text.out.size() / 4;
         return size_t{vl_utf8_to_utf32(text.utf8.c_str(), text.out_units<unsigned int>(), capacity)[capacity - 1]};
     },
     was_made},
    {"utf8_to_utf32", "icu", to_utf32_icu, length_of},
    {"utf8_to_utf32", "glib", to_utf32_glib, length_of},
    {"utf8_to_utf32", "iconv",
     [](Text& text) { return convert(converter<k_utf32, k_utf8>(), text.utf8.data(), text.utf8.size(), text) / 4; },
     length_of},
    {"utf16_to_utf8", "vellcore",
     [](Text& text) {
         const char* out = vl_utf16_to_utf8(text.own_utf16.data(), text.out_bytes(), text.out.size());
         return size_t{static_cast<unsigned char>(out[text.out.size() - 1])};
     },
     was_made},
    {"utf16_to_utf8", "icu", from_utf16_icu, bytes_of},
    {"utf16_to_utf8", "glib", from_utf16_glib, bytes_of},
    {"utf16_to_utf8", "iconv",
     [](Text& text) { return convert(converter<k_utf8, k_utf16>(), text.utf16.data(), 2 * text.utf16_units, text); },
     bytes_of},
    {"utf32_to_utf8", "vellcore",
     [](Text& text) {
         const char* out = vl_utf32_to_utf8(text.utf32.data(), text.out_bytes(), text.out.size());
         return size_t{static_cast<unsigned char>(out[text.out.size() - 1])};
     },
     was_made},
    {"utf32_to_utf8", "icu", from_utf32_icu, bytes_of},
    {"utf32_to_utf8", "glib", from_utf32_glib, bytes_of},
    {"utf32_to_utf8", "iconv",
     [](Text& text) { return convert(converter<k_utf8, k_utf32>(), text.utf32.data(), 4 * text.characters, text); },
     bytes_of},
    {"utf8_length", "memcpy",
     [](Text& text) {
         memcpy(text.out_bytes(), text.utf8.data(), text.utf8.size());
         benchmark::ClobberMemory();
         return size_t{0};
     },
     was_made},
};

/// Short texts take turns: no processor learns the branches of one by heart.
void measure(benchmark::State& state, const Row& row, const Script& script, size_t bytes) {
    constexpr unsigned k_short_texts = 128;
    std::vector<Text> texts;
    for (unsigned seed = 0; seed < (bytes < 1024 ? k_short_texts : 1); ++seed)
        texts.emplace_back(script, bytes, seed);
    size_t turn = 0;
    int64_t walked = 0;
    for (auto _ : state) {
        Text& text = texts[turn++ % texts.size()];
        if (row.operation(text) != row.expected(text)) state.SkipWithError("wrong result");
        benchmark::DoNotOptimize(text.out.data());
        benchmark::ClobberMemory();
        walked += static_cast<int64_t>(text.utf8.size());
    }
    state.SetBytesProcessed(walked);
}

/// Names are group/who/script/bytes.
const bool k_is_registered = [] {
    for (const Row& row : k_rows)
        for (const Script& script : k_scripts)
            for (const size_t bytes : {size_t{64}, size_t{1} << 20, size_t{64} << 20}) {
                const bool is_ascii = &script == &k_scripts[0];
                if (!is_ascii && (bytes > 1 << 20 || row.who == std::string("memcpy"))) continue;
                const std::string name =
                    std::string(row.group) + "/" + row.who + "/" + script.name + "/" + std::to_string(bytes);
                benchmark::RegisterBenchmark(name.c_str(), [&row, &script, bytes](benchmark::State& state) {
                    measure(state, row, script, bytes);
                });
            }
    return true;
}();

}  // namespace
