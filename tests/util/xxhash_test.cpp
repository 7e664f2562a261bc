// The xxHash family: compared with the distribution's library, which is loaded beside it, and with published values.

#include <dlfcn.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/xxh3_kernels.h"
#include "vellcore/hash_functions.h"

namespace {

using Bytes = std::vector<unsigned char>;

/// The distribution's functions. Loaded, not linked: the names are the same.
class Package {
public:
    template <class Function>
    Function* find(Function*, const char* name) const {
        void* address = dlsym(library_, name);
        EXPECT_NE(address, nullptr) << name;
        return reinterpret_cast<Function*>(address);
    }

private:
    void* library_ = dlopen("libxxhash.so.0", RTLD_NOW | RTLD_LOCAL);
};
const Package package;
/// The package's function of the same name and signature.
#define OF_PACKAGE(name) package.find(&name, #name)

/// Bytes as xxHash's own test makes them.
Bytes message_of(size_t length) {
    Bytes bytes(length);
    uint64_t generator = 2654435761U;
    for (auto& byte : bytes) {
        byte = static_cast<unsigned char>(generator >> 56);
        generator *= 11400714785074694797ULL;
    }
    return bytes;
}

/// Lengths at which the algorithms change, and all of the short ones.
std::vector<size_t> lengths() {
    std::vector<size_t> all;
    for (size_t length = 0; length <= 600; ++length)
        all.push_back(length);
    for (size_t length = 601; length <= 2100; length += 7)
        all.push_back(length);
    for (const size_t length : {1023u, 1024u, 1025u, 4095u, 4096u, 4097u, 65536u, 100001u})
        all.push_back(length);
    return all;
}

constexpr uint64_t k_seeds[] = {0, 1, 0x9E3779B1, 0xFFFFFFFFFFFFFFFF};

bool equal(XXH128_hash_t a, XXH128_hash_t b) {
    return a.low64 == b.low64 && a.high64 == b.high64;
}

TEST(XxHash, SumsAsThePackageDoes) {
    const auto xxh32 = OF_PACKAGE(XXH32);
    const auto xxh64 = OF_PACKAGE(XXH64);
    const auto xxh3 = OF_PACKAGE(XXH3_64bits);
    const auto seeded = OF_PACKAGE(XXH3_64bits_withSeed);
    const auto wide = OF_PACKAGE(XXH3_128bits);
    const auto wide_seeded = OF_PACKAGE(XXH3_128bits_withSeed);
    const Bytes message = message_of(100001);
    for (const size_t length : lengths()) {
        ASSERT_EQ(XXH3_64bits(message.data(), length), xxh3(message.data(), length)) << length;
        ASSERT_TRUE(equal(XXH3_128bits(message.data(), length), wide(message.data(), length))) << length;
        for (const uint64_t seed : k_seeds) {
            const auto short_seed = static_cast<uint32_t>(seed);
            ASSERT_EQ(XXH32(message.data(), length, short_seed), xxh32(message.data(), length, short_seed)) << length;
            ASSERT_EQ(XXH64(message.data(), length, seed), xxh64(message.data(), length, seed)) << length;
            ASSERT_EQ(XXH3_64bits_withSeed(message.data(), length, seed), seeded(message.data(), length, seed));
            const XXH128_hash_t expected = wide_seeded(message.data(), length, seed);
            ASSERT_TRUE(equal(XXH3_128bits_withSeed(message.data(), length, seed), expected)) << length;
            ASSERT_TRUE(equal(XXH128(message.data(), length, seed), expected)) << length;
        }
    }
}

TEST(XxHash, SumsWithSecretsAsThePackageDoes) {
    const auto narrow = OF_PACKAGE(XXH3_64bits_withSecret);
    const auto wide = OF_PACKAGE(XXH3_128bits_withSecret);
    const Bytes message = message_of(100001);
    for (const size_t secret_bytes : {136u, 137u, 192u, 777u}) {
        const Bytes secret = message_of(secret_bytes + 5);
        for (const size_t length : lengths()) {
            ASSERT_EQ(XXH3_64bits_withSecret(message.data(), length, secret.data(), secret_bytes),
                      narrow(message.data(), length, secret.data(), secret_bytes));
            ASSERT_TRUE(equal(XXH3_128bits_withSecret(message.data(), length, secret.data(), secret_bytes),
                              wide(message.data(), length, secret.data(), secret_bytes)));
        }
    }
}

/// Feeds a message in pieces of all sizes: `next` makes them from its counter.
template <class Update>
void feed(const Bytes& message, size_t length, unsigned variant, Update update) {
    size_t piece = 0;
    for (size_t at = 0, step = variant; at < length; at += piece, ++step) {
        piece = std::min(length - at, step * step * 31 % (variant * 173 + 2) + 1);
        ASSERT_EQ(update(message.data() + at, piece), XXH_OK);
    }
}

TEST(XxHash, StreamsAsItSumsWhole) {
    const std::unique_ptr<XXH32_state_t, decltype(&XXH32_freeState)> narrow(XXH32_createState(), XXH32_freeState);
    const std::unique_ptr<XXH64_state_t, decltype(&XXH64_freeState)> state(XXH64_createState(), XXH64_freeState);
    const Bytes message = message_of(100001);
    for (const size_t length : lengths()) {
        for (const unsigned variant : {0u, 1u, 3u, 40u}) {
            const uint64_t seed = k_seeds[variant % 4];
            ASSERT_EQ(XXH32_reset(narrow.get(), static_cast<uint32_t>(seed)), XXH_OK);
            ASSERT_EQ(XXH64_reset(state.get(), seed), XXH_OK);
            feed(message, length, variant, [&](const void* data, size_t bytes) {
                EXPECT_EQ(XXH32_update(narrow.get(), data, bytes), XXH_OK);
                return XXH64_update(state.get(), data, bytes);
            });
            ASSERT_EQ(XXH32_digest(narrow.get()), XXH32(message.data(), length, static_cast<uint32_t>(seed)));
            ASSERT_EQ(XXH64_digest(state.get()), XXH64(message.data(), length, seed));
        }
    }
}

TEST(XxHash, StreamsXxh3AsItSumsWhole) {
    const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(), XXH3_freeState);
    const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> copy(XXH3_createState(), XXH3_freeState);
    const Bytes message = message_of(100001);
    const Bytes secret = message_of(200);
    for (const size_t length : lengths()) {
        for (const unsigned variant : {0u, 1u, 3u, 40u}) {
            const auto stream = [&](auto update) {
                feed(message, length, variant,
                     [&](const void* data, size_t bytes) { return update(state.get(), data, bytes); });
                XXH3_copyState(copy.get(), state.get());
            };
            const uint64_t seed = k_seeds[variant % 4];
            ASSERT_EQ(XXH3_64bits_reset(state.get()), XXH_OK);
            stream(XXH3_64bits_update);
            ASSERT_EQ(XXH3_64bits_digest(copy.get()), XXH3_64bits(message.data(), length)) << length;
            ASSERT_EQ(XXH3_64bits_reset_withSeed(state.get(), seed), XXH_OK);
            stream(XXH3_64bits_update);
            ASSERT_EQ(XXH3_64bits_digest(copy.get()), XXH3_64bits_withSeed(message.data(), length, seed)) << length;
            ASSERT_EQ(XXH3_64bits_reset_withSecret(state.get(), secret.data(), secret.size()), XXH_OK);
            stream(XXH3_64bits_update);
            ASSERT_EQ(XXH3_64bits_digest(copy.get()),
                      XXH3_64bits_withSecret(message.data(), length, secret.data(), secret.size()));
            ASSERT_EQ(XXH3_128bits_reset(state.get()), XXH_OK);
            stream(XXH3_128bits_update);
            ASSERT_TRUE(equal(XXH3_128bits_digest(copy.get()), XXH3_128bits(message.data(), length))) << length;
            ASSERT_EQ(XXH3_128bits_reset_withSeed(state.get(), seed), XXH_OK);
            stream(XXH3_128bits_update);
            ASSERT_TRUE(equal(XXH3_128bits_digest(copy.get()), XXH128(message.data(), length, seed))) << length;
            ASSERT_EQ(XXH3_128bits_reset_withSecret(state.get(), secret.data(), secret.size()), XXH_OK);
            stream(XXH3_128bits_update);
            ASSERT_TRUE(equal(XXH3_128bits_digest(copy.get()),
                              XXH3_128bits_withSecret(message.data(), length, secret.data(), secret.size())));
        }
    }
    EXPECT_EQ(XXH3_64bits_reset_withSecret(state.get(), secret.data(), XXH3_SECRET_SIZE_MIN - 1), XXH_ERROR);
    EXPECT_EQ(XXH3_64bits_update(state.get(), nullptr, 0), XXH_ERROR);
}

