// Lists of folders: contents beside what the C++ library sees, odd entries, the name pool and its flush.

#include "vellcore/directory_listing.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "file_faults.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "test_files.h"
#include "vellcore/file_operations.h"

namespace {

struct DeleteList {
    void operator()(dir_list* list) const { flist_delete(list); }
};
using List = std::unique_ptr<dir_list, DeleteList>;

List list_of(const std::string& path, int32_t mode = FLIST_UNSORTED) {
    return List(flist_new(path.c_str(), mode));
}
List empty_list() {
    return List(static_cast<dir_list*>(std::calloc(1, sizeof(dir_list))));
}

std::set<std::string> set_of(char* const* names, int32_t count) {
    return {names, names + count};
}
std::set<std::string> files_of(const List& list) {
    return set_of(list->files, list->file_count);
}
std::set<std::string> folders_of(const List& list) {
    return set_of(list->directories, list->directory_count);
}

using Names = std::set<std::string>;

/// What the folder holds, in its own order.
std::vector<std::string> own_names(const std::string& path) {
    std::vector<std::string> names;
    DIR* stream = opendir(path.c_str());
    while (const dirent* entry = readdir(stream))
        names.emplace_back(entry->d_name);
    closedir(stream);
    return names;
}

TEST(FlistNew, TellsFilesFoldersBundlesAndLinksApart) {
    const TemporaryFolder folder;
    for (const char* name : {"file", ".hidden", "sub/x", "..odd/x", ".visible/x", "Editor.app/x"})
        folder.write(name, "x");
    ASSERT_EQ(symlink("sub", (folder / "link").c_str()), 0);
    ASSERT_EQ(symlink("file", (folder / "alias").c_str()), 0);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    const List list = list_of(folder.path() + "/");
    EXPECT_EQ(list->path, folder.path());
    EXPECT_EQ(files_of(list), (Names{"file", ".hidden", "Editor.app", "alias", "pipe"}));
    EXPECT_EQ(folders_of(list), (Names{"sub", ".visible", "link"})) << "two dots in front are left out";
    EXPECT_EQ(list->entry_count, list->file_count + list->directory_count);
    for (int32_t i = 0; i < list->entry_count; ++i) {
        const _file_entry& entry = list->entries[i];
        struct stat facts {};
        stat((folder / entry.name).c_str(), &facts);
        EXPECT_EQ(entry.date, facts.st_mtime) << entry.name;
        EXPECT_EQ(entry.length, static_cast<int>(strlen(entry.name)) + entry.is_directory) << entry.name;
    }
}

// Long enough for several batches and for the second thread.
TEST(FlistNew, ListsLargeFoldersInTheFoldersOwnOrder) {
    const TemporaryFolder folder;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = folder / (std::string(static_cast<size_t>(i % 120), 'n') + std::to_string(i));
        if (i % 50 == 0)
            mkdir(name.c_str(), 0777);
        else
            close(open(name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
    }
    std::vector<std::string> expected = own_names(folder.path());
    std::erase_if(expected, [](const std::string& name) { return name[0] == '.'; });
    const List list = list_of(folder.path());
    ASSERT_EQ(list->entry_count, 3000);
    for (int32_t i = 0; i < 3000; ++i) {
        EXPECT_EQ(list->entries[i].name, expected[static_cast<size_t>(i)]);
        EXPECT_NE(list->entries[i].date, 0);
    }
    EXPECT_EQ(list->directory_count, 60);
}

TEST(FlistNew, ListsTheFolderAboveWhatIsNone) {
    const TemporaryFolder folder;
    folder.write("sub/a", "x");
    folder.write("sub/Editor.app/inside", "x");
    for (const char* name : {"sub/a", "sub/absent", "sub/Editor.app", "sub\\"}) {
        const List list = list_of(folder / name);
        EXPECT_EQ(list->path, folder / "sub") << name;
        EXPECT_EQ(files_of(list), (Names{"a", "Editor.app"})) << name;
    }
    EXPECT_EQ(flist_new(nullptr, 0), nullptr);
    EXPECT_EQ(flist_new(std::string(1022, 'x').c_str(), 0), nullptr);
    EXPECT_NE(list_of("/" + std::string(1020, 'x')), nullptr);
}

TEST(FlistNew, WarnsOfAFolderThatCannotBeRead) {
    const TemporaryFolder folder;
    folder.write("a", "x");
    const LogCapture log;
    int lists = 0;
    for_each_file_fault(EACCES, [&](const FileFault& fault) {
        const int descriptors = open_descriptors();
        const List list = list_of(folder.path());
        ++lists;
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(open_descriptors(), descriptors);
        EXPECT_TRUE(fault.has_fired() || files_of(list) == Names{"a"});
    });
    EXPECT_GT(lists, 4) << "open, two reads and the facts are refused";
    EXPECT_TRUE(log.contains("ERROR: Can't open directory: '" + folder.path() + "'"));
}

// The first names of a folder may be the ones that cannot be examined; later ones repeat the entry before them.
TEST(FlistNew, RepeatsTheEntryBeforeOneThatCannotBeExamined) {
    const TemporaryFolder folder;
    for (const char* name : {"a", "b", "c"})
        folder.write(name, "x");
    const std::vector<std::string> own_order = own_names(folder.path());
    static size_t refused, calls;
    for (refused = 1; refused <= own_order.size(); ++refused) {
        calls = 0;
        vell::file_calls.entry_facts = [](int at, const char* name, bool follows, vell::EntryFacts* facts) {
            return ++calls <= refused ? (errno = EIO, -1)
                                      : vell::system_file_calls.entry_facts(at, name, follows, facts);
        };
        const LogCapture log(MSG_DEBUG);
        const auto known = std::count_if(own_order.begin() + static_cast<ptrdiff_t>(refused), own_order.end(),
                                         [](const std::string& name) { return name[0] != '.'; });
        EXPECT_EQ(list_of(folder.path())->entry_count, known) << "nothing comes before the first that is known";
        EXPECT_TRUE(
            log.contains("Error statting file: " + folder.path() + "/" + own_order[0] + " (Input/output error)"));
    }
    vell::file_calls = vell::system_file_calls;
    ASSERT_EQ(symlink("absent", (folder / "dangling").c_str()), 0);
    const List list = list_of(folder.path());
    EXPECT_LE(list->entry_count, 4);
    EXPECT_EQ(files_of(list), (Names{"a", "b", "c"}));
}

TEST(FlistAdd, KeepsNamesOfEveryLength) {
    std::vector<std::string> names;
    for (const size_t length : {1U, 61U, 62U, 63U, 64U, 65U, 255U, 1023U, 5000U})
        names.emplace_back(length, 'n');
    for (int round = 0; round < 3; ++round) {
        const List list = empty_list();
        for (const std::string& name : names) {
            flist_add_dir(list.get(), name.c_str(), 1, 0);
            flist_add_file(list.get(), name.c_str(), 2);
        }
        ASSERT_EQ(list->entry_count, static_cast<int>(2 * names.size()));
        for (size_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ(list->directories[i], names[i]);
            EXPECT_EQ(list->files[i], names[i]);
            EXPECT_EQ(list->entries[2 * i].length, static_cast<int>(names[i].size()) + 1);
            EXPECT_EQ(list->entries[2 * i + 1].length, static_cast<int>(names[i].size()));
            EXPECT_EQ(list->entries[2 * i].name, list->directories[i]);
        }
    }
}

TEST(FlistAdd, IgnoresEmptyNamesAndGrowsAsDocumented) {
    const List list = empty_list();
    flist_add_dir(list.get(), "", 0, 0);
    flist_add_dir(list.get(), ".", 0, 0);
    flist_add_file(list.get(), "", 0);
    flist_add_file(list.get(), nullptr, 0);
    flist_add_file(nullptr, "x", 0);
    EXPECT_EQ(list->entry_count, 0);
    flist_add_dir(list.get(), "..", 0, 0);
    flist_add_file(list.get(), ".", 0);
    EXPECT_EQ(list->entry_count, 2);
    EXPECT_EQ(list->entry_capacity, 1024);
    EXPECT_EQ(list->directory_capacity, 128);
    EXPECT_EQ(list->file_capacity, 1024);
    for (int i = list->entry_count; i < 4097; ++i) {
        EXPECT_EQ(list->entry_capacity, i <= 1024 ? 1024 : i <= 2048 ? 2048 : 4096);
        flist_add_file(list.get(), "x", 0);
    }
    EXPECT_EQ(list->entry_capacity, 8192);
}

TEST(AllocEnsure, GrowsInTheDocumentedSteps) {
    const struct {
        int32_t count, capacity, add, initial, grown;
    } cases[] = {
        {0, 0, 1, 128, 128}, {0, 0, 200, 128, 256},     {128, 128, 1, 128, 256}, {1024, 1024, 1025, 1, 2176},
        {5, 8, 3, 128, 8},   {600, 600, 1000, 1, 1712}, {0, 0, 1, 0, 1},
    };
    for (const auto& c : cases) {
        int64_t* array = nullptr;
        int32_t capacity = 0;
        if (c.capacity > 0) {
            ASSERT_EQ(alloc_ensure(array, 0, capacity, c.capacity, c.capacity), c.capacity);
        }
        EXPECT_EQ(alloc_ensure(array, c.count, capacity, c.add, c.initial), c.grown - c.count);
        EXPECT_EQ(capacity, c.grown);
        std::free(array);
    }
}

TEST(AllocEnsure, ReportsWhatCannotBeHad) {
    const LogCapture log;
    int64_t* array = nullptr;
    int32_t capacity = 0;
    ASSERT_EQ(alloc_ensure(array, 0, capacity, 1, 16), 16);
    EXPECT_EQ(alloc_ensure(array, 16, capacity, INT32_MAX, 16), 0);
    EXPECT_EQ(capacity, 16);
    EXPECT_TRUE(log.contains("ALLOC ENSURE: Not enough memory.."));
    std::free(array);
}

TEST(FlistFlushcache, ListsThatOutliveItMayStillBeDeleted) {
    const List before = empty_list();
    flist_add_file(before.get(), "short", 0);
    flist_add_file(before.get(), std::string(200, 'l').c_str(), 0);
    flist_flushcache();
    EXPECT_EQ(std::string(200, 'l'), before->files[1]) << "long names are the list's own";
    const List after = empty_list();
    flist_add_file(after.get(), "one", 0);
    char* const one = after->files[0];
    flist_delete(std::make_unique<List>(empty_list())->release());
    {
        const List other = empty_list();
        flist_add_dir(other.get(), "other", 0, 0);
        flist_flushcache();
    }
    flist_flushcache();
    const List last = empty_list();
    for (int i = 0; i < 10'000; ++i)
        flist_add_file(last.get(), std::to_string(i).c_str(), 0);
    for (int i = 0; i < 10'000; ++i)
        ASSERT_EQ(last->files[i], std::to_string(i));
    EXPECT_EQ(after->files[0], one);
}

TEST(NamePool, ServesSeveralThreads) {
    const auto work = [](unsigned seed) {
        std::mt19937 random(seed);
        for (int round = 0; round < 50; ++round) {
            const List list = empty_list();
            for (int i = 0; i < 300; ++i)
                flist_add_file(list.get(), std::to_string(random() % 1000 + seed * 1000).c_str(), 0);
            for (int32_t i = 0; i < list->file_count; ++i)
                ASSERT_EQ(std::stoul(list->files[i]) / 1000, seed);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back(work, seed);
    for (std::thread& thread : threads)
        thread.join();
}

TEST(DirectoryStream, ReadsEveryNameWithItsFacts) {
    const TemporaryFolder folder;
    const std::string long_name(255, 'n');
    folder.write(long_name, "x");
    folder.write("sub/x", "x");
    Directory directory;
    ASSERT_TRUE(DirectoryOpen(&directory, folder.path().c_str()));
    EXPECT_EQ(directory.path, folder.path() + "/");
    DirEntry entry;
    Names files, folders;
    while (DirectoryReadNextEntry(&directory, &entry)) {
        (entry.is_directory ? folders : files).insert(entry.name);
        EXPECT_GT(entry.date, 0);
    }
    DirectoryClose(&directory);
    DirectoryClose(&directory);
    EXPECT_EQ(files, Names{long_name});
    EXPECT_EQ(folders, (Names{".", "..", "sub"}));
    EXPECT_FALSE(DirectoryReadNextEntry(&directory, &entry));
}

TEST(DirectoryStream, RefusesWhatIsNoFolder) {
    const TemporaryFolder folder;
    Directory directory;
    for (const std::string& path :
         {folder.write("file", "x"), folder / "absent", std::string(), std::string(1023, '/')}) {
        EXPECT_FALSE(DirectoryOpen(&directory, path.c_str())) << path;
        EXPECT_EQ(directory.stream, nullptr);
    }
    EXPECT_FALSE(DirectoryOpen(&directory, nullptr) || DirectoryOpen(nullptr, "/"));
    ASSERT_TRUE(DirectoryOpen(&directory, "/"));
    EXPECT_STREQ(directory.path, "/");
    DirectoryClose(&directory);
}

TEST(DirectoryStream, LeavesTheEntryAsItWasWhereNothingIsKnown) {
    const TemporaryFolder folder;
    ASSERT_EQ(symlink("absent", (folder / "dangling").c_str()), 0);
    Directory directory;
    ASSERT_TRUE(DirectoryOpen(&directory, folder.path().c_str()));
    std::string previous;
    DirEntry entry;
    int count = 0;
    for (; DirectoryReadNextEntry(&directory, &entry); ++count) {
        EXPECT_STRNE(entry.name, "dangling");
        previous = entry.name;
    }
    EXPECT_EQ(count, 3);
    DirectoryClose(&directory);
}

TEST(MountPoints, AreTheRootsVisibleFolders) {
    Names expected;
    for (const auto& entry : std::filesystem::directory_iterator("/"))
        if (entry.is_directory() && entry.path().filename().string()[0] != '.')
            expected.insert(entry.path().filename().string());
    for (dir_list* each : {flist_mountp(true), flist_new("", FLIST_BY_NAME)}) {
        const List list(each);
        ASSERT_NE(list, nullptr);
        EXPECT_STREQ(list->path, "/");
        EXPECT_EQ(folders_of(list), expected);
        EXPECT_EQ(list->file_count, 0);
        for (int32_t i = 0; i < list->entry_count; ++i)
            EXPECT_EQ(list->entries[i].date, 0);
    }
    EXPECT_EQ(flist_gen_mountp(nullptr, false), 0);
}

}  // namespace
