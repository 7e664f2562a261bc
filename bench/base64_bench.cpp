// Base64 decoding of 1 KiB, 1 MiB and 64 MiB of text, on one processor and on all, beside OpenSSL and GLib.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "vellcore/processing_pool.h"
#include "vellcore/text_helpers.h"
#include "vellcore/threads.h"

namespace {

std::string random_text(size_t length) {
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::mt19937 random(1);
    std::string text(length, ' ');
    for (char& c : text)
        c = alphabet[random() % 64];
    return text;
}

template <class Decode>
void measure(benchmark::State& state, Decode decode) {
    const std::string text = random_text(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(text.size());
    for (auto _ : state) {
        if (decode(text, out) != text.size() / 4 * 3) state.SkipWithError("wrong length");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void vellcore_one(benchmark::State& state) {
    measure(state, [](const std::string& text, std::vector<unsigned char>& out) {
        return vl_base64_decode(text.data(), text.size(), out.data(), out.size());
    });
}

void vellcore_all(benchmark::State& state) {
    mp_init_threads();
    smp_initialize(static_cast<int>(std::thread::hardware_concurrency()));
    measure(state, [](const std::string& text, std::vector<unsigned char>& out) {
        return vl_base64_decode_mt(text.data(), text.size(), out.data(), out.size());
    });
    smp_closedown();
    mp_close_threads();
}

void openssl(benchmark::State& state) {
    measure(state, [](const std::string& text, std::vector<unsigned char>& out) {
        return static_cast<size_t>(EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                                   static_cast<int>(text.size())));
    });
}

void glib(benchmark::State& state) {
    measure(state, [](const std::string& text, std::vector<unsigned char>& out) {
        gint progress = 0;
        guint kept = 0;
        return static_cast<size_t>(g_base64_decode_step(text.data(), text.size(), out.data(), &progress, &kept));
    });
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(1 << 10)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime();
}

BENCHMARK(vellcore_one)->Name("base64/vellcore")->Apply(sizes);
BENCHMARK(openssl)->Name("base64/openssl")->Apply(sizes);
BENCHMARK(glib)->Name("base64/glib")->Apply(sizes);
BENCHMARK(vellcore_all)->Name("base64_all/vellcore")->Apply(sizes);
BENCHMARK(vellcore_one)->Name("base64_all/one_processor")->Apply(sizes);

}  // namespace
