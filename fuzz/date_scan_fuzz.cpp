// Dates from text: the first byte is the length of the format, then format and text. What was scanned is formatted,
// stepped and turned into a time, whatever its fields are.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vellcore/calendar_date.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t format_length = data[0] < size ? data[0] : size - 1;
    const std::string format(reinterpret_cast<const char*>(data) + 1, format_length);
    const std::string text(reinterpret_cast<const char*>(data) + 1 + format_length, size - 1 - format_length);
    date scanned(2024, 2, 29, 12, 0, 0);
    int extra = 0;
    const char* end = scanned.scan(text.c_str(), format.c_str(), format_length % 2 == 0 ? &extra : nullptr);
    if (end != nullptr && (end < text.c_str() || end > text.c_str() + text.size())) std::abort();
    char out[64];
    scanned.format(out, true);
    scanned.format_xml(out, true);
    scanned.format_num(out, true);
    scanned.add_days(static_cast<long>(size) * 1000 - 30000);
    static_cast<void>(static_cast<long>(scanned));
    static_cast<void>(scanned.day_name(true));
    static_cast<void>(scanned.month_name(false));
    return 0;
}
