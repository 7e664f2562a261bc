#include "core/command_line.h"

#include <cstdlib>

namespace vell {
namespace {

// Base 0: "0x10" is hexadecimal and "010" octal. What does not fit is cut to 32 bits.
int32_t number_in(const char* text) noexcept {
    return static_cast<int32_t>(std::strtol(text, nullptr, 0));
}

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

/// Reads one argument's letters. @return how many of the arguments after it were used up: 0 or 1.
int32_t read_switches(const char* letters, const char* next_argument, CommandLine& result) noexcept {
    for (; *letters != '\0'; ++letters) {
        if (*letters == 'd' || *letters == 'D') {
            ++result.debug_count;
            continue;
        }
        if (*letters != 'p' && *letters != 'P') return 0;
        if (is_digit(letters[1])) {
            result.processors = number_in(letters + 1);
        } else if (letters[1] == '\0' && next_argument != nullptr) {
            result.processors = number_in(next_argument);
            return 1;
        }
        return 0;
    }
    return 0;
}

}  // namespace

CommandLine parse_command_line(int32_t argument_count, const char* const* argument_vector) noexcept {
    CommandLine result;
    if (argument_vector == nullptr) return result;
    for (int32_t i = 1; i < argument_count; ++i) {
        const char* argument = argument_vector[i];
        if (argument == nullptr || argument[0] != '-') continue;
        const char* next = i + 1 < argument_count ? argument_vector[i + 1] : nullptr;
        i += read_switches(argument + 1, next, result);
    }
    return result;
}

}  // namespace vell
