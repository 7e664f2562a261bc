// Searches and deletions in trees: the same results as other programs, loops, links out of the tree, failures.

#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "file_faults.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "test_files.h"
#include "vellcore/directory_listing.h"
#include "vellcore/file_operations.h"

namespace fs = std::filesystem;

namespace {

using Paths = std::vector<std::string>;

Paths found(const std::string& folder, const char* pattern, bool recurse = true, uint32_t flags = 0) {
    dir_list* list = flist_findfiles(folder.c_str(), pattern, recurse, flags);
    if (list == nullptr) return {};
    Paths paths(list->files, list->files + list->file_count);
    flist_delete(list);
    return paths;
}

Paths sorted(Paths paths) {
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool exists(const std::string& path) {
    return fs::exists(fs::symlink_status(path));
}

/// A random tree with odd names; no links.
void grow_tree(std::mt19937& random, const std::string& folder, int depth) {
    static constexpr const char* k_names[] = {"a",           "b.dpx", " ",     "new\nline", "\"quote\"", "\xFF\xFE",
                                              "-rf",         "*",     "..odd", ".dot",      "[x]",       "$HOME",
                                              "back\\slash", "a.b.c", "~",     "%s"};
    for (size_t i = random() % 8; i > 0; --i) {
        const std::string path = folder + "/" + k_names[random() % std::size(k_names)] + std::to_string(random() % 3);
        if (depth > 0 && random() % 3 == 0) {
            if (mkdir(path.c_str(), 0777) == 0) grow_tree(random, path, depth - 1);
        } else {
            close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
        }
    }
}

TEST(FindFiles, FindsWhatTheCxxLibraryFindsInRandomTrees) {
    std::mt19937 random(99);
    size_t files = 0;
    for (int tree = 0; tree < 60; ++tree) {
        const TemporaryFolder folder;
        grow_tree(random, folder.path(), 4);
        Paths expected;
        for (auto at = fs::recursive_directory_iterator(folder.path()); at != fs::recursive_directory_iterator();
             ++at) {
            const std::string name = at->path().filename().string();
            if (at->is_directory() && name.substr(0, 2) == "..") at.disable_recursion_pending();
            if (at->is_regular_file() && wildcard_match(name.c_str(), "*[0-1]", true))
                expected.push_back(at->path().string());
        }
        files += expected.size();
        EXPECT_EQ(sorted(found(folder.path(), "*[0-1]")), sorted(expected));
    }
    EXPECT_GT(files, 300u);
}

/// What the find program prints, cut at its zero bytes.
Paths found_by_program(const std::string& folder, const std::string& pattern) {
    const std::string command = "LC_ALL=C find '" + folder +
                                "' -mindepth 1 -type d -name '..?*' -prune -o -type f -name '" + pattern + "' -print0";
    Paths paths(1);
    FILE* pipe = popen(command.c_str(), "r");
    for (int byte = fgetc(pipe); byte != EOF; byte = fgetc(pipe)) {
        if (byte == '\0')
            paths.emplace_back();
        else
            paths.back() += static_cast<char>(byte);
    }
    paths.pop_back();
    EXPECT_EQ(pclose(pipe), 0);
    return paths;
}

TEST(FindFiles, FindsWhatFindFinds) {
    std::mt19937 random(7);
    size_t files = 0;
    for (int tree = 0; tree < 12; ++tree) {
        const TemporaryFolder folder;
        grow_tree(random, folder.path(), 4);
        for (const char* pattern : {"*", "?*[12]", "*.*", "\\**", "*[a-m]*1", "?"}) {
            const Paths expected = sorted(found_by_program(folder.path(), pattern));
            EXPECT_EQ(sorted(found(folder.path(), pattern)), expected) << pattern;
            files += expected.size();
        }
    }
    EXPECT_GT(files, 100u);
}

TEST(FindFiles, ComesToTheFoldersOwnFilesFirst) {
    const TemporaryFolder folder;
    for (const char* name : {"sub/deep/z.dpx", "sub/m.dpx", "a.dpx", "b.txt", "Editor.app/in.dpx"})
        folder.write(name, "x");
    EXPECT_EQ(found(folder.path() + "/", "*.dpx"),
              (Paths{folder / "a.dpx", folder / "sub/m.dpx", folder / "sub/deep/z.dpx"}));
    EXPECT_EQ(found(folder.path(), "*.dpx", /*recurse*/ false), (Paths{folder / "a.dpx"}));
    EXPECT_EQ(found(folder.path(), "*.app"), (Paths{folder / "Editor.app"}));
    EXPECT_EQ(flist_findfiles(folder.path().c_str(), "nothing", true, 0), nullptr);
    EXPECT_EQ(flist_findfiles(nullptr, "*", true, 0), nullptr);
    EXPECT_EQ(flist_findfiles(folder.path().c_str(), nullptr, true, 0), nullptr);
}

TEST(FindFiles, ChoosesTheCaseByItsFlags) {
    const TemporaryFolder folder;
    folder.write("Shot.DPX", "x");
    const struct {
        uint32_t flags;
        bool matches;
    } cases[] = {{0, false}, {1, false}, {2, true}, {3, false}, {4, false}, {6, true}};
    for (const auto& c : cases)
        EXPECT_EQ(!found(folder.path(), "*.dpx", true, c.flags).empty(), c.matches) << c.flags;
}

TEST(FindFiles, EndsInLoopsOfLinks) {
    const TemporaryFolder folder, outside;
    folder.write("a/b/file", "x");
    outside.write("far", "x");
    ASSERT_EQ(symlink(".", (folder / "a/self").c_str()), 0);
    ASSERT_EQ(symlink("../..", (folder / "a/b/up").c_str()), 0);
    ASSERT_EQ(symlink(folder.path().c_str(), (folder / "a/top").c_str()), 0);
    ASSERT_EQ(symlink(outside.path().c_str(), (folder / "a/out").c_str()), 0);
    ASSERT_EQ(symlink("b", (folder / "a/c").c_str()), 0);
    EXPECT_EQ(sorted(found(folder.path(), "*")),
              (Paths{folder / "a/b/file", folder / "a/c/file", folder / "a/out/far"}))
        << "each file once per way to it that does not turn round";
}

TEST(FindFiles, LeavesOutPathsThatDoNotFit) {
    const TemporaryFolder folder;
    std::string path = folder.path();
    const std::string name(200, 'd');
    while (path.size() + 201 <= 1022) {
        path += "/" + name;
        ASSERT_EQ(mkdir(path.c_str(), 0777), 0);
    }
    const std::string fits(1023 - path.size() - 1, 'f');
    std::ofstream(path + "/" + fits) << "x";
    std::ofstream(path + "/" + fits + "g") << "x";
    EXPECT_EQ(found(folder.path(), "*"), (Paths{path + "/" + fits}));
    EXPECT_EQ(flist_findfiles(std::string(1024, 'x').c_str(), "*", true, 0), nullptr);
}

TEST(FindFiles, GoesOnPastFoldersThatCannotBeRead) {
    const TemporaryFolder folder;
    for (const char* name : {"a/one", "b/two", "c/three", "top"})
        folder.write(name, "x");
    int attempts = 0;
    for_each_file_fault(EIO, [&](const FileFault& fault) {
        const LogCapture log;
        const int descriptors = open_descriptors();
        const Paths paths = found(folder.path(), "*");
        EXPECT_EQ(open_descriptors(), descriptors);
        EXPECT_LE(paths.size(), 4u);
        for (const std::string& path : paths)
            EXPECT_TRUE(exists(path)) << path;
        EXPECT_TRUE(fault.has_fired() || paths.size() == 4);
        EXPECT_TRUE(!paths.empty() || log.contains("ERROR: Find, can't open directory: '" + folder.path()));
        ++attempts;
    });
    EXPECT_GT(attempts, 15);
}

TEST(FindFiles, SearchesDeepTreesWithFewDescriptors) {
    const TemporaryFolder folder;
    std::string path = folder.path();
    for (int i = 0; i < 300; ++i) {
        path += "/d";
        ASSERT_EQ(mkdir(path.c_str(), 0777), 0);
        ASSERT_EQ(mkdir((path + "/e").c_str(), 0777), 0);
        std::ofstream(path + "/e/file") << "x";
    }
    static int most_open;
    most_open = 0;
    vell::file_calls.openat = [](int at, const char* name, int flags) {
        const int descriptor = vell::system_file_calls.openat(at, name, flags);
        most_open = std::max(most_open, descriptor);
        return descriptor;
    };
    const int before = open_descriptors();
    EXPECT_EQ(found(folder.path(), "file").size(), 300u);
    vell::file_calls = vell::system_file_calls;
    EXPECT_LT(most_open, before + 60);
}

TEST(FileSearch, FindsTheFirstRegularFileOfAName) {
    const TemporaryFolder folder;
    folder.write("one/two/wanted", "x");
    folder.write("Editor.app/bundled", "x");
    ASSERT_EQ(mkdir((folder / "wanted").c_str(), 0777), 0);
    ASSERT_EQ(symlink("..", (folder / "one/up").c_str()), 0);
    char out[1024];
    EXPECT_EQ(file_search((folder.path() + "/").c_str(), "any/where/wanted", out, sizeof out), 1);
    EXPECT_EQ(out, folder / "one/two/wanted") << "folders of the name do not count";
    folder.write("one/wanted", "x");
    EXPECT_EQ(file_search(folder.path().c_str(), "wanted", out, sizeof out), 1);
    EXPECT_EQ(out, folder / "one/wanted");
    EXPECT_EQ(file_search(folder.path().c_str(), "bundled", out, sizeof out), 0);
    const auto length = static_cast<int>((folder / "one/wanted").size());
    EXPECT_EQ(file_search(folder.path().c_str(), "wanted", out, length + 1), 1);
    EXPECT_EQ(file_search(folder.path().c_str(), "wanted", out, length), 0);
    EXPECT_STREQ(out, "");
    const std::string file = folder / "one/wanted";
    for (const char* bad : {"", "absent/", file.c_str()})
        EXPECT_EQ(file_search(bad, "wanted", out, sizeof out), 0) << bad;
    EXPECT_EQ(file_search(folder.path().c_str(), "one/", out, sizeof out), 0);
    EXPECT_EQ(file_search(nullptr, "x", out, sizeof out) + file_search("/", nullptr, out, sizeof out), 0);
    EXPECT_EQ(file_search("/", "x", nullptr, 5) + file_search("/", "x", out, 0), 0);
}

TEST(FileDeleteDirectory, DeletesRandomTreesWhole) {
    std::mt19937 random(4);
    for (int tree = 0; tree < 60; ++tree) {
        const TemporaryFolder folder;
        mkdir((folder / "tree").c_str(), 0777);
        grow_tree(random, folder / "tree", 5);
        EXPECT_EQ(file_delete_directory((folder / (tree % 2 == 0 ? "tree" : "tree//")).c_str(), true), 1);
        EXPECT_FALSE(exists(folder / "tree"));
    }
}

TEST(FileDeleteDirectory, StaysInsideTheTree) {
    const TemporaryFolder folder, outside;
    const std::string kept = outside.write("sub/kept", "x");
    folder.write("tree/file", "x");
    ASSERT_EQ(symlink(outside.path().c_str(), (folder / "tree/out").c_str()), 0);
    ASSERT_EQ(symlink(kept.c_str(), (folder / "tree/kept").c_str()), 0);
    ASSERT_EQ(symlink("..", (folder / "tree/up").c_str()), 0);
    ASSERT_EQ(symlink("absent", (folder / "tree/dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((folder / "tree/pipe").c_str(), 0666), 0);
    EXPECT_EQ(file_delete_directory((folder / "tree").c_str(), true), 1);
    EXPECT_FALSE(exists(folder / "tree"));
    EXPECT_TRUE(exists(kept));
}

TEST(FileDeleteDirectory, DecidesByWhatThePathNames) {
    const TemporaryFolder folder, outside;
    const std::string kept = outside.write("kept", "x");
    folder.write("neighbour", "x");
    folder.write("file", "x");
    folder.write("flat/a", "x");
    folder.write("nested/a", "x");
    folder.write("nested/sub/b", "x");
    folder.write("x.app/inside", "x");
    ASSERT_EQ(mkdir((folder / "empty").c_str(), 0777), 0);
    for (const char* link : {"link", "link2"})
        ASSERT_EQ(symlink(outside.path().c_str(), (folder / link).c_str()), 0);
    const struct {
        const char* name;
        bool recursive;
        int32_t result;
        bool remains;
    } cases[] = {
        {"absent", true, -1, false},  {"absent/x", true, -1, false}, {"file", true, 1, false},
        {"file", true, -1, false},    {"link", true, 1, false},      {"link2/", true, 1, false},
        {"empty", false, 1, false},   {"flat", false, 1, false},     {"nested", false, -1, true},
        {"nested/.", true, -1, true}, {"nested/..", true, -1, true}, {"x.app", true, 1, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(file_delete_directory((folder / c.name).c_str(), c.recursive), c.result) << c.name;
        EXPECT_EQ(exists(folder / c.name), c.remains) << c.name;
    }
    EXPECT_FALSE(exists(folder / "nested/a")) << "files go first when subfolders stay";
    EXPECT_TRUE(exists(folder / "nested/sub/b") && exists(folder / "neighbour") && exists(kept));
    EXPECT_EQ(file_delete_directory(nullptr, true), -1);
    EXPECT_EQ(file_delete_directory(std::string(5000, 'x').c_str(), true), -1);
}

TEST(FileDeleteDirectory, RefusesTheRootAndDots) {
    static bool was_tried;
    was_tried = false;
    vell::file_calls.unlinkat = [](int, const char*, int) { return was_tried = true, errno = EPERM, -1; };
    for (const char* bad : {"", "/", "//", ".", "..", "/.", "/..", "/tmp/.."})
        EXPECT_EQ(file_delete_directory(bad, true), -1) << bad;
    vell::file_calls = vell::system_file_calls;
    EXPECT_FALSE(was_tried);
}

TEST(FileDeleteDirectory, StopsAtTheFirstFileButNotAtASubfolder) {
    const TemporaryFolder folder;
    for (const char* name : {"tree/a/stays.app/x", "tree/b/goes", "tree/1", "tree/2"})
        folder.write(name, "x");
    EXPECT_EQ(file_delete_directory((folder / "tree").c_str(), true), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(exists(folder / "tree/a/stays.app/x"));
    EXPECT_FALSE(exists(folder / "tree/b") || exists(folder / "tree/1"));
    static int calls;
    calls = 0;
    for (const char* name : {"flat/1", "flat/2", "flat/10"})
        folder.write(name, "x");
    vell::file_calls.unlinkat = [](int at, const char* name, int flags) {
        return ++calls == 2 ? (errno = EPERM, -1) : vell::system_file_calls.unlinkat(at, name, flags);
    };
    EXPECT_EQ(file_delete_directory((folder / "flat").c_str(), true), -1);
    EXPECT_EQ(errno, EPERM);
    vell::file_calls = vell::system_file_calls;
    EXPECT_FALSE(exists(folder / "flat/1"));
    EXPECT_TRUE(exists(folder / "flat/2") && exists(folder / "flat/10"));
}

TEST(FileDeleteDirectory, FailsCleanlyAtEveryCall) {
    int attempts = 0;
    const TemporaryFolder outside;
    outside.write("kept/x", "x");
    for_each_file_fault(EIO, [&](const FileFault& fault) {
        const TemporaryFolder folder;
        for (const char* name : {"tree/a/1", "tree/a/b/2", "tree/c/3"})
            folder.write(name, "x");
        ASSERT_EQ(symlink(outside.path().c_str(), (folder / "tree/a/out").c_str()), 0);
        const int descriptors = open_descriptors();
        const int32_t result = file_delete_directory((folder / "tree").c_str(), true);
        EXPECT_EQ(open_descriptors(), descriptors);
        EXPECT_EQ(result == 1, !exists(folder / "tree"));
        EXPECT_TRUE(fault.has_fired() || result == 1);
        EXPECT_TRUE(exists(outside / "kept/x"));
        ++attempts;
    });
    EXPECT_GT(attempts, 20);
}

/// Exchanges two paths when the deletion opens or removes a certain name.
struct Exchange {
    std::string at, with;
    void run() const {
        ASSERT_EQ(rename(at.c_str(), (at + ".moved").c_str()), 0);
        ASSERT_EQ(symlink(with.c_str(), at.c_str()), 0);
    }
    static inline Exchange* pending = nullptr;
};

TEST(FileDeleteDirectory, CannotBeRedirectedByAnExchangedPath) {
    for (const char* exchanged : {"above", "above/tree", "above/tree/sub"}) {
        const TemporaryFolder folder, outside;
        for (const char* name : {"above/tree/sub/deep/1", "above/tree/sub/2", "above/tree/3"})
            folder.write(name, "x");
        for (const char* name : {"tree/sub/deep/1", "sub/deep/1", "deep/1", "1", "2", "3"})
            outside.write(name, "x");
        Exchange exchange{folder / exchanged, outside.path()};
        Exchange::pending = &exchange;
        vell::file_calls.unlinkat = [](int at, const char* name, int flags) {
            if (Exchange::pending != nullptr) std::exchange(Exchange::pending, nullptr)->run();
            return vell::system_file_calls.unlinkat(at, name, flags);
        };
        file_delete_directory((folder / "above/tree").c_str(), true);
        vell::file_calls = vell::system_file_calls;
        EXPECT_EQ(found(outside.path(), "*").size(), 6u) << exchanged;
        EXPECT_FALSE(exists(folder / (std::string(exchanged) + ".moved/deep/1")));
    }
}

// Deeper than descriptors go, and than one path can name.
TEST(FileDeleteDirectory, DeletesVeryDeepTrees) {
    const TemporaryFolder folder;
    int at = open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string name(100, 'd');
    for (int i = 0; i < 1500; ++i) {
        ASSERT_EQ(mkdirat(at, name.c_str(), 0777), 0);
        const int next = openat(at, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(openat(next, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
        close(at);
        at = next;
    }
    close(at);
    EXPECT_EQ(file_delete_directory((folder / name).c_str(), true), 1);
    EXPECT_FALSE(exists(folder / name));
}

}  // namespace
