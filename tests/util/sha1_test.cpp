// SHA-1 sums against the published values, and the two block functions against each other.

#include "util/sha1.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vellcore/hash_functions.h"

namespace {

const unsigned char* bytes_of(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string hex(const SHA1Context& context) {
    char text[41];
    const unsigned int* words = context.Intermediate_Hash;
    std::snprintf(text, sizeof text, "%08x%08x%08x%08x%08x", words[0], words[1], words[2], words[3], words[4]);
    return text;
}

/// The sum of `message`, appended in pieces of `piece` bytes.
std::string sum(const std::string& message, size_t piece) {
    SHA1Context context;
    vl_SHA1Reset(&context);
    for (size_t at = 0; at < message.size(); at += piece) {
        const std::string part = message.substr(at, piece);
        vl_SHA1Input(&context, bytes_of(part), static_cast<unsigned int>(part.size()));
    }
    EXPECT_EQ(vl_SHA1Result(&context), 1);
    return hex(context);
}

// RFC 3174, 7.3, and messages around the length at which the padding needs a block of its own.
TEST(Sha1, EqualsThePublishedValues) {
    std::string repeated;
    for (int i = 0; i < 80; ++i)
        repeated += "01234567";
    const struct {
        std::string message;
        const char* expected;
    } cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"a", "86f7e437faa5a7fce15d1ddcb9eaeaea377667b8"},
        {repeated, "dea356a2cddd90c7a7ecedc5ebb563934f460452"},
        {std::string(55, 'a'), "c1c8bbdc22796e28c0e15163d20899b65621d65a"},
        {std::string(56, 'a'), "c2db330f6083854c99d4b5bfb6e8f29f201be699"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const auto& c : cases) {
        for (const size_t piece : {1u, 63u, 64u, 65u, 129u, 2000000u})
            EXPECT_EQ(sum(c.message, piece), c.expected) << piece;
    }
}

TEST(Sha1, TakesBlocksAlikeWithAndWithoutInstructions) {
    const vell::Sha1TakeBlocks by_instructions = vell::sha1_by_instructions();
    if (by_instructions == nullptr) GTEST_SKIP() << "this processor has none";
    std::vector<unsigned char> data(64 * 100 + 1);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(i * 2654435761U >> 13);
    for (size_t blocks = 0; blocks < 100; ++blocks) {
        uint32_t with[5] = {1, 2, 3, 4, static_cast<uint32_t>(blocks)};
        uint32_t without[5] = {1, 2, 3, 4, static_cast<uint32_t>(blocks)};
        by_instructions(with, data.data() + 1, blocks);
        vell::sha1_take_blocks_plainly(without, data.data() + 1, blocks);
        EXPECT_EQ(std::memcmp(with, without, sizeof with), 0) << blocks;
    }
}

TEST(Sha1, IsVoidAfterInputToACompleteSum) {
    SHA1Context context;
    vl_SHA1Reset(&context);
    vl_SHA1Input(&context, bytes_of("abc"), 3);
    EXPECT_EQ(context.Length_Low, 24u);
    EXPECT_EQ(context.Message_Block_Index, 3);
    EXPECT_EQ(vl_SHA1Result(&context), 1);
    EXPECT_EQ(vl_SHA1Result(&context), 1);
    EXPECT_EQ(hex(context), "a9993e364706816aba3e25717850c26c9cd0d89d");
    vl_SHA1Input(&context, bytes_of("x"), 0);
    EXPECT_EQ(context.Corrupted, 0);
    vl_SHA1Input(&context, bytes_of("x"), 1);
    EXPECT_NE(context.Corrupted, 0);
    EXPECT_EQ(hex(context), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(vl_SHA1Result(&context), 0);
    vl_SHA1Reset(&context);
    EXPECT_EQ(vl_SHA1Result(&context), 1);
    EXPECT_EQ(vl_SHA1Result(nullptr), 0);
}

TEST(Sha1, IsVoidBeyondTheLongestMessage) {
    SHA1Context context;
    vl_SHA1Reset(&context);
    context.Length_Low = 0xFFFFFFF8;
    vl_SHA1Input(&context, bytes_of("x"), 1);
    EXPECT_EQ(context.Length_Low, 0u);
    EXPECT_EQ(context.Length_High, 1u);
    EXPECT_EQ(context.Corrupted, 0);
    context.Length_Low = 0xFFFFFFF8;
    context.Length_High = 0xFFFFFFFF;
    vl_SHA1Input(&context, bytes_of("x"), 1);
    EXPECT_NE(context.Corrupted, 0);
    EXPECT_EQ(vl_SHA1Result(&context), 0);
}

}  // namespace
