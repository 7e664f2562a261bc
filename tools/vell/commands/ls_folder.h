// Reading folders for a person: every name, with what it is.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool {

enum class ListedKind { file, folder, link, other };

struct ListedName {
    std::string name;
    ListedKind kind;     ///< of what a link leads to; link when that is nothing
    bool is_link;        ///< the name itself is a symbolic link
    uint64_t size;       ///< of a file, in bytes
    int64_t modified_s;  ///< seconds since 1970
};

struct LsOptions {
    std::string path = ".";
    std::string pattern;  ///< empty: everything
    bool is_recursive = false;
    bool shows_hidden = false;  ///< names with a dot in front
    bool ignores_case = false;
    bool folds = true;
    bool is_json = false;
};

/// The names that the options ask for in one folder: folders first, then the rest, each in natural order.
struct ListedFolder {
    std::string below;  ///< path of the folder below where the listing began: empty, or with a "/" at its end
    std::vector<ListedName> names;
};

/// Hands every folder to `show`: the first, and with is_recursive those below it, natural order, links not followed.
/// A path that is no folder is shown as a folder with this one name. Throws a Failure when it cannot be examined.
/// @return  false when a folder further down could not be read; that was told on the standard error stream.
bool for_each_folder(const LsOptions& options, const std::function<void(const ListedFolder&)>& show);

}  // namespace tool