// The exported functions use the best level only; each that this processor has must agree with them.
TEST(XxHash, SumsAlikeOnEveryLevelOfVectors) {
    const Bytes message = message_of(100001);
    const std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(), XXH3_freeState);
    for (const auto* level = vell::xxh3_levels(); *level != nullptr; ++level) {
        const vell::Xxh3Kernels& kernels = **level;
        for (const size_t length : lengths()) {
            const void* data = message.data();
            ASSERT_EQ(kernels.sum_64(data, length), XXH3_64bits(data, length));
            ASSERT_EQ(kernels.sum_64_with_seed(data, length, 7), XXH3_64bits_withSeed(data, length, 7));
            const vell::Hash128 wide = kernels.sum_128_with_seed(data, length, 7);
            ASSERT_TRUE(equal({wide.low, wide.high}, XXH3_128bits_withSeed(data, length, 7)));
            XXH3_64bits_reset_withSeed(state.get(), 7);
            kernels.update(state.get(), data, length / 3);
            XXH3_64bits_update(state.get(), message.data() + length / 3, length - length / 3);
            ASSERT_EQ(kernels.digest_64(state.get()), XXH3_64bits_withSeed(data, length, 7));
        }
    }
}

// The samples that xxHash 0.8.0 publishes for its own test: bytes 0, 62, 131 and 191 of the secret.
TEST(XxHash, MakesTheSecretsOfItsVersion) {
    const Bytes seed = message_of(192 + 500);
    const struct {
        size_t seed_bytes;
        unsigned char samples[4];
    } cases[] = {{0, {0xB8, 0x26, 0x83, 0x7E}},
                 {1, {0xA6, 0x16, 0x06, 0x7B}},
                 {135, {0xDA, 0x2A, 0x12, 0x11}},
                 {692, {0x7E, 0x48, 0x0C, 0xA7}}};
    for (const auto& c : cases) {
        unsigned char secret[193];
        secret[192] = 0x5A;
        XXH3_generateSecret(secret, seed.data(), c.seed_bytes);
        const unsigned char samples[] = {secret[0], secret[62], secret[131], secret[191]};
        EXPECT_EQ(std::memcmp(samples, c.samples, 4), 0) << c.seed_bytes;
        EXPECT_EQ(secret[192], 0x5A);
    }
    EXPECT_EQ(XXH_versionNumber(), 800u);
}

