// Base64 decoding beside a plain walk over the text.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "vellcore/processing_pool.h"
#include "vellcore/text_helpers.h"
#include "vellcore/threads.h"

namespace {

using Bytes = std::vector<unsigned char>;

/// The rules, one character at a time.
Bytes plain_decode(const std::string& text, size_t capacity) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Bytes all;
    unsigned group = 0, held = 0;
    for (const char c : text.substr(0, text.find('='))) {
        const size_t value = alphabet.find(c);
        group = group << 6 | static_cast<unsigned>(value == std::string::npos ? 0 : value);
        if (++held < 4) continue;
        for (const int shift : {16, 8, 0})
            all.push_back(static_cast<unsigned char>(group >> shift));
        group = held = 0;
    }
    group <<= 6 * (4 - held);
    for (unsigned i = 1; held > 1 && i < held; ++i)
        all.push_back(static_cast<unsigned char>(group >> (24 - 8 * i)));
    all.resize(std::min(all.size(), capacity));
    return all;
}

constexpr unsigned char k_untouched = 0xA5;

/// What was decoded, after checking that nothing was stored behind it.
Bytes decode(const std::string& text, size_t capacity) {
    Bytes out(capacity + 16, k_untouched);
    const size_t stored = vl_base64_decode(text.data(), text.size(), out.data(), capacity);
    EXPECT_LE(stored, capacity);
    for (size_t i = stored; i < out.size(); ++i)
        if (out[i] != k_untouched) {
            ADD_FAILURE() << "byte " << i << " behind " << stored << " was written";
            break;
        }
    out.resize(stored);
    return out;
}

std::string random_text(std::mt19937& random, size_t length, int odd_per_thousand) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text(length, ' ');
    for (char& c : text)
        c = static_cast<int>(random() % 1000) < odd_per_thousand ? static_cast<char>(random() % 256)
                                                                 : alphabet[random() % 64];
    return text;
}

TEST(Base64, DecodesByTheRules) {
    const struct {
        const char* text;
        size_t capacity;
        const char* expected;
    } rows[] = {{"TWFu", 3, "Man"},  {"TWFu", 2, "Ma"},    {"TWE=", 9, "Ma"}, {"TQ==", 9, "M"},       {"T", 9, ""},
                {"TWFuT", 9, "Man"}, {"TW=uTWFu", 9, "M"}, {"", 9, ""},       {"TW Fu", 9, "M`\x05"}, {"====", 9, ""}};
    for (const auto& row : rows) {
        const Bytes out = decode(row.text, row.capacity);
        EXPECT_EQ(std::string(out.begin(), out.end()), row.expected) << row.text;
    }
    EXPECT_EQ(vl_base64_decode(nullptr, 4, nullptr, 4), 0U);
}

TEST(Base64, EveryByteHasItsValueWhereverItStands) {
    for (int byte = 0; byte < 256; ++byte) {
        for (const size_t place : {size_t{0}, size_t{15}, size_t{16}, size_t{31}, size_t{50}}) {
            std::string text(96, 'B');
            text[place] = static_cast<char>(byte);
            EXPECT_EQ(decode(text, 100), plain_decode(text, 100)) << byte << " at " << place;
        }
    }
}

TEST(Base64, AgreesWithThePlainWalkOnRandomTexts) {
    std::mt19937 random(20240217);
    for (int round = 0; round < 3000; ++round) {
        const std::string text = random_text(random, random() % 400, round % 3 == 0 ? 0 : round % 3 == 1 ? 5 : 300);
        const size_t capacity = round % 2 == 0 ? 400 : random() % 320;
        ASSERT_EQ(decode(text, capacity), plain_decode(text, capacity)) << "round " << round;
    }
}

TEST(Base64, ReadsNothingBehindTheText) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* pages =
        static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
    memset(pages, 'Q', page);
    for (size_t length = 0; length <= 100; ++length) {
        const std::string text(length, 'Q');
        Bytes out(100);
        out.resize(vl_base64_decode(pages + page - length, length, out.data(), out.size()));
        EXPECT_EQ(out, plain_decode(text, 100));
    }
    munmap(pages, 2 * page);
}

TEST(Base64, IsSharedOutOverThePool) {
    mp_init_threads();
    std::mt19937 random(7);
    for (const int threads : {1, 2, 3, 8}) {
        smp_initialize(threads);
        for (const size_t length : {size_t{0}, size_t{1}, size_t{8}, size_t{1001}, size_t{100'000}}) {
            const std::string text = random_text(random, length, 0) + (length % 4 == 0 ? "" : "=");
            for (const size_t capacity : {length, length / 2}) {
                Bytes out(capacity + 16, k_untouched);
                const size_t implied = vl_base64_decode_mt(text.data(), text.size(), out.data(), capacity);
                const Bytes expected = plain_decode(text, text.size());
                EXPECT_EQ(implied, length / 4 * 3 + (length % 4 != 0 ? length % 4 - 1 : 0));
                const size_t kept = std::min(expected.size(), capacity);
                EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + static_cast<ptrdiff_t>(kept), out.begin()))
                    << length << " characters, " << capacity << " bytes, " << threads << " threads";
                EXPECT_EQ(out[capacity], k_untouched);
            }
        }
        smp_closedown();
    }
    unsigned char out[6];
    EXPECT_EQ(vl_base64_decode_mt("TWFuTWFu", 8, out, 6), 6U) << "without a pool";
    EXPECT_EQ(memcmp(out, "ManMan", 6), 0);
    EXPECT_EQ(vl_base64_decode_mt("TWFuTWFu", 8, nullptr, 6), 6U);
    mp_close_threads();
}

}  // namespace
