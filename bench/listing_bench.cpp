// Listing, searching, sorting and matching names, beside what a user would take instead.
//
// Two trees are made in VELLCORE_BENCH_FOLDER (the system's temporary folder) and removed at the end: one folder of
// VELLCORE_BENCH_FILES files (100,000), and a tree of twice as many in 2000 folders. Everything runs with what the
// system has in its cache; every peer that lists also asks for the modification times, as a list has them. `find`,
// `ls` and `sort` run as child processes, their output thrown away.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <fts.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vellcore/directory_listing.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t k_folders = 2000;

size_t files_in_folder() {
    const char* wanted = std::getenv("VELLCORE_BENCH_FILES");
    const long files = wanted != nullptr ? std::atol(wanted) : 0;
    return files > 0 ? static_cast<size_t>(files) : 100'000;
}

void make_file(const std::string& path) {
    const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
    if (file < 0) std::abort();
    close(file);
}

std::string frame_name(size_t number) {
    return (number % 2 == 0 ? "shot_" : "plate_") + std::to_string(number * 7919 % 1'000'003) + ".dpx";
}

/// The trees of this run, removed at its end.
class Trees {
public:
    Trees() {
        const char* folder = std::getenv("VELLCORE_BENCH_FOLDER");
        root_ =
            (folder != nullptr ? std::string(folder) : fs::temp_directory_path().string()) + "/vellcore-bench-XXXXXX";
        if (mkdtemp(root_.data()) == nullptr) std::abort();
        fs::create_directories(flat());
        for (size_t i = 0; i < files_in_folder(); ++i)
            make_file(flat() + "/" + frame_name(i));
        const size_t in_each = std::max<size_t>(1, 2 * files_in_folder() / k_folders);
        for (size_t i = 0; i < k_folders; ++i) {
            const std::string sub = tree() + "/reel" + std::to_string(i / 100) + "/take" + std::to_string(i % 100);
            fs::create_directories(sub);
            for (size_t f = 0; f < in_each; ++f)
                make_file(sub + "/" + frame_name(f * 3));
        }
    }
    ~Trees() { fs::remove_all(root_); }
    Trees(const Trees&) = delete;
    Trees& operator=(const Trees&) = delete;

    std::string flat() const { return root_ + "/flat"; }
    std::string tree() const { return root_ + "/tree"; }

private:
    std::string root_;
};

const Trees& trees() {
    static const Trees made;
    return made;
}

void expect_count(benchmark::State& state, size_t count, size_t expected) {
    if (count != expected) state.SkipWithError("a different number of names");
}

void run_program(benchmark::State& state, const std::string& command) {
    for (auto _ : state)
        if (std::system((command + " > /dev/null").c_str()) != 0) state.SkipWithError("the program failed");
}

// --- One folder ---------------------------------------------------------------------------------------------------

void list_folder(benchmark::State& state, int32_t mode) {
    const std::string path = trees().flat();
    for (auto _ : state) {
        dir_list* list = flist_new(path.c_str(), mode);
        expect_count(state, static_cast<size_t>(list->entry_count), files_in_folder());
        flist_delete(list);
    }
}

struct NamedTime {
    std::string name;
    int64_t time;
};

std::vector<NamedTime> list_with_readdir(const std::string& path) {
    std::vector<NamedTime> names;
    DIR* folder = opendir(path.c_str());
    while (const dirent* entry = readdir(folder)) {
        struct stat facts {};
        if (entry->d_name[0] == '.' || fstatat(dirfd(folder), entry->d_name, &facts, 0) != 0) continue;
        names.push_back({entry->d_name, facts.st_mtime});
    }
    closedir(folder);
    return names;
}

std::vector<NamedTime> list_with_filesystem(const std::string& path) {
    std::vector<NamedTime> names;
    for (const auto& entry : fs::directory_iterator(path))
        names.push_back({entry.path().filename().string(), entry.last_write_time().time_since_epoch().count()});
    return names;
}

void list_as(benchmark::State& state, std::vector<NamedTime> (*list)(const std::string&), bool sorts) {
    const std::string path = trees().flat();
    for (auto _ : state) {
        std::vector<NamedTime> names = list(path);
        if (sorts)
            std::sort(names.begin(), names.end(),
                      [](auto& a, auto& b) { return strverscmp(a.name.c_str(), b.name.c_str()) < 0; });
        expect_count(state, names.size(), files_in_folder());
    }
}

// --- A tree -------------------------------------------------------------------------------------------------------

size_t files_in_tree() {
    return std::max<size_t>(1, 2 * files_in_folder() / k_folders) * k_folders;
}

void search_tree(benchmark::State& state, const char* pattern, size_t expected) {
    const std::string path = trees().tree();
    for (auto _ : state) {
        dir_list* list = flist_findfiles(path.c_str(), pattern, /*recurse*/ true, FLIST_CASE_SENSITIVE);
        expect_count(state, list != nullptr ? static_cast<size_t>(list->file_count) : 0, expected);
        flist_delete(list);
    }
}

void search_with_filesystem(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<NamedTime> names;
        for (const auto& entry : fs::recursive_directory_iterator(trees().tree()))
            if (entry.is_regular_file())
                names.push_back({entry.path().string(), entry.last_write_time().time_since_epoch().count()});
        expect_count(state, names.size(), files_in_tree());
    }
}

void search_with_fts(benchmark::State& state) {
    std::string path = trees().tree();
    for (auto _ : state) {
        char* roots[] = {path.data(), nullptr};
        std::vector<NamedTime> names;
        FTS* walk = fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr);
        while (const FTSENT* entry = fts_read(walk))
            if (entry->fts_info == FTS_F) names.push_back({entry->fts_path, entry->fts_statp->st_mtime});
        fts_close(walk);
        expect_count(state, names.size(), files_in_tree());
    }
}

