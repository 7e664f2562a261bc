// vl_filecopy: what is copied, what it answers, and where it never goes.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "files/file_faults.h"
#include "files/test_files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/folder_copy.h"

namespace {

namespace fs = std::filesystem;

struct Copied {
    int result;
    unsigned long long bytes = 99;
};

Copied copy(const std::string& source, const std::string& destination, bool recursive = true) {
    Copied run{};
    run.result = vl_filecopy(source.c_str(), destination.c_str(), recursive, run.bytes);
    return run;
}

/// Relative path and content of every file below a folder; folders end in "/".
std::map<std::string, std::string> tree(const std::string& top) {
    std::map<std::string, std::string> result;
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
        const std::string name = fs::relative(entry.path(), top).string();
        if (entry.is_directory()) {
            result[name + "/"] = "";
        } else {
            result[name] = read_whole_file(entry.path().string());
        }
    }
    return result;
}

/// Three files, and a folder of two with an odd name.
void make_card(const TemporaryFolder& folder) {
    for (const char* name :
         {"card/clip10.mov", "card/clip2.mov", "card/a b\n.txt", "card/100%s \\/x", "card/100%s \\/y"})
        folder.write(name, std::string("content of ") + name);
}

TEST(FolderCopy, CopiesFilesAndOnRequestSubfolders) {
    const TemporaryFolder folder;
    make_card(folder);
    EXPECT_EQ(copy(folder / "card", folder / "new/flat", false).result, 3);
    EXPECT_FALSE(fs::exists(folder / "new/flat/100%s \\"));
    const Copied deep = copy((folder / "card") + "/", folder / "new/deep");
    EXPECT_EQ(deep.result, 5);
    EXPECT_EQ(tree(folder / "new/deep"), tree(folder / "card"));
    unsigned long long all = 0;
    for (const auto& [name, content] : tree(folder / "card"))
        all += content.size();
    EXPECT_EQ(deep.bytes, all);
}

TEST(FolderCopy, CopiesAFileToANameOrIntoAFolder) {
    const TemporaryFolder folder;
    const std::string source = folder.write("clip.mov", "frames");
    ASSERT_TRUE(fs::create_directory(folder / "into"));
    EXPECT_EQ(copy(source, folder / "into").result, 0);
    EXPECT_EQ(copy(source, (folder / "into") + "/").result, 0);
    EXPECT_EQ(read_whole_file(folder / "into/clip.mov"), "frames");
    const Copied named = copy(source, folder / "into/other.mov");
    EXPECT_EQ(named.result, 0);
    EXPECT_EQ(named.bytes, 6U);
    EXPECT_EQ(read_whole_file(folder / "into/other.mov"), "frames");
}

TEST(FolderCopy, AnswersWhyAFileWasNotCopied) {
    const TemporaryFolder folder;
    const LogCapture log;
    const std::string source = folder.write("source", "data"), empty = folder.write("empty", "");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(copy(folder / "missing", folder / "copy").result, 0);
    EXPECT_EQ(copy(folder / "pipe", folder / "copy").result, 0);
    EXPECT_EQ(copy(empty, folder / "copy").result, -3);
    EXPECT_FALSE(fs::exists(folder / "copy"));
    EXPECT_EQ(copy(source, folder / "no/such/folder").result, -2);
    EXPECT_EQ(copy(folder.path(), source).result, 0) << "the destination is a file";
    EXPECT_TRUE(log.contains("Error creating directory " + source + " : "));
    const Copied same = copy(source, source);
    EXPECT_EQ(same.result, -1);
    EXPECT_EQ(same.bytes, 99U) << "untouched";
    EXPECT_TRUE(log.contains("ERROR: FileCopy: Source and destination are the same!"));
    EXPECT_TRUE(log.contains("'" + source + "' no copy done"));
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(copy(source, "/dev/full").result, -3);
    }
    ASSERT_TRUE(fs::create_directory(folder / "holder"));
    fs::copy(empty, folder / "holder/empty");
    EXPECT_EQ(copy(folder / "holder", folder / "copies").result, -1) << "an empty file stops its folder";
}

TEST(FolderCopy, StaysOutOfItselfAndOfLoops) {
    const TemporaryFolder folder;
    make_card(folder);
    const std::string card = folder / "card";
    ASSERT_EQ(symlink(".", (card + "/loop").c_str()), 0);
    ASSERT_EQ(symlink("..", (card + "/100%s \\/up").c_str()), 0);
    ASSERT_TRUE(fs::create_directory(folder / "elsewhere"));
    folder.write("elsewhere/linked", "once");
    ASSERT_EQ(symlink("../elsewhere", (card + "/other").c_str()), 0);

    EXPECT_EQ(copy(card, card + "/backup").result, 6);
    EXPECT_EQ(read_whole_file(card + "/backup/other/linked"), "once") << "other folders are copied through their links";
    EXPECT_FALSE(fs::exists(card + "/backup/backup"));
    EXPECT_FALSE(fs::exists(card + "/backup/loop"));
    EXPECT_EQ(read_whole_file(card + "/clip2.mov"), "content of card/clip2.mov");
}

TEST(FolderCopy, MakesARelativeDestinationInTheCurrentFolder) {
    const TemporaryFolder folder;
    make_card(folder);
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    EXPECT_EQ(copy("card", "sub/copy").result, 5);
    fs::current_path(before);
    EXPECT_EQ(tree(folder / "sub/copy"), tree(folder / "card"));
}

TEST(FolderCopy, StopsAtPathsThatDoNotFit) {
    const TemporaryFolder folder;
    const std::string name(200, 'n');
    std::string deep = "card";
    for (int i = 0; i < 4; ++i)
        deep += "/" + name;
    folder.write(deep + "/file", "data");
    EXPECT_EQ(copy(folder / "card", folder / "copy").result, 1);
    EXPECT_EQ(copy(folder / "card", folder / (name + "/" + "copy")).result, -1);
}

TEST(FolderCopy, EveryFailedCallShowsInTheResultOrTheCopyIsWhole) {
    const TemporaryFolder folder;
    make_card(folder);
    const auto card = tree(folder / "card");
    const int descriptors = open_descriptors();
    for_each_file_fault(EIO, [&](const FileFault& fault) {
        fs::remove_all(folder / "copy");
        const int result = copy(folder / "card", folder / "copy").result;
        EXPECT_TRUE(fault.has_fired() || result == 5);
        EXPECT_EQ(open_descriptors(), descriptors);
        if (result != 5) return;
        // A file that could not be cut is longer, by zeros.
        for (const auto& [name, content] : tree(folder / "copy"))
            EXPECT_EQ(content.substr(0, card.at(name).size()), card.at(name)) << name;
    });
}

}  // namespace
