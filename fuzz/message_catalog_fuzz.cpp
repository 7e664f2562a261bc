// Message catalogs: one that passes for sound is looked into, by both kinds of text, for messages that it has or has
// not.

#include "text/message_catalog.h"

#include <boost/locale/gnu_gettext.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <locale>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

template <class Char>
void look_up(const boost::locale::gnu_gettext::messages_info& info, const Char* id, const Char* context) {
    using Messages = boost::locale::message_format<Char>;
    const std::locale owner(std::locale::classic(), boost::locale::gnu_gettext::create_messages_facet<Char>(info));
    const auto& messages = std::use_facet<Messages>(owner);
    for (const Char* translation : {messages.get(0, nullptr, id), messages.get(0, context, id)}) {
        if (translation != nullptr) static_cast<void>(std::basic_string<Char>(translation));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<char> catalog(data, data + size);
    if (!vell::is_sound_catalog({catalog.data(), catalog.size()})) return 0;
    boost::locale::gnu_gettext::messages_info info;
    info.language = "de";
    info.encoding = "UTF-8";
    info.domains.emplace_back("gantry");
    info.paths.emplace_back("/");
    info.callback = [&catalog](const std::string&, const std::string&) { return catalog; };
    try {
        look_up<char>(info, "Open", "adjective");
        look_up<wchar_t>(info, L"Open", L"adjective");
    } catch (const std::exception&) {  // an encoding or a rule for plurals that makes no sense
    }
    return 0;
}
