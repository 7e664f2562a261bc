#include "offload/escaped_names.h"

#include <algorithm>

namespace tool {

std::string escape_name(std::string_view name) {
    std::string text;
    for (const char byte : name) {
        if (byte == '\\' || byte == '\n' || byte == '\r') {
            text += byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\\\";
        } else {
            text += byte;
        }
    }
    return text;
}

std::optional<std::string> unescape_name(std::string_view text) {
    std::string name;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            name += text[at];
            continue;
        }
        if (++at == text.size()) return std::nullopt;
        switch (text[at]) {
            case '\\':
                name += '\\';
                break;
            case 'n':
                name += '\n';
                break;
            case 'r':
                name += '\r';
                break;
            default:
                return std::nullopt;
        }
    }
    return name;
}

bool is_inside_path(std::string_view path) {
    if (path.empty() || path.find('\0') != std::string_view::npos) return false;
    for (size_t from = 0; from <= path.size();) {
        const size_t end = std::min(path.find('/', from), path.size());
        const std::string_view part = path.substr(from, end - from);
        if (part.empty() || part == "." || part == "..") return false;
        from = end + 1;
    }
    return true;
}

}  // namespace tool