TEST(XxHash, TakesNullForAnEmptyMessage) {
    EXPECT_EQ(XXH32(nullptr, 500, 7), XXH32("", 0, 7));
    EXPECT_EQ(XXH64(nullptr, 500, 7), XXH64("", 0, 7));
    EXPECT_EQ(XXH3_64bits(nullptr, 500), XXH3_64bits("", 0));
    EXPECT_EQ(XXH3_64bits_withSeed(nullptr, 500, 7), XXH3_64bits_withSeed("", 0, 7));
    EXPECT_TRUE(equal(XXH3_128bits(nullptr, 500), XXH3_128bits("", 0)));
    EXPECT_TRUE(equal(XXH128(nullptr, 500, 7), XXH128("", 0, 7)));
}

TEST(XxHash, WritesHashesMostSignificantByteFirst) {
    XXH32_canonical_t narrow;
    XXH32_canonicalFromHash(&narrow, 0x01020304);
    EXPECT_EQ(narrow.digest[0], 1);
    EXPECT_EQ(XXH32_hashFromCanonical(&narrow), 0x01020304u);
    XXH64_canonical_t middle;
    XXH64_canonicalFromHash(&middle, 0x0102030405060708);
    EXPECT_EQ(middle.digest[7], 8);
    EXPECT_EQ(XXH64_hashFromCanonical(&middle), 0x0102030405060708u);
    const XXH128_hash_t hash{3, 1}, greater{2, 2};
    XXH128_canonical_t wide;
    XXH128_canonicalFromHash(&wide, hash);
    EXPECT_EQ(wide.digest[7], 1);
    EXPECT_EQ(wide.digest[15], 3);
    EXPECT_TRUE(XXH128_isEqual(XXH128_hashFromCanonical(&wide), hash));
    EXPECT_FALSE(XXH128_isEqual(hash, greater));
    EXPECT_LT(XXH128_cmp(&hash, &greater), 0);
    EXPECT_GT(XXH128_cmp(&greater, &hash), 0);
}