void search_with_nftw(benchmark::State& state) {
    static std::vector<NamedTime> names;
    for (auto _ : state) {
        names.clear();
        nftw(
            trees().tree().c_str(),
            [](const char* path, const struct stat* facts, int type, FTW*) {
                if (type == FTW_F) names.push_back({path, facts->st_mtime});
                return 0;
            },
            64, FTW_PHYS);
        expect_count(state, names.size(), files_in_tree());
    }
}

// --- Sorting and matching -------------------------------------------------------------------------------------------

std::vector<std::string> shuffled_names() {
    std::vector<std::string> names(files_in_folder());
    for (size_t i = 0; i < names.size(); ++i)
        names[i] = frame_name(i);
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    return names;
}

void sort_list(benchmark::State& state) {
    const std::vector<std::string> names = shuffled_names();
    auto* list = static_cast<dir_list*>(std::calloc(1, sizeof(dir_list)));
    for (const std::string& name : names)
        flist_add_file(list, name.c_str(), 0);
    const std::vector<char*> unsorted(list->files, list->files + list->file_count);
    for (auto _ : state) {
        std::copy(unsorted.begin(), unsorted.end(), list->files);
        flist_sort(list, FLIST_BY_NAME);
    }
    flist_delete(list);
}

template <class IsBefore>
void sort_pointers(benchmark::State& state, IsBefore is_before) {
    const std::vector<std::string> names = shuffled_names();
    std::vector<const char*> unsorted;
    for (const std::string& name : names)
        unsorted.push_back(name.c_str());
    for (auto _ : state) {
        std::vector<const char*> sorted = unsorted;
        std::sort(sorted.begin(), sorted.end(), is_before);
        benchmark::DoNotOptimize(sorted.data());
    }
}

void sort_with_program(benchmark::State& state) {
    const std::string file = trees().flat() + "/../names";
    std::ofstream out(file);
    for (const std::string& name : shuffled_names())
        out << name << '\n';
    out.close();
    run_program(state, "LC_ALL=C sort -V '" + file + "'");
}

struct Match {
    const char* name;
    const char* pattern;
};
const Match k_matches[] = {
    {"shot_0100_plate_v003.001042.dpx", "shot_*_v???.*.dpx"},
    {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "*a*a*a*b"},
    {"shot_0100_plate_v003.001042.dpx", "*[0-9][0-9].dpx"},
};

template <class Matches>
void match_names(benchmark::State& state, Matches matches) {
    for (auto _ : state)
        for (const Match& match : k_matches)
            benchmark::DoNotOptimize(matches(match.name, match.pattern));
}

const auto k_registered = [] {
    const auto add = [](const char* name, auto run) {
        benchmark::RegisterBenchmark(name, run)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    add("list/vellcore", [](benchmark::State& s) { list_folder(s, FLIST_UNSORTED); });
    add("list/readdir+fstatat", [](benchmark::State& s) { list_as(s, list_with_readdir, false); });
    add("list/std::filesystem", [](benchmark::State& s) { list_as(s, list_with_filesystem, false); });
    add("list/find", [](benchmark::State& s) { run_program(s, "find '" + trees().flat() + "' -printf '%p %T@\\n'"); });
    add("list/ls-U", [](benchmark::State& s) { run_program(s, "ls -lU --time-style=+%s '" + trees().flat() + "'"); });
    add("list+sort/vellcore", [](benchmark::State& s) { list_folder(s, FLIST_BY_NAME); });
    add("list+sort/readdir+strverscmp", [](benchmark::State& s) { list_as(s, list_with_readdir, true); });
    add("list+sort/std::filesystem+strverscmp", [](benchmark::State& s) { list_as(s, list_with_filesystem, true); });
    add("list+sort/ls-v",
        [](benchmark::State& s) { run_program(s, "LC_ALL=C ls -lv --time-style=+%s '" + trees().flat() + "'"); });
    add("search all/vellcore", [](benchmark::State& s) { search_tree(s, "*", files_in_tree()); });
    add("search all/std::filesystem", search_with_filesystem);
    add("search all/fts", search_with_fts);
    add("search all/nftw", search_with_nftw);
    add("search all/find",
        [](benchmark::State& s) { run_program(s, "find '" + trees().tree() + "' -type f -printf '%p %T@\\n'"); });
    add("search one/vellcore", [](benchmark::State& s) { search_tree(s, "shot_0.dpx", k_folders); });
    add("search one/find", [](benchmark::State& s) {
        run_program(s, "find '" + trees().tree() + "' -type f -name shot_0.dpx -printf '%p %T@\\n'");
    });
    add("sort names/vellcore", sort_list);
    add("sort names/strverscmp", [](benchmark::State& s) {
        sort_pointers(s, [](const char* a, const char* b) { return strverscmp(a, b) < 0; });
    });
    add("sort names/file_namecmp", [](benchmark::State& s) {
        sort_pointers(s, [](const char* a, const char* b) { return file_namecmp(a, b) < 0; });
    });
    add("sort names/sort-V", sort_with_program);
    benchmark::RegisterBenchmark("match/vellcore", [](benchmark::State& s) {
        match_names(s, [](const char* name, const char* pattern) { return wildcard_match(name, pattern, true); });
    });
    benchmark::RegisterBenchmark("match/fnmatch", [](benchmark::State& s) {
        match_names(s, [](const char* name, const char* pattern) { return fnmatch(pattern, name, 0) == 0; });
    });
    return true;
}();

}  // namespace
