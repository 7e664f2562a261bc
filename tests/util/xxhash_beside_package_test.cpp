// The library in a process that the distribution's xxHash, with the same names, was loaded into first.

#include <dlfcn.h>

#include <cstring>

#include "vellcore/hash_functions.h"

namespace {

void* library() {
    static void* handle = dlopen(VELLCORE_LIBRARY, RTLD_NOW);
    return handle;
}

template <class Function>
Function* of_library(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library(), name));
}

TEST(XxHashBesideThePackage, CallsItsOwnFunctions) {
    EXPECT_GT(XXH_versionNumber(), 800u) << "this program is to use the package's functions";
    ASSERT_NE(library(), nullptr) << dlerror();
    EXPECT_EQ(of_library(&XXH_versionNumber, "XXH_versionNumber")(), 800u);
    // The package's reset leaves bytes of the state as they were.
    alignas(8) unsigned char first[88], second[88];
    std::memset(first, 0x11, sizeof first);
    std::memset(second, 0x22, sizeof second);
    const auto reset =
        reinterpret_cast<int (*)(void*, unsigned long long)>(dlsym(library(), "_Z14vl_XXH64_resetP13XXH64_state_sy"));
    ASSERT_NE(reset, nullptr);
    reset(first, 5);
    reset(second, 5);
    EXPECT_EQ(std::memcmp(first, second, sizeof first), 0);
    unsigned char secret[192];
    reinterpret_cast<void (*)(void*, const void*, size_t)>(dlsym(library(), "XXH3_generateSecret"))(secret, "", 0);
    EXPECT_EQ(secret[191], 0x7E);
}

}  // namespace
