#include "text/language_choice.h"

#include <cstring>

namespace vell {

bool read_language_choice(FILE* file, char (&language)[k_choice_bytes]) noexcept {
    char line[k_choice_bytes];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        const char* text = line + strspn(line, " \n");
        if (*text == '\0' || *text == '#') continue;
        if (std::sscanf(text, "language=%255s", language) == 1) return true;
        language[0] = '\0';
    }
    return false;
}

}  // namespace vell
