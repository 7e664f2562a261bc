// The digests that the tool offers, behind one interface.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

enum class DigestKind : uint8_t { md5, sha1, xxh64, xxh3, xxh128 };
inline constexpr DigestKind k_digest_kinds[] = {DigestKind::md5, DigestKind::sha1, DigestKind::xxh64, DigestKind::xxh3,
                                                DigestKind::xxh128};
inline constexpr size_t k_digest_kind_count = std::size(k_digest_kinds);

/// What a kind is called, and how long its digest is.
struct DigestNames {
    const char* option;     ///< "md5": on the command line and in the journal
    const char* tag;        ///< "MD5": in lines that name their digest
    const char* list_name;  ///< "MD5SUMS"
    size_t digits;          ///< hexadecimal
};
[[nodiscard]] const DigestNames& names_of(DigestKind kind);
[[nodiscard]] std::optional<DigestKind> digest_kind_named(std::string_view option);

/// Some of the kinds.
class DigestSet {
public:
    void add(DigestKind kind) { bits_ |= bit(kind); }
    [[nodiscard]] bool has(DigestKind kind) const { return (bits_ & bit(kind)) != 0; }
    [[nodiscard]] bool is_empty() const { return bits_ == 0; }
    [[nodiscard]] std::vector<DigestKind> kinds() const;

private:
    static unsigned bit(DigestKind kind) { return 1U << static_cast<unsigned>(kind); }
    unsigned bits_ = 0;
};

[[nodiscard]] DigestSet digest_set(std::initializer_list<DigestKind> kinds);

/// Digests of one file, as lower-case hexadecimal text; empty where one is not known.
using Digests = std::array<std::string, k_digest_kind_count>;
[[nodiscard]] inline std::string& digest_of(Digests& digests, DigestKind kind) {
    return digests[static_cast<size_t>(kind)];
}
[[nodiscard]] inline const std::string& digest_of(const Digests& digests, DigestKind kind) {
    return digests[static_cast<size_t>(kind)];
}
/// True when every kind of the set is known.
[[nodiscard]] bool has_digests(const Digests& digests, const DigestSet& kinds);
/// The known digest that is computed fastest.
[[nodiscard]] std::optional<DigestKind> fastest_digest(const Digests& digests);
/// True for a text of the right length and nothing but lower-case hexadecimal digits.
[[nodiscard]] bool is_digest(std::string_view text, DigestKind kind);

/// A digest being computed. One thread at a time.
class Digester {
public:
    explicit Digester(DigestKind kind);
    ~Digester();
    Digester(Digester&&) noexcept;
    Digester& operator=(Digester&&) = delete;

    void add(const void* data, size_t bytes);
    /// Ends it.
    [[nodiscard]] std::string finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// What a block is compared by when it is read back.
struct Fingerprint {
    uint64_t low, high;
    bool operator==(const Fingerprint&) const = default;
};
[[nodiscard]] Fingerprint fingerprint_of(const void* data, size_t bytes);

}  // namespace tool
