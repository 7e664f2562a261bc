#include "offload/offload_plan.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include "offload/sum_list.h"

namespace tool {
namespace {

using FileIdentity = std::pair<dev_t, ino_t>;

FileIdentity identity_of(const struct stat& facts) {
    return {facts.st_dev, facts.st_ino};
}

[[noreturn]] void refuse(const std::string& path, Problem problem) {
    throw JobRefused{std::move(problem), path};
}

[[noreturn]] void refuse(const std::string& path, ProblemKind kind) {
    refuse(path, Problem{.kind = kind});
}

/// A path whose last parts need not exist yet.
struct Place {
    std::string path;
    std::vector<FileIdentity> chain;  ///< the nearest folder that exists, its parent, and so on to the root
    std::string missing;              ///< what comes below the first of the chain; "" when the path exists
};

std::vector<FileIdentity> parents_of(Descriptor folder) {
    std::vector<FileIdentity> chain;
    struct stat facts {};
    while (folder.is_open() && fstat(folder.get(), &facts) == 0) {
        if (!chain.empty() && chain.back() == identity_of(facts)) break;  // the root is its own parent
        chain.push_back(identity_of(facts));
        folder = Descriptor(openat(folder.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    return chain;
}

std::string without_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

Place find_place(const std::string& path) {
    Place place{path, {}, ""};
    std::string existing = without_slashes(path);
    struct stat facts {};
    while (stat(existing.c_str(), &facts) != 0) {
        if (errno != ENOENT) refuse(path, system_problem(errno));
        if (lstat(existing.c_str(), &facts) == 0) refuse(path, ProblemKind::dangling_link);
        const std::string last(name_of(existing));
        if (last == ".." || last == ".") refuse(path, system_problem(ENOENT));
        place.missing = joined_path(last, place.missing);
        if (place.missing.back() == '/') place.missing.pop_back();
        const size_t slash = existing.rfind('/');
        existing = slash == std::string::npos ? "." : without_slashes(existing.substr(0, std::max<size_t>(slash, 1)));
    }
    if (!S_ISDIR(facts.st_mode)) refuse(path, ProblemKind::not_a_folder);
    place.chain = parents_of(Descriptor(open(existing.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
    if (place.chain.empty()) refuse(path, system_problem(errno));
    return place;
}

bool contains(const std::vector<FileIdentity>& chain, const FileIdentity& identity) {
    return std::find(chain.begin(), chain.end(), identity) != chain.end();
}

/// True when `inner` is `outer` or lies in it.
bool lies_in(const Place& inner, const Place& outer) {
    if (outer.missing.empty()) return contains(inner.chain, outer.chain.front());
    const bool has_same_start = inner.chain.front() == outer.chain.front();
    return has_same_start && (inner.missing + "/").starts_with(outer.missing + "/");
}

/// The source's name as a chain of folders; the first is the source itself where that is a folder.
Place find_source(const std::string& path) {
    struct stat facts {};
    if (lstat(path.c_str(), &facts) != 0) refuse(path, system_problem(errno));
    if (stat(path.c_str(), &facts) != 0) refuse(path, system_problem(errno));
    if (S_ISDIR(facts.st_mode)) return find_place(path);
    if (!S_ISREG(facts.st_mode)) refuse(path, {.kind = ProblemKind::unsuitable_kind, .mode = facts.st_mode});
    const std::string folder(folder_of(path));
    Place place = find_place(folder.empty() ? (path.front() == '/' ? "/" : ".") : folder);
    place.path = path;
    return place;
}

bool is_own_name(const OffloadOptions& options, std::string_view path) {
    if (is_temporary_name(name_of(path)) || path == k_journal_name) return true;
    const auto kinds = options.digests.kinds();
    return std::any_of(kinds.begin(), kinds.end(),
                       [path](DigestKind kind) { return path == names_of(kind).list_name; });
}

void list_folder(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan) {
    struct stat facts {};
    const bool is_destination = disk_calls.facts(plan.source.folder.get(), k_journal_name, &facts) == 0;
    plan.contents = list_tree(plan.source.folder.get(), nullptr, [&cancel] { return is_set(cancel); });
    std::erase_if(plan.contents.files, [&](const FileEntry& file) {
        if (!is_own_name(options, file.path)) return false;
        // A list that was there before any offload is the user's and would be lost.
        const bool is_foreign = !is_destination && !is_temporary_name(name_of(file.path));
        plan.contents.left_out.push_back(
            {file.path,
             is_foreign ? Problem{.kind = ProblemKind::own_name} : Problem{.kind = ProblemKind::offload_leftover},
             is_foreign});
        return true;
    });
}

void list_file(const OffloadOptions& options, OffloadPlan& plan) {
    const std::string& path = options.source;
    const std::string name(name_of(path));
    struct stat facts {};
    if (disk_calls.facts(plan.source.folder.get(), name.c_str(), &facts) != 0) {
        refuse(path, system_problem(errno));
    }
    if (!S_ISREG(facts.st_mode)) refuse(path, {.kind = ProblemKind::unsuitable_kind, .mode = facts.st_mode});
    if (is_own_name(options, name)) refuse(path, ProblemKind::own_name);
    plan.contents.files.push_back(
        {name, static_cast<uint64_t>(facts.st_size), nanoseconds_of(facts.st_mtim), facts.st_mode});
}

}  // namespace

void refuse_overlaps(const OffloadOptions& options) {
    if (options.destinations.size() > k_max_destinations) {
        refuse("", {.kind = ProblemKind::too_many_destinations,
                    .first = options.destinations.size(),
                    .second = k_max_destinations});
    }
    const Place source = find_source(options.source);
    struct stat facts {};
    const bool is_folder = stat(options.source.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
    std::vector<Place> places;
    for (const std::string& path : options.destinations) {
        if (path.empty()) refuse("", ProblemKind::unnamed_destination);
        const Place place = find_place(path);
        if (is_folder && lies_in(place, source)) {
            refuse(path, ProblemKind::inside_source);
        }
        if (lies_in(source, place)) refuse(path, ProblemKind::source_inside);
        for (const Place& other : places) {
            if (lies_in(place, other) || lies_in(other, place)) {
                throw JobRefused{{.kind = ProblemKind::destinations_overlap}, path, other.path};
            }
        }
        places.push_back(place);
    }
}

void list_source(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan) {
    const std::string& path = options.source;
    plan.source.path = path;
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) refuse(path, system_problem(errno));
    const bool is_folder = S_ISDIR(facts.st_mode);
    const std::string folder(folder_of(path));
    const std::string root = is_folder ? path : folder.empty() ? (path.front() == '/' ? "/" : ".") : folder;
    plan.source.folder = Descriptor(disk_calls.open(AT_FDCWD, root.c_str(), O_RDONLY | O_DIRECTORY, 0));
    if (!plan.source.folder.is_open()) {
        refuse(root, problem_with(ProblemKind::source_unopenable, errno));
    }
    if (is_folder) {
        list_folder(options, cancel, plan);
    } else {
        list_file(options, plan);
    }
}

void open_destinations(const OffloadOptions& options, OffloadPlan& plan) {
    for (const std::string& path : options.destinations) {
        plan.destinations.push_back(std::make_unique<Destination>(without_slashes(path)));
        plan.destinations.back()->open();
    }
}

void remove_leftovers(const OffloadPlan& plan) {
    for (const auto& destination : plan.destinations) {
        if (destination->is_dropped() || !destination->has_history()) continue;
        for (size_t i = 0; i <= plan.contents.folders.size(); ++i) {
            const std::string path = i == 0 ? "" : plan.contents.folders[i - 1].path;
            const Descriptor folder = open_folder(destination->root(), path);
            std::vector<std::string> names;
            if (!folder.is_open() || read_names(folder.get(), names) != 0) continue;
            for (const std::string& name : names) {
                if (is_temporary_name(name)) disk_calls.remove(folder.get(), name.c_str());
            }
        }
    }
}

void check_space(const OffloadOptions& options, const OffloadPlan& plan) {
    struct Volume {
        uint64_t wanted = 0, free = 0;
        std::string path;
    };
    std::map<dev_t, Volume> volumes;
    for (const auto& destination : plan.destinations) {
        struct stat facts {};
        struct statvfs space {};
        if (destination->is_dropped() || disk_calls.file_facts(destination->root(), &facts) != 0) continue;
        if (disk_calls.space(destination->root(), &space) != 0) continue;  // then the copy finds out
        Volume& volume = volumes[facts.st_dev];
        volume.free = uint64_t{space.f_frsize} * space.f_bavail;
        volume.path = destination->path();
        const uint64_t unit = std::max<uint64_t>(space.f_frsize, 1);
        for (const FileEntry& file : plan.contents.files) {
            if (destination->find_proven(file, options.digests, options.verifies) == nullptr &&
                (options.overwrites || !destination->has_file(file.path, file.bytes))) {
                volume.wanted += (file.bytes + unit - 1) / unit * unit;
            }
        }
    }
    for (const auto& [device, volume] : volumes) {
        if (volume.wanted <= volume.free) continue;
        refuse(volume.path, {.kind = ProblemKind::no_space, .first = volume.wanted, .second = volume.free});
    }
}

}  // namespace tool
