// Two texts: the first byte is the length of the first. One is matched against the other as a pattern, both are
// compared in natural order, and the comparison with prepared keys has to agree.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "files/sort_keys.h"
#include "vellcore/directory_listing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

void require(bool holds) {
    if (!holds) std::abort();
}

const char* name_at(const void* names, int32_t index) {
    return static_cast<const std::string*>(names)[index].c_str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t length = data[0] < size ? data[0] : size - 1;
    const std::string texts[] = {std::string(reinterpret_cast<const char*>(data) + 1, length),
                                 std::string(reinterpret_cast<const char*>(data) + 1 + length, size - 1 - length)};
    const char* name = texts[0].c_str();
    const char* pattern = texts[1].c_str();
    if (wildcard_match(name, pattern, true) && texts[1].find('[') == std::string::npos)
        require(wildcard_match(name, pattern, false));
    require(wildcard_match(name, ("*" + std::string(pattern)).c_str(), true) || !wildcard_match(name, pattern, true));
    require(wildcard_match(name, "**", true));

    const int order = sign(file_namecmp(name, pattern));
    require(order == -sign(file_namecmp(pattern, name)));
    vell::SortKeys keys;
    require(keys.make(name_at, texts, 2));
    require(sign(vell::file_order(keys.keys()[0], keys.keys()[1])) == order);
    return 0;
}
