// vell offload, verify and hash as a user has them.

#include <fcntl.h>

#include <sys/file.h>

#include <csignal>

#include "offload_card.h"
#include "run_vell.h"

namespace {

class VellOffload : public testing::Test {
protected:
    RunResult run(std::vector<std::string> arguments) { return run_vell(folder, arguments); }
    RunResult offload(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "offload");
        return run(arguments);
    }
    void expect_copy(const std::string& name) {
        EXPECT_TRUE(card::contents(folder / name) == card::contents(source)) << name;
    }
    /// Runs a shell command in the folder `name`.
    int shell(const std::string& name, const std::string& command) {
        return std::system(("cd '" + (folder / name) + "' && { " + command + "; } >/dev/null 2>&1").c_str());
    }
    void flip_byte(const std::string& path, off_t at) {
        const struct stat before = card::facts_of(path);
        const int file = open(path.c_str(), O_RDWR);
        char byte = 0;
        ASSERT_EQ(pread(file, &byte, 1, at), 1);
        byte = static_cast<char>(byte ^ 1);
        ASSERT_EQ(pwrite(file, &byte, 1, at), 1);
        const timespec times[2] = {before.st_atim, before.st_mtim};
        futimens(file, times);
        close(file);
    }

    const TemporaryFolder folder;
    const std::string source = card::make(folder);
};

