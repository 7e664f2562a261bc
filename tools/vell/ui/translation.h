// What people read, in their language.
//
//     throw Failure{k_exit_other, path + ": " + tr("problem", "is not a regular file")};
//     print(formatted(tr("summary", "%llu failed"), number(count)));
//
// The English text is the message's name and what is shown where there is no translation. The context tells where it is
// shown; docs/translations.md lists the contexts in use and says how a text gets its translations. What programs read
// is not translated: names in JSON, lists of digests, the journal, the log.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

/// Chooses the language by the environment, as other programs do: LANGUAGE, LC_ALL, LC_MESSAGES, LANG. Called once,
/// before the first message. `program` is the program's path; the catalogs are found from there. Without any, or for a
/// language that has none, messages are English.
void choose_language(const std::string& program);

/// Where the catalogs are, or nothing.
[[nodiscard]] std::string locale_folder(const std::string& program);

/// The message in the user's language. It stays valid.
[[nodiscard, gnu::format_arg(2)]] const char* tr(const char* context, const char* text);

/// A text that is translated later, by tr() with the same context: it is only named here, for the list of messages.
[[nodiscard, gnu::format_arg(2)]] constexpr const char* marked(const char* context, const char* text) {
    static_cast<void>(context);
    return text;
}

/// What printf would print.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...);

/// A number for "%llu", whatever its type is.
[[nodiscard]] constexpr unsigned long long number(uint64_t value) {
    return value;
}

}  // namespace tool
