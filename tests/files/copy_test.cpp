// file_copy, file_copy_secure and file_read_secure: codes, texts, and what is at the destinations afterwards.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "files/file_faults.h"
#include "files/test_files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/buffered_file_reader.h"
#include "vellcore/buffered_file_writer.h"
#include "vellcore/file_operations.h"
#include "vellcore/folder_copy.h"
#include "vellcore/verified_copy.h"

namespace {

constexpr size_t k_odd_bytes = 3 * 1'048'576 + 12'345;

md5_state_s digest_of(const std::vector<unsigned char>& data) {
    md5_state_s state;
    unsigned char bytes[16];
    vl_md5_init(&state);
    vl_md5_append(&state, data.data(), static_cast<int>(data.size()));
    vl_md5_finish(&state, bytes);
    return state;
}

bool same_digest(const md5_state_s& a, const md5_state_s& b) {
    return std::equal(std::begin(a.abcd), std::end(a.abcd), b.abcd);
}

/// file_copy to a list of paths.
int copy_to(const std::string& source, const std::vector<std::string>& paths, bool overwrite = false, bool log = false,
            fReadBuffer* reader = nullptr, fWriteBuffer** writers = nullptr) {
    std::vector<const char*> list;
    for (const std::string& path : paths)
        list.push_back(path.c_str());
    list.push_back(nullptr);
    unsigned long long bytes = 0;
    return file_copy(source.c_str(), list.data(), overwrite, bytes, reader, writers, nullptr, nullptr, log);
}

struct Secure {
    int result;
    unsigned long long bytes = 0;
    md5_state_s md5{};
};

Secure secure_copy(const std::string& source, const std::string& destination, unsigned flags) {
    Secure run{};
    run.result =
        file_copy_secure(source.c_str(), destination.c_str(), false, run.bytes, run.md5, flags, nullptr, nullptr);
    return run;
}

TEST(FileCopy, GivesEveryDestinationEveryByteAndTheCallbackEveryBlock) {
    const TemporaryFolder folder;
    for (const size_t size : {size_t{0}, size_t{1}, size_t{8192}, size_t{1'048'576}, k_odd_bytes}) {
        SCOPED_TRACE(size);
        const auto data = pattern(size);
        write_whole(folder / "source", data);
        const std::string one = folder / "a/b/one", two = folder / "two";
        const char* paths[] = {one.c_str(), two.c_str(), ""};
        struct Seen {
            std::vector<unsigned char> bytes;
            int ends = 0;
        } seen;
        unsigned long long bytes = 7;
        const int result = file_copy((folder / "source").c_str(), paths, /*overwrite*/ true, bytes, nullptr, nullptr,
                                     [](const void* block, unsigned long long length, void* context) {
                                         auto& record = *static_cast<Seen*>(context);
                                         const auto* from = static_cast<const unsigned char*>(block);
                                         if (block == nullptr && length == 0) ++record.ends;
                                         record.bytes.insert(record.bytes.end(), from, from + length);
                                     },
                                     &seen, /*log*/ false);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(bytes, 7 + size);
        EXPECT_EQ(seen.ends, 1);
        EXPECT_EQ(seen.bytes, data);
        EXPECT_EQ(read_whole(one), data);
        EXPECT_EQ(read_whole(two), data);
    }
}

TEST(FileCopy, ChecksTheCommandBeforeItTouchesAnything) {
    const TemporaryFolder folder;
    const LogCapture log;
    const std::string source = folder.write("source", "data"), existing = folder.write("existing", "old");
    const std::string long_name = "/" + std::string(1030, 'x') + "/file";
    fWriteBuffer writer(-1, true);
    fWriteBuffer* one_writer[] = {&writer, nullptr};
    const struct {
        const char* label;
        std::vector<std::string> destinations;
        fWriteBuffer** writers;
        int result;
        const char* text;
    } rows[] = {
        {"writer list too short", {folder / "new", folder / "new2"}, one_writer, -12, nullptr},
        {"seventeen", std::vector<std::string>(17, folder / "new"), nullptr, -13, nullptr},
        {"seventeen with a wrong list", std::vector<std::string>(17, folder / "new"), one_writer, -12, nullptr},
        {"the source", {folder / "new", source}, nullptr, -9, "File Copy: source and destination are the same!"},
        {"no folder in the path", {folder / "new", "plain"}, nullptr, -4, nullptr},
        {"folder too long", {long_name}, nullptr, -4, nullptr},
        {"folder is a file", {existing + "/below/x"}, nullptr, -5, nullptr},
        {"existing file", {folder / "new", existing}, nullptr, -7, "File Copy: destination file already exists!"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const int lines_before = log.line_count();
        EXPECT_EQ(copy_to(source, row.destinations, false, false, nullptr, row.writers), row.result);
        EXPECT_EQ(log.line_count(), lines_before);
        EXPECT_EQ(copy_to(source, row.destinations, false, true, nullptr, row.writers), row.result);
        if (row.text == nullptr) {
            EXPECT_EQ(log.line_count(), lines_before);
        } else {
            EXPECT_EQ(log.lines().back(), std::string("ERROR: ") + row.text);
        }
        EXPECT_FALSE(file_exists((folder / "new").c_str()));
    }
    unsigned long long bytes = 0;
    const char* none[] = {nullptr};
    EXPECT_EQ(file_copy(nullptr, none, false, bytes, nullptr, nullptr, nullptr, nullptr, false), -6);
    EXPECT_TRUE(log.contains("ERROR: File Copy: no source file specified!"));
    const char** no_list = nullptr;
    EXPECT_EQ(file_copy(source.c_str(), none, false, bytes, nullptr, nullptr, nullptr, nullptr, false), -4);
    EXPECT_EQ(file_copy(source.c_str(), no_list, false, bytes, nullptr, nullptr, nullptr, nullptr, false), -4);
    EXPECT_EQ(file_copy(source.c_str(), "", false, bytes, nullptr, nullptr, nullptr, nullptr, false), -4);
    EXPECT_EQ(read_whole_file(existing), "old");
}

/// Puts a rival's file at the path named in `rival_path` when it is first opened.
std::string rival_path;
int open_after_rival(const char* path, int flags, mode_t mode) {
    if (path == rival_path && access(path, F_OK) != 0) std::ofstream(path) << "theirs";
    return vell::system_file_calls.open(path, flags, mode);
}

TEST(FileCopy, LeavesAFileAloneThatAppearsAfterTheCheck) {
    const TemporaryFolder folder;
    const LogCapture log;
    const std::string source = folder.write("source", "mine"), one = folder / "one", two = folder / "two";
    ASSERT_EQ(symlink("two", (folder / "leads nowhere").c_str()), 0);
    const struct {
        const char* label;
        std::vector<std::string> destinations;
    } rows[] = {{"the only destination", {two}},
                {"the second destination", {one, two}},
                {"behind a link", {folder / "leads nowhere"}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        rival_path = two;
        vell::file_calls.open = open_after_rival;
        EXPECT_EQ(copy_to(source, row.destinations, /*overwrite*/ false, /*log*/ true), -7);
        vell::file_calls = vell::system_file_calls;
        EXPECT_EQ(log.lines().back(), "ERROR: File Copy: destination file already exists!");
        EXPECT_EQ(read_whole_file(two), "theirs");
        unlink(two.c_str());
        unlink(one.c_str());
    }
    EXPECT_EQ(copy_to(source, {folder / "leads nowhere", "/dev/null", two}), 0) << "nobody else came";
    EXPECT_EQ(read_whole_file(two), "mine");
    EXPECT_EQ(copy_to(source, {folder.path()}), -2);
}

TEST(FileCopy, NamesTheFileThatCannotBeOpened) {
    const TemporaryFolder folder;
    const LogCapture log;
    const std::string source = folder.write("source", "data"), missing = folder / "missing%s", pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(copy_to(missing, {folder / "copy"}, false, true), -1);
    EXPECT_EQ(log.lines().back(), "ERROR: File Copy: failed to open '" + missing + "'");
    EXPECT_EQ(copy_to(pipe, {folder / "copy"}, false, true), -1);
    EXPECT_EQ(copy_to(source, {pipe}, true, true), -2);
    EXPECT_EQ(copy_to(folder.path(), {folder / "copy"}, false, true), -3);
    EXPECT_EQ(log.lines().back(), "ERROR: File Copy: failed to read '" + folder.path() + "'");
    ASSERT_EQ(mkdir((folder / "folder").c_str(), 0700), 0);
    EXPECT_EQ(copy_to(source, {folder / "copy", folder / "folder"}, true, true), -2);
    EXPECT_EQ(log.lines().back(), "ERROR: File Copy: failed to create '" + (folder / "folder") + "'");
}

TEST(FileCopy, LeavesTheSourceAloneUnderItsOtherNames) {
    const TemporaryFolder folder;
    const auto data = pattern(k_odd_bytes);
    const std::string source = folder / "source";
    write_whole(source, data);
    ASSERT_EQ(link(source.c_str(), (folder / "hard").c_str()), 0);
    ASSERT_EQ(symlink("source", (folder / "soft").c_str()), 0);
    const std::vector<std::string> names = {folder / "hard", folder / "soft", folder / "./source", folder / "copy",
                                            folder / "./copy"};
    EXPECT_EQ(copy_to(source, names, /*overwrite*/ true), 0);
    for (const std::string& name : names)
        EXPECT_EQ(read_whole(name), data) << name;
    const Secure run = secure_copy(source, folder / "hard", 3);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.bytes, data.size());
    EXPECT_TRUE(same_digest(run.md5, digest_of(data)));
    EXPECT_EQ(read_whole(source), data);
}

TEST(FileCopy, KeepsTheRoundingOfAReaderWithOneBufferOutOfTheCopy) {
    const TemporaryFolder folder;
    const auto data = pattern(10'000);
    write_whole(folder / "source", data);
    fReadBuffer reader(-1);
    fWriteBuffer writer(-1, true);
    fWriteBuffer* writers[] = {&writer, nullptr};
    for (int round = 0; round < 2; ++round) {  // the caller's objects are closed and can be used again
        EXPECT_EQ(copy_to(folder / "source", {folder / "copy"}, true, false, &reader, writers), 0);
        EXPECT_EQ(reader.file_handle, -1);
        EXPECT_FALSE(writer.data_pending());
        EXPECT_EQ(read_whole(folder / "copy"), data);
    }
    md5_state_s md5;
    unsigned long long bytes = 0;
    EXPECT_EQ(file_copy_secure((folder / "source").c_str(), (folder / "copy").c_str(), false, bytes, md5, 3, &reader,
                               nullptr),
              0);
    EXPECT_TRUE(same_digest(md5, digest_of(data)));
}

/// What one of the two copies answers, and the results that it may fail with.
struct CopyKind {
    const char* name;
    int (*run)(const std::string& source, const std::string& destination);
    std::vector<int> failures;
};
const CopyKind copy_kinds[] = {
    {"file_copy", [](const std::string& s, const std::string& d) { return copy_to(s, {d}, true); }, {-1, -2, -3, -8}},
    {"file_copy_secure",
     [](const std::string& s, const std::string& d) { return secure_copy(s, d, 3).result; },
     {-2, -3, -4, -7}},
};

TEST(FileCopy, TellsOfEveryFailedCallOrCopiesEverything) {
    const TemporaryFolder folder;
    const auto data = pattern(k_odd_bytes);
    const std::string source = folder / "source", copy = folder / "copy";
    write_whole(source, data);
    for (const CopyKind& kind : copy_kinds) {
        SCOPED_TRACE(kind.name);
        const int descriptors = open_descriptors();
        int failures = 0;
        for_each_file_fault(EIO, [&](const FileFault& fault) {
            const int result = kind.run(source, copy);
            if (result == 0) {
                // A file that could not be cut to its size is a line in the log: its data is there.
                auto copied = read_whole(copy);
                EXPECT_TRUE(fault.has_fired() || copied.size() == data.size());
                copied.resize(data.size());
                EXPECT_TRUE(copied == data);
            } else {
                ++failures;
                EXPECT_NE(std::find(kind.failures.begin(), kind.failures.end(), result), kind.failures.end()) << result;
            }
            EXPECT_EQ(open_descriptors(), descriptors);
        });
        EXPECT_GE(failures, 3);
        EXPECT_EQ(read_whole(source), data);
    }
}

TEST(FileCopy, CopiesFilesThatTellNoSizeUntilTheyEnd) {
    const TemporaryFolder folder;
    const std::string copy = folder / "copy";
    for (const std::string source : {"/proc/version", "/proc/kallsyms"}) {  // less than a block, several blocks
        SCOPED_TRACE(source);
        const auto content = read_whole(source);
        if (content.empty()) GTEST_SKIP() << source << " cannot be read here";
        EXPECT_EQ(copy_to(source, {copy}, true), 0);
        EXPECT_TRUE(read_whole(copy) == content);
        const Secure run = secure_copy(source, copy, 3);
        EXPECT_EQ(run.result, 0);
        EXPECT_EQ(run.bytes, content.size());
        EXPECT_TRUE(same_digest(run.md5, digest_of(content)));
        unsigned long long bytes = 0;
        EXPECT_EQ(vl_filecopy(source.c_str(), copy.c_str(), false, bytes), 0);
        EXPECT_EQ(bytes, content.size());
        fReadBuffer reader(-1);  // one buffer, which can go back
        ASSERT_TRUE(reader.open_file(source.c_str(), true, true, true));
        std::vector<unsigned char> twice(content.size());
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(reader.read_file(twice.data(), 1, content.size()), content.size());
            EXPECT_TRUE(twice == content);
            EXPECT_EQ(reader.getNextBlock(), 0U);
            EXPECT_TRUE(reader.set_position(0));
        }
    }
    EXPECT_EQ(copy_to("/dev/zero", {copy}, true), 0) << "a device that tells no size has nothing to read";
    EXPECT_TRUE(read_whole(copy).empty());
    EXPECT_EQ(copy_to("/proc/self/mem", {folder / "none"}), -3) << "its first byte cannot be read";
    EXPECT_FALSE(file_exists((folder / "none").c_str()));
}

TEST(FileCopy, CopiesOfAGrowingFileWhatItHeldAtFirst) {
    const TemporaryFolder folder;
    const std::string source = folder / "source";
    const auto data = pattern(k_odd_bytes);
    unsigned long long bytes = 0;
    write_whole(source, data);
    const auto grow = [](const void*, unsigned long long, void* path) {
        std::ofstream(static_cast<const char*>(path), std::ios::app | std::ios::binary) << "more";
    };
    EXPECT_EQ(file_copy(source.c_str(), (folder / "copy").c_str(), true, bytes, nullptr, nullptr, grow,
                        const_cast<char*>(source.c_str()), false),
              0);
    EXPECT_EQ(read_whole(folder / "copy"), data);
}

TEST(FileCopy, DoesNotCallAShortenedSourceWhole) {
    const TemporaryFolder folder;
    const std::string source = folder / "source";
    const auto data = pattern(24 * 1'048'576);
    unsigned long long bytes = 0;
    write_whole(source, data);
    const int result = file_copy(
        source.c_str(), (folder / "copy").c_str(), true, bytes, nullptr, nullptr,
        [](const void*, unsigned long long, void* path) {
            if (truncate(static_cast<const char*>(path), 1'048'576) != 0) std::abort();
        },
        const_cast<char*>(source.c_str()), false);
    EXPECT_EQ(result, -3);
    EXPECT_LT(bytes, data.size());
}

TEST(FileCopy, ReportsADiskThatIsFullOnlyWhenTheFileCloses) {
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "there is no /dev/full";
    const TemporaryFolder folder;
    const std::string source = folder.write("source", "a few bytes");
    EXPECT_EQ(copy_to(source, {"/dev/full"}, true), -8);
    EXPECT_EQ(secure_copy(source, "/dev/full", 1).result, -4);
    EXPECT_EQ(get_error_file_copy_secure(-4, false), "File Copy: write error of " + source + " between 11 and 22 \n");
    // file_copy reads once for all; the disk that is full stops it, and what others hold is theirs.
    EXPECT_EQ(copy_to(source, {folder / "copy", "/dev/full"}, true), -8);
}

TEST(FileCopySecure, DigestsWhatItCopiesAndComparesWhatItWrote) {
    const TemporaryFolder folder;
    for (const size_t size : {size_t{0}, size_t{5000}, k_odd_bytes}) {
        SCOPED_TRACE(size);
        const auto data = pattern(size);
        write_whole(folder / "source", data);
        for (const unsigned flags : {0U, 1U, 3U}) {
            const Secure run = secure_copy(folder / "source", folder / "a/b/c/copy", flags);
            EXPECT_EQ(run.result, 0);
            EXPECT_EQ(run.bytes, size);
            EXPECT_EQ(read_whole(folder / "a/b/c/copy"), data);
            EXPECT_EQ(same_digest(run.md5, digest_of(data)), flags != 0);
        }
    }
}

/// The names of what was flushed, in order; the flush of `refused_flush` fails.
std::vector<std::string> flushed;
std::string refused_flush;
int record_flush(int descriptor) {
    char path[4096] = {};
    struct stat facts {};
    if (readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path, sizeof path - 1) < 0) std::abort();
    if (fstat(descriptor, &facts) != 0) std::abort();
    const std::string name = path;
    flushed.push_back(S_ISREG(facts.st_mode) ? name + ":" + std::to_string(facts.st_size) : name);
    if (name != refused_flush) return vell::system_file_calls.fsync(descriptor);
    errno = EIO;
    return -1;
}

TEST(FileCopySecure, IsOnTheDiskBeforeItSucceeds) {
    const TemporaryFolder temporary;
    const std::string root = std::filesystem::canonical(temporary.path());
    const std::string source = temporary.write("source", "a few bytes"), copy = root + "/a/b/copy";
    ASSERT_EQ(symlink((root + "/linked").c_str(), (root + "/link").c_str()), 0);
    vell::file_calls.fsync = record_flush;
    const std::vector<std::string> all = {copy + ":11", root + "/a/b", root + "/a", root};
    for (const std::string& refused : {copy, root + "/a/b", root + "/a", root}) {
        flushed.clear();
        std::filesystem::remove_all(root + "/a");
        refused_flush = refused;
        EXPECT_EQ(secure_copy(source, copy, 3).result, -4) << refused;
        EXPECT_EQ(get_error_file_copy_secure(-4, false),
                  "File Copy: write error of " + source + " between 11 and 22 \n");
    }
    EXPECT_EQ(flushed, all);
    refused_flush.clear();
    for (const unsigned flags : {0U, 1U, 3U}) {
        flushed.clear();
        EXPECT_EQ(secure_copy(source, copy, flags).result, 0);
        EXPECT_EQ(flushed, (std::vector<std::string>{copy + ":11", root + "/a/b"})) << "the folders were there";
    }
    flushed.clear();
    EXPECT_EQ(secure_copy(source, root + "/link", 1).result, 0);
    EXPECT_EQ(flushed, (std::vector<std::string>{root + "/linked:11", root})) << "where the link leads";
    flushed.clear();
    EXPECT_EQ(secure_copy(source, "/dev/null", 1).result, 0) << "a device knows no flush";
    EXPECT_EQ(copy_to(source, {copy}, /*overwrite*/ true), 0);
    flushed.clear();
    EXPECT_EQ(copy_to(source, {copy}, /*overwrite*/ true), 0);
    EXPECT_TRUE(flushed.empty()) << "a plain copy forces nothing";
    vell::file_calls = vell::system_file_calls;
}

TEST(FileCopySecure, ComparesWithTheCallersDigestWhenItComputesNone) {
    const TemporaryFolder folder;
    const auto data = pattern(20'000);
    write_whole(folder / "source", data);
    md5_state_s md5 = digest_of(data);
    unsigned long long bytes = 0;
    const std::string source = folder / "source", copy = folder / "copy";
    EXPECT_EQ(file_copy_secure(source.c_str(), copy.c_str(), false, bytes, md5, 2, nullptr, nullptr), 0);
    md5.abcd[3] ^= 1;
    EXPECT_EQ(file_copy_secure(source.c_str(), copy.c_str(), false, bytes, md5, 2, nullptr, nullptr), -7);
    EXPECT_EQ(get_error_file_copy_secure(-7, false),
              "File Copy: hash values of '" + source + "' and '" + copy + "' do not match\n");
    EXPECT_EQ(bytes, 2 * data.size());
}

TEST(FileCopySecure, KeepsTheTextOfTheLastFailure) {
    const TemporaryFolder folder;
    const LogCapture log;
    const std::string source = folder.write("100%d source", "data"), file = folder.write("file", "data");
    const auto text_after = [&](const std::string& from, const std::string& to, int expected) {
        EXPECT_EQ(secure_copy(from, to, 3).result, expected);
        return std::string(get_error_file_copy_secure(expected, false));
    };
    EXPECT_EQ(text_after(source, source, -1), "File Copy: source and destination are the same!");
    EXPECT_EQ(text_after(folder / "none", folder / "copy", -2),
              "File Copy: failed to open '" + (folder / "none") + "'\n");
    ASSERT_EQ(mkdir((folder / "folder").c_str(), 0700), 0);
    EXPECT_EQ(text_after(source, folder / "folder", -2), "File Copy: failed to open '" + source + "'\n");
    EXPECT_EQ(text_after(folder.path(), folder / "copy", -3), "File Copy: failed to read '" + folder.path() + "'\n");
    EXPECT_EQ(text_after(source, "copy", -5), "File Copy: pathname copy is not allowed");
    EXPECT_EQ(text_after(source, file + "/below/copy", -6), "File Copy: pathname copy is not allowed") << "kept";
    EXPECT_FALSE(log.contains("File Copy"));

    EXPECT_EQ(secure_copy(source, folder / "folder", 3).result, -2);
    get_error_file_copy_secure(-2, true);
    const int lines = log.line_count();
    EXPECT_EQ(log.lines().back(), "ERROR: File Copy: failed to open '" + source + "'");
    EXPECT_STREQ(get_error_file_copy_secure(0, true), "");
    EXPECT_STREQ(get_error_file_copy_secure(-2, false), "") << "cleared";
    EXPECT_STREQ(get_error_file_copy_secure(-8, true), "");
    EXPECT_EQ(log.line_count(), lines);

    const std::string long_name(700, 'n');
    EXPECT_EQ(secure_copy(source, long_name, 0).result, -5);
    EXPECT_EQ(strlen(get_error_file_copy_secure(-5, false)), 511U);
}

TEST(FileReadSecure, ComparesAndTellsWhatItCannotRead) {
    const TemporaryFolder folder;
    const auto data = pattern(k_odd_bytes);
    write_whole(folder / "file", data);
    const std::string path = folder / "file";
    md5_state_s expected = digest_of(data);
    md5_state_s md5{};
    EXPECT_EQ(file_read_secure(path.c_str(), md5, nullptr, &expected), 0);
    EXPECT_TRUE(same_digest(md5, expected));
    expected.abcd[0] ^= 0x8000;
    EXPECT_EQ(file_read_secure(path.c_str(), md5, nullptr, &expected), -7);
    EXPECT_EQ(file_read_secure((folder / "none").c_str(), md5, nullptr, nullptr), -2);
    EXPECT_EQ(get_error_file_copy_secure(-2, false), "File Copy: failed to open '" + (folder / "none") + "'\n");
    EXPECT_EQ(file_read_secure(folder.path().c_str(), md5, nullptr, nullptr), -3);
    EXPECT_EQ(get_error_file_copy_secure(-3, false), "File Copy: unable to read '" + folder.path() + "'\n");
    for_each_file_fault(EIO, [&](const FileFault&) {
        const int result = file_read_secure(path.c_str(), md5, nullptr, nullptr);
        EXPECT_TRUE(result == 0 ? same_digest(md5, digest_of(data)) : result == -2 || result == -3) << result;
    });
}

TEST(FileCopySecure, CopiesOnSeveralThreadsAtOnce) {
    const TemporaryFolder folder;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&folder, i] {
            const auto data = pattern(300'000, static_cast<unsigned>(i));
            const std::string name = std::to_string(i);
            write_whole(folder / ("source" + name), data);
            for (int round = 0; round < 5; ++round) {
                EXPECT_EQ(secure_copy(folder / ("source" + name), folder / ("copy" + name), 3).result, 0);
                EXPECT_EQ(secure_copy(folder / ("none" + name), folder / "copy", 0).result, -2);
                const std::string text = get_error_file_copy_secure(-2, false);
                EXPECT_EQ(text.rfind("File Copy: failed to open '", 0), 0U);
                EXPECT_EQ(text.substr(text.size() - 2), "'\n");
            }
            EXPECT_EQ(read_whole(folder / ("copy" + name)), data);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