TEST(XxHash, ComparesWholeStates) {
    // Memory with odd contents: a reset must write all of it.
    alignas(8) unsigned char first_memory[88], second_memory[88];
    std::memset(first_memory, 0x11, sizeof first_memory);
    std::memset(second_memory, 0x22, sizeof second_memory);
    auto* first = reinterpret_cast<XXH64_state_s*>(first_memory);
    auto* second = reinterpret_cast<XXH64_state_s*>(second_memory);
    vl_XXH64_reset(first, 5);
    XXH64_reset(second, 5);
    EXPECT_EQ(XXH64_compareState(first, second), 0);
    for (XXH64_state_s* state : {first, second})
        EXPECT_EQ(vl_XXH64_update(state, "some bytes of a message, more than 32", 37), XXH_OK);
    EXPECT_EQ(vl_XXH64_compareState(first, second), 0);
    EXPECT_EQ(vl_XXH64_digest(first), XXH64("some bytes of a message, more than 32", 37, 5));
    vl_XXH64_update(second, "x", 1);
    EXPECT_EQ(XXH64_compareState(first, second) < 0, std::memcmp(first_memory, second_memory, 88) < 0);
    EXPECT_NE(XXH64_compareState(first, second), 0);
    vl_XXH64_copyState(first, second);
    EXPECT_EQ(vl_XXH64_compareState(first, second), 0);
    XXH64_state_s* state = vl_XXH64_createState();
    vl_XXH64_copyState(state, first);
    EXPECT_EQ(vl_XXH64_digest(state), vl_XXH64_digest(first));
    EXPECT_EQ(vl_XXH64_freeState(state), XXH_OK);
    EXPECT_EQ(vl_XXH64_freeState(nullptr), XXH_OK);
    EXPECT_EQ(vl_XXH64_compareState(nullptr, nullptr), 0);
    EXPECT_LT(vl_XXH64_compareState(nullptr, first), 0);
    EXPECT_GT(vl_XXH64_compareState(first, nullptr), 0);
    EXPECT_EQ(vl_XXH64_update(nullptr, "x", 1), XXH_ERROR);
    EXPECT_EQ(vl_XXH64_update(first, nullptr, 0), XXH_ERROR);
    EXPECT_EQ(vl_XXH64_reset(nullptr, 0), XXH_ERROR);
}

}  // namespace
