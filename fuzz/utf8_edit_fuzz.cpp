// Editing: the first byte is the buffer's capacity, then come edits of a few bytes each. Whatever is in the buffer, an
// edit changes it at one place by what it says, and leaves a string.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "vellcore/unicode_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void require(bool is_true) {
    if (!is_true) std::abort();
}

struct Input {
    const uint8_t* at;
    const uint8_t* end;

    int byte() { return at < end ? *at++ : 0; }
    std::string text(size_t limit) {
        std::string result;
        while (result.size() < limit && at < end && *at != 0)
            result.push_back(static_cast<char>(*at++));
        return result;
    }
};

void edit(Input& input, char* buffer, size_t capacity) {
    const std::string before = buffer;
    const int kind = input.byte();
    const int index = input.byte() - 2;
    const size_t place = vl_utf8_get_num_bytes(buffer, 0, index);
    if (kind % 3 == 0) {
        const int count = input.byte() - 2;
        const size_t removed = vl_utf8_erase(buffer, index, count);
        require(removed == vl_utf8_get_num_bytes(before.c_str(), place, count));
        require(std::string(before).erase(place, removed) == buffer);
        return;
    }
    std::string added;
    size_t inserted = 0;
    if (kind % 3 == 1) {
        const int cp = input.byte() << 16 | input.byte() << 8 | 1;
        char sequence[4];
        added.assign(sequence, static_cast<size_t>(vl_utf8_encode(cp, sequence, sizeof sequence)));
        inserted = vl_utf8_insert_char(buffer, capacity, index, cp);
        require(inserted == 0 || inserted == added.size());
    } else {
        added = input.text(static_cast<size_t>(input.byte()) % 40);
        inserted = vl_utf8_insert(buffer, capacity, index, added.c_str());
        require(inserted <= added.size());
    }
    require(before.size() + inserted < capacity);
    require(std::string(before).insert(place, added.substr(0, inserted)) == buffer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t capacity = size_t{data[0]} + 1;
    const std::unique_ptr<char[]> buffer(new char[capacity]());
    Input input{data + 1, data + size};
    while (input.at < input.end) {
        edit(input, buffer.get(), capacity);
        size_t pos = std::string(buffer.get()).size();
        while (vl_utf8_get_code_point_rev(buffer.get(), &pos) != 0) {
        }
        require(pos == 0);
    }
    vl_utf8_validate(buffer.get());
    require(vl_utf8_is_valid(buffer.get()) == 1);
    return 0;
}
