// Matching names with wildcards.
//
// Everything but "*" takes exactly one byte of the name, so a later "*" can do all that an earlier one could: on a
// mismatch only the last one takes a byte more. That bounds the steps by name times pattern.

#include <cstring>

#include "files/plain_order.h"
#include "vellcore/directory_listing.h"

namespace vell {
namespace {

class Matcher {
public:
    explicit Matcher(bool case_sensitive) noexcept : case_sensitive_(case_sensitive) {}

    /// Compares one byte of the name with the element at `pattern`. @return the next element, or null.
    [[nodiscard]] const char* take(char byte, const char* pattern) const noexcept {
        switch (*pattern) {
            case '\0':
                return nullptr;
            case '?':
                return pattern + 1;
            case '[':
                return take_class(byte, pattern + 1);
            case '\\':
                ++pattern;
                [[fallthrough]];
            default:
                return *pattern != '\0' && same(byte) == same(*pattern) ? pattern + 1 : nullptr;
        }
    }

private:
    [[nodiscard]] unsigned char same(char byte) const noexcept {
        const auto plain = static_cast<unsigned char>(byte);
        return case_sensitive_ ? plain : folded(plain);
    }

    [[nodiscard]] bool lies_between(char byte, char one, char other) const noexcept {
        const unsigned char low = same(one);
        const unsigned char high = same(other);
        const unsigned char wanted = same(byte);
        return low <= high ? low <= wanted && wanted <= high : high <= wanted && wanted <= low;
    }

    // The byte after a "-" ends the range whatever it is, also a "]". A "-" at the pattern's end is a plain member.
    [[nodiscard]] const char* take_class(char byte, const char* member) const noexcept {
        while (*member != '\0' && *member != ']') {
            const bool is_range = member[1] == '-' && member[2] != '\0';
            const bool matches = lies_between(byte, member[0], is_range ? member[2] : member[0]);
            member += is_range ? 3 : 1;
            if (!matches) continue;
            const char* end = strchr(member, ']');
            return end != nullptr ? end + 1 : member + strlen(member);
        }
        return nullptr;
    }

    bool case_sensitive_;
};

}  // namespace
}  // namespace vell

bool wildcard_match(const char* name, const char* pattern, bool case_sensitive) noexcept {
    if (name == nullptr || pattern == nullptr) return false;
    const vell::Matcher matcher(case_sensitive);
    const char* after_star = nullptr;  // behind the last "*" met
    const char* retry = nullptr;       // the first byte of the name which that "*" has not taken yet
    for (;;) {
        if (*pattern == '*') {
            after_star = ++pattern;
            retry = name;
            if (*pattern == '\0') return true;
        } else if (*name == '\0') {
            return *pattern == '\0';
        } else if (const char* next = matcher.take(*name, pattern); next != nullptr) {
            pattern = next;
            ++name;
        } else if (after_star != nullptr) {
            pattern = after_star;
            name = ++retry;
        } else {
            return false;
        }
    }
}
