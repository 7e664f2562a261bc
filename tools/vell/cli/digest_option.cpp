#include "cli/digest_option.h"

#include <algorithm>

#include "ui/failure.h"
#include "ui/translation.h"

namespace tool {

DigestSet parse_digest_set(const std::vector<std::string>& values, DigestSet otherwise) {
    DigestSet set;
    for (const std::string& value : values) {
        for (size_t from = 0; from <= value.size();) {
            const size_t comma = std::min(value.find(',', from), value.size());
            const std::string name = value.substr(from, comma - from);
            const auto kind = digest_kind_named(name);
            if (!kind) {
                throw Failure{k_exit_command_line,
                              formatted(tr("problem", "--hash: '%s' is none of md5, sha1, xxh64, xxh3 and xxh128"),
                                        name.c_str())};
            }
            set.add(*kind);
            from = comma + 1;
        }
    }
    return set.is_empty() ? otherwise : set;
}

}  // namespace tool
