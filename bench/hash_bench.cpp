// Hashing from memory, bytes of one call as the argument: MD5 and SHA-1 against OpenSSL's, xxHash against the
// distribution's library, whose *_dispatch functions choose their vectors at run time as ours do.

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <openssl/evp.h>

#include <vector>

#include "vellcore/hash_functions.h"

namespace {

std::vector<unsigned char> message(const benchmark::State& state) {
    std::vector<unsigned char> bytes(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 2654435761U >> 13);
    return bytes;
}

template <class Sum>
void run(benchmark::State& state, Sum sum) {
    const std::vector<unsigned char> bytes = message(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(sum(bytes.data(), bytes.size()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void md5_vellcore(benchmark::State& state) {
    run(state, [](const unsigned char* data, size_t bytes) {
        md5_state_s sum;
        unsigned char digest[16];
        vl_md5_init(&sum);
        vl_md5_append(&sum, data, static_cast<int>(bytes));
        vl_md5_finish(&sum, digest);
        return digest[0];
    });
}

void sha1_vellcore(benchmark::State& state) {
    run(state, [](const unsigned char* data, size_t bytes) {
        SHA1Context sum;
        vl_SHA1Reset(&sum);
        vl_SHA1Input(&sum, data, static_cast<unsigned>(bytes));
        vl_SHA1Result(&sum);
        return sum.Intermediate_Hash[0];
    });
}

void openssl(benchmark::State& state, const EVP_MD* algorithm) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    run(state, [&](const unsigned char* data, size_t bytes) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        EVP_DigestInit_ex(context, algorithm, nullptr);
        EVP_DigestUpdate(context, data, bytes);
        EVP_DigestFinal_ex(context, digest, nullptr);
        return digest[0];
    });
    EVP_MD_CTX_free(context);
}

void md5_openssl(benchmark::State& state) {
    openssl(state, EVP_md5());
}
void sha1_openssl(benchmark::State& state) {
    openssl(state, EVP_sha1());
}

/// A function of the distribution's library, which has our names and so cannot be linked.
template <class Function>
Function* of_package(Function*, const char* name) {
    static void* library = dlopen("libxxhash.so.0", RTLD_NOW | RTLD_LOCAL);
    return library != nullptr ? reinterpret_cast<Function*>(dlsym(library, name)) : nullptr;
}

template <class Function>
void run_package(benchmark::State& state, Function* ours, const char* name) {
    Function* const function = of_package(ours, name);
    if (function == nullptr) {
        state.SkipWithError("the distribution's library has no such function");
        return;
    }
    run(state, [&](const unsigned char* data, size_t bytes) {
        if constexpr (std::is_invocable_v<Function*, const void*, size_t>) return function(data, bytes);
        if constexpr (std::is_invocable_v<Function*, const void*, size_t, XXH64_hash_t>)
            return function(data, bytes, 0);
    });
}

void xxh64_vellcore(benchmark::State& state) {
    run(state, [](const unsigned char* data, size_t bytes) { return XXH64(data, bytes, 0); });
}
void xxh64_package(benchmark::State& state) {
    run_package(state, &XXH64, "XXH64");
}
void xxh3_vellcore(benchmark::State& state) {
    run(state, [](const unsigned char* data, size_t bytes) { return XXH3_64bits(data, bytes); });
}
void xxh3_package(benchmark::State& state) {
    run_package(state, &XXH3_64bits, "XXH3_64bits");
}
void xxh3_package_dispatch(benchmark::State& state) {
    run_package(state, &XXH3_64bits, "XXH3_64bits_dispatch");
}
void xxh128_vellcore(benchmark::State& state) {
    run(state, [](const unsigned char* data, size_t bytes) { return XXH3_128bits(data, bytes); });
}
void xxh128_package(benchmark::State& state) {
    run_package(state, &XXH3_128bits, "XXH3_128bits");
}
void xxh128_package_dispatch(benchmark::State& state) {
    run_package(state, &XXH3_128bits, "XXH3_128bits_dispatch");
}

/// A long message in pieces of the argument's size, as a copy hashes it.
void stream(benchmark::State& state, decltype(&XXH3_128bits_update) update) {
    const std::vector<unsigned char> bytes = message(state);
    XXH3_state_t* sum = XXH3_createState();
    XXH3_128bits_reset(sum);
    for (auto _ : state)
        benchmark::DoNotOptimize(update(sum, bytes.data(), bytes.size()));
    XXH3_freeState(sum);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
void xxh128_stream_vellcore(benchmark::State& state) {
    stream(state, XXH3_128bits_update);
}
void xxh128_stream_package(benchmark::State& state) {
    stream(state, of_package(&XXH3_128bits_update, "XXH3_128bits_update"));
}
void xxh128_stream_package_dispatch(benchmark::State& state) {
    stream(state, of_package(&XXH3_128bits_update, "XXH3_128bits_update_dispatch"));
}

// A header, a read-ahead block that fits the cache, and a frame.
void sizes(benchmark::internal::Benchmark* benchmark) {
    for (const int64_t bytes : {64, 4096, 256 << 10, 8 << 20})
        benchmark->Arg(bytes);
}

BENCHMARK(md5_vellcore)->Name("md5/vellcore")->Apply(sizes);
BENCHMARK(md5_openssl)->Name("md5/openssl")->Apply(sizes);
BENCHMARK(sha1_vellcore)->Name("sha1/vellcore")->Apply(sizes);
BENCHMARK(sha1_openssl)->Name("sha1/openssl")->Apply(sizes);
BENCHMARK(xxh64_vellcore)->Name("xxh64/vellcore")->Apply(sizes);
BENCHMARK(xxh64_package)->Name("xxh64/package")->Apply(sizes);
BENCHMARK(xxh3_vellcore)->Name("xxh3/vellcore")->Apply(sizes);
BENCHMARK(xxh3_package)->Name("xxh3/package")->Apply(sizes);
BENCHMARK(xxh3_package_dispatch)->Name("xxh3/package_dispatch")->Apply(sizes);
BENCHMARK(xxh128_vellcore)->Name("xxh128/vellcore")->Apply(sizes);
BENCHMARK(xxh128_package)->Name("xxh128/package")->Apply(sizes);
BENCHMARK(xxh128_package_dispatch)->Name("xxh128/package_dispatch")->Apply(sizes);
BENCHMARK(xxh128_stream_vellcore)->Name("xxh128_stream/vellcore")->Apply(sizes);
BENCHMARK(xxh128_stream_package)->Name("xxh128_stream/package")->Apply(sizes);
BENCHMARK(xxh128_stream_package_dispatch)->Name("xxh128_stream/package_dispatch")->Apply(sizes);

}  // namespace
