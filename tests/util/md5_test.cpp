// MD5 sums against the published values.

#include <string>

#include "vellcore/hash_functions.h"

namespace {

std::string hex(const unsigned char (&digest)[16]) {
    std::string text;
    for (const unsigned char byte : digest) {
        constexpr char digits[] = "0123456789abcdef";
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

/// The sum of `message`, appended in pieces of `piece` bytes.
std::string sum(const std::string& message, size_t piece) {
    md5_state_s state;
    vl_md5_init(&state);
    for (size_t at = 0; at < message.size(); at += piece) {
        const std::string part = message.substr(at, piece);
        vl_md5_append(&state, reinterpret_cast<const unsigned char*>(part.data()), static_cast<int>(part.size()));
    }
    unsigned char digest[16];
    vl_md5_finish(&state, digest);
    return hex(digest);
}

// RFC 1321, A.5, and two messages around the length at which the padding needs a block of its own.
TEST(Md5, EqualsThePublishedValues) {
    const struct {
        std::string message;
        const char* expected;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {std::string(55, 'a'), "ef1772b6dff9a122358552954ad0df65"},
        {std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218"},
        {std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21"},
    };
    for (const auto& c : cases) {
        for (const size_t piece : {1u, 63u, 64u, 65u, 2000000u})
            EXPECT_EQ(sum(c.message, piece), c.expected) << piece;
    }
}

TEST(Md5, CanBeForked) {
    md5_state_s first, second;
    vl_md5_init(&first);
    const unsigned char text[] = "abc";
    vl_md5_append(&first, text, 1);
    second = first;
    vl_md5_append(&first, text + 1, 2);
    vl_md5_append(&second, text, 0);
    vl_md5_append(&second, text, -1);
    vl_md5_append(&second, nullptr, 3);
    vl_md5_append(nullptr, text, 1);
    unsigned char digest[16];
    vl_md5_finish(&first, digest);
    EXPECT_EQ(hex(digest), "900150983cd24fb0d6963f7d28e17f72");
    vl_md5_finish(&second, digest);
    EXPECT_EQ(hex(digest), "0cc175b9c0f1b6a831c399e269772661");
}

TEST(Md5, CountsBeyondFourGigabits) {
    md5_state_s state;
    vl_md5_init(&state);
    state.count[0] = 0xFFFFFE00u;  // bits of whole blocks, one block short of the wrap
    const unsigned char block[64] = {};
    vl_md5_append(&state, block, 64);
    EXPECT_EQ(state.count[0], 0u);
    EXPECT_EQ(state.count[1], 1u);
}

}  // namespace
