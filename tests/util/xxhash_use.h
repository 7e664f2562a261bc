// A host's use of the library after one way of including the headers; included by sources that the build writes.
#pragma once

#include <string>

TEST(XxHashHeaders, VELL_WAY_OF_INCLUDING) {
    volatile size_t length = 3;  // unknown to the compiler, which warns about paths of the inlined code otherwise
    const std::string message(length, 'a');
    auto* state = vl_XXH64_createState();
    EXPECT_EQ(vl_XXH64_reset(state, 3), 0);
    EXPECT_EQ(vl_XXH64_update(state, message.data(), message.size()), 0);
    EXPECT_EQ(vl_XXH64_digest(state), XXH64(message.data(), message.size(), 3));
    EXPECT_EQ(vl_XXH64_freeState(state), 0);
    XXH3_state_t* stream = XXH3_createState();
    EXPECT_EQ(XXH3_128bits_reset(stream), XXH_OK);
    EXPECT_EQ(XXH3_128bits_update(stream, message.data(), message.size()), XXH_OK);
    const XXH128_hash_t hash = XXH3_128bits_digest(stream);
    EXPECT_TRUE(XXH128_isEqual(hash, XXH128(message.data(), message.size(), 0)));
    EXPECT_EQ(XXH3_freeState(stream), XXH_OK);
#ifndef XXH_INLINE_ALL
    unsigned char secret[192] = {};
    XXH3_generateSecret(secret, "", 0);
    EXPECT_EQ(secret[191], 0x7E);
#endif
}