int count_of(const std::string& text, const std::string& what) {
    int count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

TEST_F(VellOffload, CopiesACardAndProvesIt) {
    const RunResult first = offload({source, folder / "a", folder / "deep/b"});
    EXPECT_EQ(first.code, 0) << first.errors;
    expect_copy("a");
    expect_copy("deep/b");
    EXPECT_EQ(count_of(first.output, "verified  "), 22) << first.output;
    EXPECT_EQ(shell("a", "md5sum --strict -c MD5SUMS"), 0);
    EXPECT_EQ(shell("deep/b", "md5sum --strict -c MD5SUMS"), 0);
    EXPECT_EQ(run({"verify", folder / "a"}).code, 0);
    const RunResult second = offload({source, folder / "a", folder / "deep/b"});
    EXPECT_EQ(second.code, 0);
    EXPECT_EQ(count_of(second.output, "skipped   "), 22) << second.output;
}

TEST_F(VellOffload, KeepsTimesAndPermissionsWithinTheMask) {
    const std::string clip = source + "/DCIM/100/clip.mov";
    const timespec times[2] = {{1'600'000'000, 1}, {1'500'000'000, 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, clip.c_str(), times, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (source + "/DCIM").c_str(), times, 0), 0);
    ASSERT_EQ(chmod(clip.c_str(), 0466), 0);
    ASSERT_EQ(chmod((source + "/DCIM/100").c_str(), 0555), 0);
    const mode_t before = umask(027);
    EXPECT_EQ(offload({source, folder / "a"}).code, 0);
    umask(before);
    const struct stat facts = card::facts_of(folder / "a/DCIM/100/clip.mov");
    EXPECT_EQ(facts.st_mode & 07777, 0440U);
    EXPECT_EQ(facts.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(facts.st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(card::facts_of(folder / "a/DCIM").st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(card::facts_of(folder / "a/DCIM/100").st_mode & 07777, 0750U);
    EXPECT_EQ(card::facts_of(folder / "a/MD5SUMS").st_mode & 07777, 0640U);
}

// An interrupted run leaves its folders with the times of its last copies.
TEST_F(VellOffload, GivesFoldersTheirTimesWhenARunIsFinishedByAnother) {
    const timespec times[2] = {{1'600'000'000, 1}, {1'500'000'000, 123'456'789}};
    ASSERT_EQ(utimensat(AT_FDCWD, (source + "/DCIM/100").c_str(), times, 0), 0);
    ASSERT_EQ(chmod((source + "/DCIM/100").c_str(), 0750), 0);
    ASSERT_EQ(offload({source, folder / "a"}).code, 0);
    std::filesystem::remove(folder / "a/DCIM/100/clip.mov");
    ASSERT_EQ(chmod((folder / "a/DCIM/100").c_str(), 0700), 0);
    EXPECT_EQ(offload({source, folder / "a"}).code, 0);
    const struct stat facts = card::facts_of(folder / "a/DCIM/100");
    EXPECT_EQ(facts.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(facts.st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(facts.st_mode & 07777, 0750U);
}

TEST_F(VellOffload, TakesDigestsOfReplacedFilesOutOfOtherLists) {
    ASSERT_EQ(offload({source, folder / "a", "--hash", "md5"}).code, 0);
    folder.write("card/-dash", "another text");
    ASSERT_EQ(offload({source, folder / "a", "--hash", "sha1", "--overwrite"}).code, 0);
    EXPECT_EQ(shell("a", "md5sum --strict -c MD5SUMS"), 0) << read_whole_file(folder / "a/MD5SUMS");
    EXPECT_EQ(shell("a", "sha1sum --strict -c SHA1SUMS"), 0);
    EXPECT_EQ(count_of(read_whole_file(folder / "a/MD5SUMS"), "\n"), 10);
    EXPECT_FALSE(std::filesystem::exists(folder / "a/XXH3SUMS"));
    EXPECT_EQ(run({"verify", folder / "a", "--hash", "md5"}).code, 0);
}

TEST_F(VellOffload, TellsWhenItsOutputIsLost) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"offload", source, folder / "a"},
                                                      {"offload", "--json", source, folder / "a"},
                                                      {"verify", folder / "a"},
                                                      {"hash", source}}) {
        const RunResult result = run_vell(folder, arguments, "/dev/full");
        EXPECT_EQ(result.code, 1) << arguments[0];
        EXPECT_NE(result.errors.find("standard output: cannot be written"), std::string::npos) << result.errors;
    }
    expect_copy("a");
}

TEST_F(VellOffload, VerifiesByAListWithCarriageReturns) {
    folder.write("list", "900150983cd24fb0d6963f7d28e17f72 *abc\r\nd41d8cd98f00b204e9800998ecf8427e *empty\r\n");
    folder.write("d/abc", "abc");
    folder.write("d/empty", "");
    EXPECT_EQ(run({"verify", folder / "d", "--list", folder / "list"}).code, 0);
    folder.write("d/abc", "abd");
    EXPECT_EQ(run({"verify", folder / "d", "--list", folder / "list"}).code, 4);
    EXPECT_EQ(run({"verify", folder / "d", "--list", "/dev/zero"}).code, 2) << "a list without an end";
}

TEST_F(VellOffload, WritesTheListsThatOtherProgramsCheck) {
    EXPECT_EQ(offload({source, folder / "a", "--hash", "md5,sha1", "--hash", "xxh64", "--hash=xxh3,xxh128"}).code, 0);
    EXPECT_EQ(shell("a", "md5sum --strict -c MD5SUMS"), 0);
    EXPECT_EQ(shell("a", "sha1sum --strict -c SHA1SUMS"), 0);
    if (shell("a", "command -v xxhsum") == 0) {
        for (const std::string list : {"XXH64SUMS", "XXH3SUMS", "XXH128SUMS"})
            EXPECT_EQ(shell("a", "xxhsum -c " + list), 0) << list;
    }
    for (const std::string list : {"MD5SUMS", "SHA1SUMS", "XXH64SUMS", "XXH128SUMS"}) {
        EXPECT_EQ(count_of(read_whole_file(folder / ("a/" + list)), "\n"), 11) << list;
        EXPECT_EQ(run({"verify", folder / "a", "--list", folder / ("a/" + list)}).code, 0) << list;
    }
}

TEST_F(VellOffload, MergesTheListsOfSeveralOffloads) {
    folder.write("second/later.mov", "later");
    EXPECT_EQ(offload({source, folder / "a"}).code, 0);
    EXPECT_EQ(offload({folder / "second", folder / "a"}).code, 0);
    EXPECT_EQ(count_of(read_whole_file(folder / "a/MD5SUMS"), "\n"), 12);
    EXPECT_EQ(shell("a", "md5sum --strict -c MD5SUMS"), 0);
    const RunResult verified = run({"verify", folder / "a"});
    EXPECT_NE(verified.output.find("12 ok"), std::string::npos) << verified.output;
}

TEST_F(VellOffload, CopiesASingleFile) {
    EXPECT_EQ(offload({source + "/DCIM/small", folder / "a"}).code, 0);
    EXPECT_EQ(read_whole_file(folder / "a/small"), read_whole_file(source + "/DCIM/small"));
    EXPECT_EQ(shell(".", "'" VELL_PROGRAM "' offload card/DCIM/odd here"), 0);
    EXPECT_EQ(read_whole_file(folder / "here/odd"), read_whole_file(source + "/DCIM/odd"));
}

TEST_F(VellOffload, TakesSixteenDestinationsAndNoMore) {
    std::filesystem::remove_all(source + "/DCIM/100");
    std::vector<std::string> arguments = {source};
    for (int i = 0; i < 16; ++i)
        arguments.push_back(folder / ("d" + std::to_string(i)));
    EXPECT_EQ(offload(arguments).code, 0);
    for (int i = 0; i < 16; ++i)
        expect_copy("d" + std::to_string(i));
    arguments.push_back(folder / "d16");
    EXPECT_EQ(offload(arguments).code, 2);
    EXPECT_FALSE(std::filesystem::exists(folder / "d16"));
}

TEST_F(VellOffload, RefusesSourcesAndDestinationsThatOverlap) {
    std::filesystem::create_directory(folder / "a");
    ASSERT_EQ(symlink("card", (folder / "link").c_str()), 0);
    const std::vector<std::string> cases[] = {{source, source},
                                              {source, source + "/sub/new"},
                                              {source + "/DCIM", source},
                                              {source + "/DCIM", source + "/DCIM/../"},
                                              {source, folder / "link"},
                                              {folder / "link", source + "/x"},
                                              {source + "/empty", source},
                                              {source + "/DCIM/small", source},
                                              {source, folder / "a", folder / "a/"},
                                              {source, folder / "new", folder / "card/../new"},
                                              {source, folder / "a", folder / "a/inside"},
                                              {source, folder / "card/empty"},
                                              {source, ""},
                                              {folder / "absent", folder / "a"},
                                              {"/dev/null", folder / "a"},
                                              {source}};
    const auto before = card::contents(folder.path());
    for (const auto& arguments : cases) {
        const RunResult result = offload(arguments);
        EXPECT_EQ(result.code, 2) << arguments.back() << result.errors;
        auto after = card::contents(folder.path());
        after["stdout"] = after["stderr"] = "";
        auto expected = before;
        expected["stdout"] = expected["stderr"] = "";
        EXPECT_TRUE(after == expected) << arguments.back();
    }
}

TEST_F(VellOffload, LeavesOutWhatIsNoFile) {
    ASSERT_EQ(symlink("../../outside", (source + "/DCIM/link").c_str()), 0);
    ASSERT_EQ(symlink(".", (source + "/loop").c_str()), 0);
    ASSERT_EQ(mkfifo((source + "/pipe").c_str(), 0600), 0);
    folder.write("outside", "secret");
    const RunResult result = offload({source, folder / "a"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_NE(result.errors.find("DCIM/link: a symbolic link"), std::string::npos);
    EXPECT_NE(result.errors.find("loop: a symbolic link"), std::string::npos);
    EXPECT_NE(result.errors.find("pipe: a pipe"), std::string::npos);
    for (const char* name : {"a/DCIM/link", "a/loop", "a/pipe"})
        EXPECT_EQ(card::facts_of(folder / name).st_mode, 0U) << name;
}

TEST_F(VellOffload, NeverWritesThroughALinkInADestination) {
    folder.write("elsewhere/keep", "keep");
    std::filesystem::create_directory(folder / "a");
    ASSERT_EQ(symlink("../elsewhere", (folder / "a/DCIM").c_str()), 0);
    folder.write("victim", "old");
    ASSERT_EQ(symlink("../victim", (folder / "a/empty").c_str()), 0);
    const RunResult result = offload({source, folder / "a", "--overwrite"});
    EXPECT_EQ(result.code, 1) << result.errors;
    EXPECT_EQ(card::contents(folder / "elsewhere").size(), 1U);
    EXPECT_EQ(read_whole_file(folder / "victim"), "old");
    EXPECT_EQ(read_whole_file(folder / "a/-dash"), "dash");
}

TEST_F(VellOffload, OverwritesOnlyWhenItMay) {
    folder.write("a/-dash", "dosh");
    folder.write("a/back\\slash", "longer than before");
    folder.write("a/new\nline", "line");  // the same
    const RunResult first = offload({source, folder / "a"});
    EXPECT_EQ(first.code, 1);
    EXPECT_EQ(read_whole_file(folder / "a/-dash"), "dosh");
    EXPECT_EQ(count_of(first.errors, "another file is there"), 2) << first.errors;
    EXPECT_EQ(count_of(first.output, "verified  "), 9) << first.output;
    const RunResult second = offload({source, folder / "a", "--overwrite"});
    EXPECT_EQ(second.code, 0) << second.errors;
    EXPECT_EQ(count_of(second.output, "verified  "), 2) << second.output;
    expect_copy("a");
}

TEST_F(VellOffload, SaysWhatWasNotReadBack) {
    const RunResult first = offload({source, folder / "a", "--no-verify"});
    EXPECT_EQ(first.code, 0);
    EXPECT_EQ(count_of(first.output, "copied    "), 11) << first.output;
    EXPECT_NE(first.output.find("11 copied (not read back)"), std::string::npos) << first.output;
    expect_copy("a");
    const RunResult second = offload({source, folder / "a"});
    EXPECT_EQ(count_of(second.output, "verified  "), 11) << second.output;
}

TEST_F(VellOffload, ProvesAgainWhatItsRecordsDoNotProve) {
    ASSERT_EQ(offload({source, folder / "a"}).code, 0);
    // Another digest is wanted; a copy was touched; a source was touched; a copy is gone.
    EXPECT_EQ(count_of(offload({source, folder / "a", "--hash", "sha1"}).output, "verified  "), 11);
    EXPECT_EQ(count_of(offload({source, folder / "a"}).output, "skipped   "), 11) << "the first digests are forgotten";
    const timespec times[2] = {{1, 0}, {1, 0}};
    utimensat(AT_FDCWD, (folder / "a/DCIM/small").c_str(), times, 0);
    utimensat(AT_FDCWD, (source + "/DCIM/odd").c_str(), times, 0);
    std::filesystem::remove(folder / "a/empty");
    const RunResult result = offload({source, folder / "a"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(count_of(result.output, "verified  "), 3) << result.output;
    EXPECT_EQ(count_of(result.output, "skipped   "), 8) << result.output;
    expect_copy("a");
}

TEST_F(VellOffload, CopiesADestinationOnward) {
    ASSERT_EQ(offload({source, folder / "a"}).code, 0);
    const RunResult result = offload({folder / "a", folder / "b"});
    EXPECT_EQ(result.code, 0) << result.errors;
    expect_copy("b");
    // A list that no offload made is the user's.
    folder.write("card/MD5SUMS", "mine");
    EXPECT_EQ(offload({source, folder / "c"}).code, 1);
    expect_copy("c");
}

TEST_F(VellOffload, RunsOnceAtATimeInADestination) {
    ASSERT_EQ(offload({source, folder / "a"}).code, 0);
    const int journal = open((folder / "a/.vell-offload").c_str(), O_RDWR);
    ASSERT_EQ(flock(journal, LOCK_EX), 0);
    const RunResult result = offload({source, folder / "a", folder / "b"});
    close(journal);
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.errors.find("another offload is at work here"), std::string::npos) << result.errors;
    expect_copy("b");
}

TEST_F(VellOffload, PrintsOneJsonObjectForEachEvent) {
    const RunResult result = offload({source, folder / "a", "--json"});
    EXPECT_EQ(result.code, 0);
    int files = 0;
    std::string line;
    for (const char c : result.output) {
        if (c != '\n') {
            line += c;
            continue;
        }
        EXPECT_TRUE(line.starts_with("{\"event\":\"") && line.ends_with("}")) << line;
        files += line.starts_with("{\"event\":\"file\"") ? 1 : 0;
        line.clear();
    }
    EXPECT_EQ(files, 11);
    EXPECT_NE(result.output.find("\"path_hex\":\"fffe\""), std::string::npos);
    EXPECT_NE(result.output.find("{\"event\":\"end\",\"exit_code\":0,\"interrupted\":false}"), std::string::npos);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(offload({source, folder / "b", "--quiet"}).output, "");
}

// Nothing is told of a copy before it is there, so it can be killed whenever something is told.
TEST_F(VellOffload, FinishesWhatWasKilled) {
    for (int round = 0; round < 6; ++round) {
        const std::string name = "k" + std::to_string(round);
        const pid_t child = start_vell(folder, {"offload", source, folder / name});
        const std::string journal = folder / (name + "/.vell-offload");
        // Rounds stop at different numbers of records.
        while (count_of(read_whole_file(journal), "\n") <= 2 * round && waitpid(child, nullptr, WNOHANG) == 0)
            sched_yield();
        kill(child, round % 3 == 2 ? SIGTERM : SIGKILL);
        waitpid(child, nullptr, 0);
        const auto there = card::contents(folder / name);
        const auto whole = card::contents(source);
        for (const auto& [path, content] : there) {
            if (path.find(".vell-") != std::string::npos) continue;
            EXPECT_TRUE(whole.count(path) != 0 && whole.at(path) == content) << path;
        }
        EXPECT_EQ(offload({source, folder / name}).code, 0);
        expect_copy(name);
        EXPECT_EQ(shell(name, "md5sum --strict -c MD5SUMS"), 0);
    }
}

TEST_F(VellOffload, VerifyNamesWhatChanged) {
    ASSERT_EQ(offload({source, folder / "a"}).code, 0);
    flip_byte(folder / "a/DCIM/100/clip.mov", 3'000'000);
    flip_byte(folder / "a/new\nline", 0);
    folder.write("a/-dash", "longer");
    std::filesystem::remove(folder / "a/back\\slash");
    folder.write("a/DCIM/fresh", "fresh");
    std::filesystem::remove(folder / "a/empty");
    std::filesystem::create_directory(folder / "a/empty");
    for (const std::vector<std::string>& list : {std::vector<std::string>{}, {"--list", folder / "a/MD5SUMS"}}) {
        std::vector<std::string> arguments = {"verify", folder / "a"};
        arguments.insert(arguments.end(), list.begin(), list.end());
        const RunResult result = run(arguments);
        EXPECT_EQ(result.code, 4);
        for (const char* line : {"changed    DCIM/100/clip.mov: ", "changed    new\\nline: ", "changed    -dash: ",
                                 "missing    back\\\\slash\n", "new        DCIM/fresh\n",
                                 "changed    empty: a folder\n", "6 ok, 1 missing, 4 changed, 1 new\n"})
            EXPECT_NE(result.output.find(line), std::string::npos) << line << result.output;
    }
    EXPECT_EQ(run({"verify", folder / "a", "--json"}).code, 4);
    EXPECT_EQ(run({"verify", source}).code, 2);
    EXPECT_EQ(run({"verify", folder / "absent"}).code, 2);
}

TEST_F(VellOffload, HashPrintsWhatMd5sumPrints) {
    ASSERT_EQ(shell("card", "md5sum -- * DCIM/* DCIM/100/* 2>/dev/null | LC_ALL=C sort > ../expected"), 0);
    const std::string command = "cd '" + source + "' && '" VELL_PROGRAM "' hash -- * | LC_ALL=C sort > ../actual";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(read_whole_file(folder / "actual"), read_whole_file(folder / "expected"));
    const RunResult several = run({"hash", "--hash", "xxh128,sha1", source + "/DCIM/odd", source + "/empty"});
    EXPECT_EQ(count_of(several.output, "\n"), 4);
    EXPECT_LT(several.output.find("odd"), several.output.find("empty"));
    const RunResult failing = run({"hash", folder / "absent", source + "/empty"});
    EXPECT_EQ(failing.code, 1);
    EXPECT_NE(failing.errors.find("absent: No such file or directory"), std::string::npos);
    EXPECT_EQ(failing.output, "d41d8cd98f00b204e9800998ecf8427e  " + source + "/empty\n");
    EXPECT_EQ(run({"hash", "--hash", "crc", source}).code, 2);
}

}  // namespace
