// Digests come from the library. The texts are those of md5sum, sha1sum and xxhsum: most significant byte first.

#include "offload/digest.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <variant>

#include "vellcore/hash_functions.h"

namespace tool {
namespace {

constexpr DigestNames k_names[k_digest_kind_count] = {{"md5", "MD5", "MD5SUMS", 32},
                                                      {"sha1", "SHA1", "SHA1SUMS", 40},
                                                      {"xxh64", "XXH64", "XXH64SUMS", 16},
                                                      {"xxh3", "XXH3", "XXH3SUMS", 16},
                                                      {"xxh128", "XXH128", "XXH128SUMS", 32}};

std::string hexadecimal(const unsigned char* bytes, size_t count) {
    constexpr char k_digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += k_digits[bytes[i] >> 4];
        text += k_digits[bytes[i] & 15];
    }
    return text;
}

std::string hexadecimal(uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
    return text;
}

struct Md5 {
    md5_state_s state;
    Md5() { vl_md5_init(&state); }
    void add(const unsigned char* data, int bytes) { vl_md5_append(&state, data, bytes); }
    std::string finish() {
        unsigned char digest[16];
        vl_md5_finish(&state, digest);
        return hexadecimal(digest, sizeof digest);
    }
};

struct Sha1 {
    SHA1Context state;
    Sha1() { vl_SHA1Reset(&state); }
    void add(const unsigned char* data, int bytes) { vl_SHA1Input(&state, data, static_cast<unsigned>(bytes)); }
    std::string finish() {
        if (vl_SHA1Result(&state) == 0) throw std::length_error("the file is too long for SHA-1");
        std::string text;
        for (const unsigned word : state.Intermediate_Hash) {
            char digits[9];
            std::snprintf(digits, sizeof digits, "%08x", word);
            text += digits;
        }
        return text;
    }
};

struct Xxh64 {
    struct Free {
        void operator()(XXH64_state_t* used) const { XXH64_freeState(used); }
    };
    std::unique_ptr<XXH64_state_t, Free> state{XXH64_createState()};
    Xxh64() {
        if (state == nullptr) throw std::bad_alloc();
        XXH64_reset(state.get(), 0);
    }
    void add(const unsigned char* data, int bytes) { XXH64_update(state.get(), data, static_cast<size_t>(bytes)); }
    std::string finish() { return hexadecimal(XXH64_digest(state.get())); }
};

struct Xxh3State {
    struct Free {
        void operator()(XXH3_state_t* used) const { XXH3_freeState(used); }
    };
    std::unique_ptr<XXH3_state_t, Free> state{XXH3_createState()};
    Xxh3State() {
        if (state == nullptr) throw std::bad_alloc();
    }
};

struct Xxh3 : Xxh3State {
    Xxh3() { XXH3_64bits_reset(state.get()); }
    void add(const unsigned char* data, int bytes) {
        XXH3_64bits_update(state.get(), data, static_cast<size_t>(bytes));
    }
    std::string finish() { return hexadecimal(XXH3_64bits_digest(state.get())); }
};

struct Xxh128 : Xxh3State {
    Xxh128() { XXH3_128bits_reset(state.get()); }
    void add(const unsigned char* data, int bytes) {
        XXH3_128bits_update(state.get(), data, static_cast<size_t>(bytes));
    }
    std::string finish() {
        const XXH128_hash_t digest = XXH3_128bits_digest(state.get());
        return hexadecimal(digest.high64) + hexadecimal(digest.low64);
    }
};

}  // namespace

const DigestNames& names_of(DigestKind kind) {
    return k_names[static_cast<size_t>(kind)];
}

std::optional<DigestKind> digest_kind_named(std::string_view option) {
    for (const DigestKind kind : k_digest_kinds) {
        if (option == names_of(kind).option) return kind;
    }
    return std::nullopt;
}

std::vector<DigestKind> DigestSet::kinds() const {
    std::vector<DigestKind> kinds;
    std::copy_if(std::begin(k_digest_kinds), std::end(k_digest_kinds), std::back_inserter(kinds),
                 [this](DigestKind kind) { return has(kind); });
    return kinds;
}

DigestSet digest_set(std::initializer_list<DigestKind> kinds) {
    DigestSet set;
    for (const DigestKind kind : kinds)
        set.add(kind);
    return set;
}

bool has_digests(const Digests& digests, const DigestSet& kinds) {
    return std::all_of(std::begin(k_digest_kinds), std::end(k_digest_kinds),
                       [&](DigestKind kind) { return !kinds.has(kind) || !digest_of(digests, kind).empty(); });
}

std::optional<DigestKind> fastest_digest(const Digests& digests) {
    for (const DigestKind kind :
         {DigestKind::xxh128, DigestKind::xxh3, DigestKind::xxh64, DigestKind::sha1, DigestKind::md5}) {
        if (!digest_of(digests, kind).empty()) return kind;
    }
    return std::nullopt;
}

bool is_digest(std::string_view text, DigestKind kind) {
    return text.size() == names_of(kind).digits && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

struct Digester::State : std::variant<Md5, Sha1, Xxh64, Xxh3, Xxh128> {
    using variant::variant;
};

Digester::Digester(DigestKind kind) : state_(std::make_unique<State>()) {
    switch (kind) {
        case DigestKind::md5:
            state_->emplace<Md5>();
            break;
        case DigestKind::sha1:
            state_->emplace<Sha1>();
            break;
        case DigestKind::xxh64:
            state_->emplace<Xxh64>();
            break;
        case DigestKind::xxh3:
            state_->emplace<Xxh3>();
            break;
        case DigestKind::xxh128:
            state_->emplace<Xxh128>();
            break;
    }
}

Digester::~Digester() = default;
Digester::Digester(Digester&&) noexcept = default;

void Digester::add(const void* data, size_t bytes) {
    const auto* next = static_cast<const unsigned char*>(data);
    while (bytes > 0) {
        const int part = static_cast<int>(std::min<size_t>(bytes, INT_MAX));
        std::visit([&](auto& state) { state.add(next, part); }, static_cast<State::variant&>(*state_));
        next += part;
        bytes -= static_cast<size_t>(part);
    }
}

std::string Digester::finish() {
    return std::visit([](auto& state) { return state.finish(); }, static_cast<State::variant&>(*state_));
}

Fingerprint fingerprint_of(const void* data, size_t bytes) {
    const XXH128_hash_t hash = XXH3_128bits(data, bytes);
    return {hash.low64, hash.high64};
}

}  // namespace tool
