// Base64: the first byte is the capacity, the rest the text. The pieces of a text whose length is a multiple of four
// decode to the pieces of what the whole decodes to.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vellcore/text_helpers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t capacity = data[0];
    const char* text = reinterpret_cast<const char*>(data) + 1;
    const size_t length = size - 1;
    // Of exactly the capacity, so that a byte too many is found.
    const std::unique_ptr<uint8_t[]> whole(new uint8_t[capacity]), pieces(new uint8_t[capacity]);
    const size_t stored = vl_base64_decode(text, length, whole.get(), capacity);
    size_t in_pieces = 0;
    for (size_t at = 0; at < length; at += 4) {
        const size_t part = length - at < 4 ? length - at : 4;
        in_pieces += vl_base64_decode(text + at, part, pieces.get() + in_pieces, capacity - in_pieces);
        if (std::memchr(text + at, '=', part) != nullptr) break;
    }
    if (stored != in_pieces || std::memcmp(whole.get(), pieces.get(), stored) != 0) std::abort();
    return 0;
}
