#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

#include "files/test_files.h"
#include "support/temporary_folder.h"
#include "vellcore/file_io.h"

namespace {

constexpr size_t k_nothing_left = ~size_t{0};

class MemoryFile : public testing::Test {
protected:
    mem_file* open_with(const std::string& text) {
        write_whole(path(), {text.begin(), text.end()});
        return file = vl_open(path().c_str(), "rb");
    }
    void TearDown() override { vl_close(file); }
    std::string path() const { return folder.path() + "/small"; }
    TemporaryFolder folder;
    mem_file* file = nullptr;
};

TEST_F(MemoryFile, ReadsWhatFopenCanOpen) {
    ASSERT_NE(open_with("abc"), nullptr);
    EXPECT_EQ(file->size, 3U);
    mem_file* empty = vl_open(path().c_str(), "w");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->data, nullptr);
    EXPECT_EQ(empty->size, 0U);
    EXPECT_EQ(vl_close(empty), 0);
    mem_file* system_file = vl_open("/proc/self/status", "r");
    ASSERT_NE(system_file, nullptr);
    EXPECT_GT(system_file->size, 100U) << "a file that does not tell its size";
    vl_close(system_file);
    EXPECT_EQ(vl_open(folder.path().c_str(), "r"), nullptr);
    EXPECT_EQ(vl_open((folder.path() + "/none").c_str(), "r"), nullptr);
    EXPECT_EQ(vl_open(nullptr, "r"), nullptr);
    EXPECT_EQ(vl_open(path().c_str(), nullptr), nullptr);
    EXPECT_EQ(vl_close(nullptr), -1);
}

TEST_F(MemoryFile, ReadsAPipeToItsEnd) {
    const std::string fifo = folder.path() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const auto data = pattern(200'000);
    std::thread sender([&] { write_whole(fifo, data); });
    file = vl_open(fifo.c_str(), "rb");
    sender.join();
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(file->size, data.size());
    EXPECT_EQ(std::memcmp(file->data, data.data(), data.size()), 0);
}

TEST_F(MemoryFile, DoesNotReadWhatHasNoEnd) {
    file = vl_open("/dev/zero", "rb");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->size, 0U) << "a device tells no size";
    const std::string fifo = folder.path() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    signal(SIGPIPE, SIG_IGN);
    std::thread sender([&fifo] {
        const std::vector<unsigned char> piece(1'048'576);
        const int pipe = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
        while (write(pipe, piece.data(), piece.size()) > 0) {
        }
        EXPECT_EQ(errno, EPIPE) << "the reader gave up";
        close(pipe);
    });
    EXPECT_EQ(vl_open(fifo.c_str(), "rb"), nullptr);
    sender.join();
}

TEST_F(MemoryFile, SeeksByTheThreeWays) {
    open_with(std::string(100, 'x'));
    EXPECT_EQ(vl_seek(file, 10, 2), 90);
    EXPECT_EQ(vl_seek(file, 5, 1), 95);
    EXPECT_EQ(vl_seek(file, -95, 1), 0);
    EXPECT_EQ(vl_seek(file, 42, 0), 42);
    EXPECT_EQ(vl_seek(file, 0, 3), -1);
    EXPECT_EQ(vl_tell(file), 42U);
    EXPECT_EQ(vl_seek(nullptr, 0, 0), -1);
}

TEST_F(MemoryFile, ReadsOutsideTheDataGiveNothing) {
    open_with("0123456789");
    char buffer[16];
    for (const long long position : {10LL, 11LL, -1LL, LLONG_MIN, LLONG_MAX}) {
        SCOPED_TRACE(position);
        vl_seek(file, position, 0);
        EXPECT_EQ(vl_read(buffer, 1, 1, file), k_nothing_left);
        EXPECT_EQ(vl_gets(buffer, 16, file), nullptr);
        EXPECT_EQ(vl_eof(file), 0);
    }
}

TEST_F(MemoryFile, ClampsAtElementSizeSquaredAndFillsWithZeros) {
    open_with("0123456789");
    char buffer[400];
    std::memset(buffer, 'q', sizeof buffer);
    EXPECT_EQ(vl_read(buffer, 4, 40, file), 160U) << "160 = 10 * 4 * 4 bytes pass unclamped";
    EXPECT_EQ(vl_eof(file), 0);
    EXPECT_EQ(std::memcmp(buffer, "0123456789\0\0", 12), 0);
    EXPECT_EQ(buffer[159], 0);
    EXPECT_EQ(buffer[160], 'q');
    EXPECT_EQ(vl_tell(file), 160U);
    vl_seek(file, 0, 0);
    EXPECT_EQ(vl_read(buffer, 4, 100, file), 160U);
    EXPECT_EQ(vl_eof(file), 1);
    vl_seek(file, 0, 0);
    EXPECT_EQ(vl_read(buffer, 1, 4, file), 4U);
    EXPECT_EQ(vl_read(buffer, 1, 100, file), 6U);
    vl_seek(file, 0, 0);
    EXPECT_EQ(vl_read(buffer, 1, 0, file), 0U);
    EXPECT_EQ(vl_read(buffer, 0, 5, file), k_nothing_left);
    EXPECT_EQ(vl_read(nullptr, 1, 5, file), k_nothing_left);
    EXPECT_EQ(vl_read(buffer, 1, 5, nullptr), k_nothing_left);
}

TEST_F(MemoryFile, GetsLinesWhateverTheSizeSays) {
    open_with(std::string("first\nsec\0ond\n\nlast", 19));
    char buffer[64];
    const char* expected[] = {"first\n", "sec", "ond\n", "\n", "last"};
    const ptrdiff_t lengths[] = {7, 5, 5, 2, 5};
    for (int i = 0; i < 5; ++i) {
        std::memset(buffer, 'q', sizeof buffer);
        EXPECT_EQ(vl_gets(buffer, 2, file) - buffer, lengths[i]) << "past the terminating zero";
        EXPECT_STREQ(buffer, expected[i]);
        EXPECT_EQ(buffer[lengths[i] - 1], 0);
        EXPECT_EQ(vl_eof(file), i == 4 ? 1 : 0);
    }
    EXPECT_EQ(vl_gets(buffer, 64, file), nullptr);
    EXPECT_EQ(vl_gets(buffer, 1, file), nullptr);
    EXPECT_EQ(vl_gets(buffer, 64, nullptr), nullptr);
}

}  // namespace
