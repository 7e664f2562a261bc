// The file that keeps the choice of language, against a plain reading of it.

#include "text/language_choice.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

/// What a text without zero bytes and overlong lines says, or nothing.
std::string plain_reading(const std::string& text) {
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        line.erase(0, std::min(line.find_first_not_of(' '), line.size()));
        if (line.rfind("language=", 0) != 0) continue;
        constexpr const char* k_blanks = " \t\v\f\r";
        const size_t begin = line.find_first_not_of(k_blanks, sizeof "language=" - 1);
        if (begin == std::string::npos) continue;
        return line.substr(begin, line.find_first_of(k_blanks, begin) - begin);
    }
    return "";
}

bool is_plain(const std::string& text) {
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] == '\0') return false;
        if (i < text.size() && text[i] != '\n') continue;
        if (i - start > vell::k_choice_bytes - 2) return false;
        start = i + 1;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    char language[vell::k_choice_bytes] = "";
    FILE* file = fmemopen(text.data(), text.size(), "r");
    if (file == nullptr) return 0;
    const bool has_choice = vell::read_language_choice(file, language);
    std::fclose(file);
    if (has_choice && (*language == '\0' || std::string(language).find_first_of(" \t\n\v\f\r") != std::string::npos)) {
        std::abort();
    }
    if (is_plain(text) && (has_choice ? language : "") != plain_reading(text)) std::abort();
    return 0;
}
