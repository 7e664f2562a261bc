#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <thread>

#include "files/file_faults.h"
#include "files/test_files.h"
#include "files/transfer_table.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/file_io.h"
#include "vellcore/message_log.h"

namespace {

constexpr bool k_uncached = true, k_cached = false, k_shared = true, k_exclusive = false, k_wait = true, k_ask = false;

class RawIo : public testing::Test {
protected:
    std::string path(const char* name = "file") const { return folder.path() + "/" + name; }
    std::string make(size_t bytes, const char* name = "file") const {
        write_whole(path(name), pattern(bytes));
        return path(name);
    }
    static int open_shared(const std::string& path, int flags = O_RDONLY, bool nocache = k_cached) {
        return io_open64(path.c_str(), flags, nocache, k_shared, false);
    }
    TemporaryFolder folder;
    LogCapture log;
};

TEST_F(RawIo, OpensExclusivelyOnceUntilClosed) {
    const std::string file = make(10);
    const int first = io_open64(file.c_str(), O_RDONLY, k_uncached, k_exclusive, false);
    ASSERT_GT(first, 2);
    const int in_use = open_descriptors();
    EXPECT_EQ(io_open64(file.c_str(), O_RDONLY, k_cached, k_exclusive, false), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(open_descriptors(), in_use);
    const int shared = open_shared(file);
    EXPECT_GT(shared, 2);
    EXPECT_EQ(io_close64(first), 0);
    EXPECT_EQ(io_close64(shared), 0);
    const int again = io_open64(file.c_str(), O_RDONLY, k_cached, k_exclusive, false);
    EXPECT_GT(again, 2);
    EXPECT_NE(fcntl(again, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(io_close64(again), 0);
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(RawIo, ReleasesItsLockEvenWhileAChildSharesTheOpenFile) {
    const std::string file = make(10);
    const int first = io_open64(file.c_str(), O_RDONLY, k_cached, k_exclusive, false);
    const Pipe hold, done;
    const pid_t child = fork();
    if (child == 0) {
        io_close64(first);  // the child's close must not release the parent's lock
        done.send("x");
        char byte = 0;
        while (read(hold.read_end, &byte, 1) < 0) {
        }
        _exit(0);
    }
    char byte = 0;
    EXPECT_EQ(read(done.read_end, &byte, 1), 1);
    EXPECT_EQ(io_open64(file.c_str(), O_RDONLY, k_cached, k_exclusive, false), -1);
    EXPECT_EQ(io_close64(first), 0);
    const int again = io_open64(file.c_str(), O_RDONLY, k_cached, k_exclusive, false);
    EXPECT_GT(again, 2);
    io_close64(again);
    hold.send("x");
    waitpid(child, nullptr, 0);
}

TEST_F(RawIo, NeverHandsOutAStandardStreamsNumber) {
    const std::string file = make(10);
    const pid_t child = fork();
    if (child == 0) {
        close(0);
        const int opened = open_shared(file);
        const int created = io_create64(path("new").c_str(), false, 0);
        const bool is_free = fcntl(0, F_GETFD) < 0 && errno == EBADF;
        _exit(opened > 2 && created > 2 && opened != created && is_free ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(RawIo, CreatesEmptiesAndCutsFiles) {
    umask(0);
    make(100);
    const int file = io_create64(path().c_str(), true, 1 << 20);
    ASSERT_GT(file, 2);
    EXPECT_EQ(io_get_filesize64(file, "x"), 0U);
    EXPECT_TRUE(io_set_filesize64(file, 5'000'000'000));
    EXPECT_EQ(io_get_filesize64(file, "x"), 5'000'000'000U);
    EXPECT_TRUE(io_write64(file, "end", 4'999'999'997, 3));
    char back[8] = {};
    EXPECT_TRUE(io_read64(file, back, 4'999'999'997, 8)) << "short at the end of the file is success";
    EXPECT_STREQ(back, "end");
    EXPECT_FALSE(io_set_filesize64(file, UINT64_MAX));
    EXPECT_EQ(io_close64(file), 0);
    const int fresh = io_create64(path("fresh").c_str(), false, 0);
    struct stat facts {};
    fstat(fresh, &facts);
    EXPECT_EQ(facts.st_mode & 0777U, 0666U);
    io_close64(fresh);
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(RawIo, AnswersBadArgumentsWithFailure) {
    char byte = 0;
    int handle = 77;
    const int file = open_shared(make(100), O_RDWR);
    EXPECT_EQ(io_open64(nullptr, O_RDONLY, k_cached, k_shared, false), -1);
    EXPECT_EQ(io_open64(path("none").c_str(), O_RDONLY, k_uncached, k_exclusive, false), -1);
    EXPECT_EQ(io_create64(folder.path().c_str(), false, 0), -1);
    EXPECT_EQ(log.line_count(), 0);
    EXPECT_FALSE(io_read64(-1, &byte, 0, 1));
    EXPECT_FALSE(io_read64(file, &byte, -5, 1));
    EXPECT_FALSE(io_read64(file, nullptr, 0, 1));
    EXPECT_FALSE(io_write64(file, nullptr, 0, 1));
    EXPECT_FALSE(io_write64(file, &byte, INT64_MAX, UINT64_MAX));
    EXPECT_TRUE(log.contains("AIO(5): Bad file descriptor"));
    EXPECT_FALSE(io_read_async64(-1, &byte, 0, 1, &handle));
    EXPECT_TRUE(log.contains("AIO(3a): 9 - 'Bad file descriptor'")) << log.text();
    EXPECT_TRUE(log.contains("AIO(3c): 9 - 'Bad file descriptor'"));
    EXPECT_FALSE(io_write_async64(9999, &byte, 0, 1, &handle));
    EXPECT_TRUE(log.contains("AIO(1a): 9") && log.contains("AIO(1c): 9"));
    EXPECT_TRUE(io_read_async64(file, nullptr, 0, 1, &handle));
    EXPECT_EQ(io_complete64(file, &handle, k_wait), -1);
    EXPECT_EQ(io_complete64(file, nullptr, k_wait), -1);
    EXPECT_EQ(io_complete64(file, &handle, k_wait), 1) << "no such transfer";
    EXPECT_EQ(io_get_filesize64(-1, nullptr), ~0ULL);
    EXPECT_TRUE(log.contains("AIO: Can't get file status '(null)': Bad file descriptor"));
    EXPECT_EQ(io_close64(-1), -1);
    io_flush64(-1);
    io_get_counters(nullptr, nullptr);
    EXPECT_EQ(io_close64(file), 0);
}

// Calls with flags take offset -1 for the descriptor's own position.
TEST_F(RawIo, NegativeOffsetsTouchNothing) {
    for (const bool nocache : {k_cached, k_uncached}) {
        const int file = open_shared(make(100), O_RDWR, nocache);
        char bytes[10] = {};
        int handle = 0;
        for (const long long offset : {-1LL, -2LL, -8192LL, static_cast<long long>(INT64_MIN)}) {
            SCOPED_TRACE(offset);
            EXPECT_FALSE(io_write64(file, bytes, offset, 10));
            EXPECT_FALSE(io_read64(file, bytes, offset, 10));
            EXPECT_FALSE(io_read_async64(file, bytes, offset, 10, nullptr));
            EXPECT_TRUE(io_write_async64(file, bytes, offset, 10, &handle));
            EXPECT_EQ(io_complete64(file, &handle, k_wait), -1);
        }
        io_close64(file);
        EXPECT_EQ(read_whole(path()), pattern(100));
    }
}

TEST_F(RawIo, APipeIgnoresOffsetsAndAnswersARequestForNothing) {
    const Pipe pipe;
    char bytes[8] = {};
    EXPECT_TRUE(io_read64(pipe.read_end, bytes, 0, 0)) << "and does not wait for data";
    EXPECT_TRUE(io_write64(pipe.write_end, "hello", -1, 5));
    EXPECT_TRUE(io_read64(pipe.read_end, bytes, INT64_MIN, 5));
    EXPECT_STREQ(bytes, "hello");
    EXPECT_FALSE(io_write64(pipe.read_end, "x", 0, 1)) << "the wrong end is never ready";
    EXPECT_FALSE(io_read64(pipe.write_end, bytes, 0, 1));
}

// Its number marks a free slot.
TEST_F(RawIo, TransfersOfStandardInputAreDoneWhenTheyWereStarted) {
    const Pipe pipe;
    ASSERT_EQ(dup2(pipe.read_end, 0), 0);
    for (int i = 0; i < 200; ++i) {
        const char sent = static_cast<char>(i);
        char received = static_cast<char>(~i);
        int handle = 0;
        ASSERT_TRUE(io_write64(pipe.write_end, &sent, 0, 1));
        ASSERT_TRUE(io_read_async64(0, &received, 0, 1, &handle));
        ASSERT_EQ(io_complete64(0, &handle, k_wait), 1);
        ASSERT_EQ(received, sent);
    }
    EXPECT_FALSE(io_write_async64(0, "x", 0, 1, nullptr));
    int handle = 0;
    EXPECT_FALSE(io_write_async64(0, "x", 0, 1, &handle)) << "not open for writing";
}

TEST_F(RawIo, AnUncachedFileKeepsItsWayOfWriting) {
    const AlignedBuffer block(8192);
    std::memset(block.get(), 5, 8192);
    const int file = open_shared(make(8192), O_RDWR | O_APPEND, k_uncached);
    EXPECT_TRUE(io_write64(file, block.get(), 0, 8192));
    EXPECT_EQ(io_get_filesize64(file, "x"), 16'384U) << "appended";
    io_close64(file);
}

TEST_F(RawIo, TransfersWithoutHandleMustMoveEveryByte) {
    const int file = open_shared(make(100), O_RDWR);
    char bytes[200];
    EXPECT_TRUE(io_read_async64(file, bytes, 0, 100, nullptr));
    EXPECT_FALSE(io_read_async64(file, bytes, 0, 101, nullptr));
    EXPECT_TRUE(log.contains("AIO(4): "));
    EXPECT_TRUE(io_write_async64(file, bytes, 50, 100, nullptr));
    const Pipe pipe;
    EXPECT_FALSE(io_write_async64(pipe.write_end, bytes, 0, 1, nullptr));
    EXPECT_TRUE(log.contains("AIO(2): Illegal seek"));
    io_close64(file);
    unsigned long long read_total = 1, write_total = 1;
    io_get_counters(read_total, write_total);
    EXPECT_EQ(read_total + write_total, 0U) << "only transfers with a number are counted";
}

TEST_F(RawIo, CountsAndNumbersEveryTransfer) {
    constexpr struct {
        int32_t last, next;
    } numbers[] = {{0, 1}, {1, 2}, {INT32_MAX - 1, INT32_MAX}, {INT32_MAX, INT32_MIN}, {INT32_MIN, 1}};
    for (const auto& row : numbers)
        EXPECT_EQ(vell::number_after(row.last), row.next);
    const int file = open_shared(make(100), O_RDWR);
    char bytes[100];
    int first = 0, second = 0;
    EXPECT_TRUE(io_read_async64(file, bytes, 0, 100, &first));
    EXPECT_EQ(io_complete64(file, &first, k_wait), 1);
    EXPECT_TRUE(io_read64(file, bytes, 0, 30));
    EXPECT_TRUE(io_write_async64(file, bytes, 0, 100, &second));
    EXPECT_EQ(io_complete64(file, &second, k_wait), 1);
    EXPECT_EQ(second, first + 2);
    io_inc_counters(1, 2);
    unsigned long long read_total = 0, write_total = 0;
    io_get_counters(read_total, write_total);
    EXPECT_EQ(read_total, 131U);
    EXPECT_EQ(write_total, 102U);
    io_get_counters(read_total, write_total);
    EXPECT_EQ(read_total + write_total, 0U);
    io_close64(file);
}

TEST_F(RawIo, HoldsATransferInFlightUntilItsDataComes) {
    const Pipe pipe;
    char bytes[16] = {};
    int handle = 0;
    ASSERT_TRUE(io_read_async64(pipe.read_end, bytes, 0, sizeof bytes, &handle));
    EXPECT_EQ(io_complete64(pipe.read_end, &handle, k_ask), 0);
    EXPECT_EQ(io_complete64(pipe.read_end, &handle, k_ask), 0);
    pipe.send("hello");
    EXPECT_EQ(io_complete64(pipe.read_end, &handle, k_wait), 1) << "what has come is enough";
    EXPECT_STREQ(bytes, "hello");
    std::vector<char> large(1 << 20, 'a');
    ASSERT_TRUE(io_write_async64(pipe.write_end, large.data(), 0, large.size(), &handle));
    EXPECT_EQ(io_complete64(pipe.write_end, &handle, k_ask), 0) << "a pipe holds 64 KiB";
    size_t received = 0;
    while (received < large.size())
        received += static_cast<size_t>(read(pipe.read_end, large.data(), large.size()));
    EXPECT_EQ(received, large.size());
    EXPECT_EQ(io_complete64(pipe.write_end, &handle, k_wait), 1);
}

TEST_F(RawIo, BlockedPipesDoNotHoldUpFiles) {
    const Pipe pipes[20];
    int handles[20];
    char sink[20];
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(io_read_async64(pipes[i].read_end, sink + i, 0, 1, &handles[i]));
    const int file = open_shared(make(100'000));
    std::vector<unsigned char> bytes(100'000);
    for (int i = 0; i < 40; ++i) {
        int handle = 0;
        ASSERT_TRUE(io_read_async64(file, bytes.data(), 0, bytes.size(), &handle));
        EXPECT_EQ(io_complete64(file, &handle, k_wait), 1);
    }
    EXPECT_EQ(bytes, pattern(100'000));
    io_close64(file);
    for (int i = 0; i < 20; ++i)
        io_flush64(pipes[i].read_end);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(io_complete64(pipes[i].read_end, &handles[i], k_wait), 1);
}

TEST_F(RawIo, TheNinetySeventhTransferWaitsForItsTurn) {
    const Pipe held, free;
    char sink[98];
    int handles[97], blocked = 0, later = 0;
    ASSERT_TRUE(io_read_async64(held.read_end, sink, 0, 1, &handles[0]));
    for (int i = 1; i < 96; ++i) {
        ASSERT_TRUE(io_read_async64(free.read_end, sink + i, 0, 1, &handles[i]));
        free.send("x");
        ASSERT_EQ(io_complete64(free.read_end, &handles[i], k_wait), 1);
    }
    const int file = open_shared(make(100));
    std::atomic<bool> has_started{false};
    std::thread starter([&] {
        EXPECT_TRUE(io_read_async64(file, sink + 97, 0, 1, &blocked));
        has_started = true;
    });
    // 95 slots are free, but the turn is on the held one.
    char byte = 0;
    EXPECT_TRUE(io_read64(file, &byte, 0, 1)) << "transfers past the table are not held up";
    EXPECT_FALSE(has_started);
    held.send("y");
    EXPECT_EQ(io_complete64(held.read_end, &handles[0], k_wait), 1);
    starter.join();
    EXPECT_EQ(io_complete64(file, &blocked, k_wait), 1);
    ASSERT_TRUE(io_read_async64(file, sink, 0, 1, &later));
    EXPECT_EQ(later, blocked + 1 + 0);
    EXPECT_EQ(io_close64(file), 0);
}

TEST_F(RawIo, CloseEndsWhatIsInFlight) {
    Pipe pipe;
    char bytes[4] = {'o', 'l', 'd', 0};
    int first = 0, second = 0;
    ASSERT_TRUE(io_read_async64(pipe.read_end, bytes, 0, 4, &first));
    ASSERT_TRUE(io_read_async64(pipe.read_end, bytes, 0, 4, &second));
    const int closed = pipe.read_end;
    EXPECT_EQ(io_close64(closed), 0);
    pipe.read_end = -1;
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(write(pipe.write_end, "new", 3), -1) << "nobody holds the pipe's other end any more";
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(io_complete64(closed, &first, k_wait), 1);
    EXPECT_STREQ(bytes, "old");
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(RawIo, CloseWakesAThreadThatWaitsForTheTransfer) {
    Pipe pipe;
    char byte = 0;
    int handle = 0;
    ASSERT_TRUE(io_read_async64(pipe.read_end, &byte, 0, 1, &handle));
    int result = 7;
    std::thread waiter([&] { result = io_complete64(pipe.read_end, &handle, k_wait); });
    io_close64(pipe.read_end);
    waiter.join();
    pipe.read_end = -1;
    // -1 when it waited already, 1 when it came too late to find the slot.
    EXPECT_TRUE(result == -1 || result == 1) << result;
}

TEST_F(RawIo, OverlappingWritesKeepTheirOrder) {
    const int file = io_create64(path().c_str(), false, 0);
    constexpr size_t k_bytes = 256 * 1024;
    std::vector<std::vector<unsigned char>> data;
    for (unsigned i = 0; i < 64; ++i)
        data.emplace_back(k_bytes, static_cast<unsigned char>(i));
    int handles[64];
    for (size_t i = 0; i < 64; ++i)
        ASSERT_TRUE(io_write_async64(file, data[i].data(), static_cast<long long>(i % 3) * 1000, k_bytes, &handles[i]));
    std::vector<unsigned char> back(k_bytes);
    EXPECT_TRUE(io_read64(file, back.data(), 0, k_bytes)) << "reads after the writes started before";
    EXPECT_EQ(back[1500], 63);
    for (int& handle : handles)
        EXPECT_EQ(io_complete64(file, &handle, k_wait), 1);
    std::vector<unsigned char> final(k_bytes);
    EXPECT_TRUE(io_read64(file, final.data(), 0, k_bytes));
    EXPECT_EQ(final, back);
    EXPECT_EQ(final[0], 63);
    EXPECT_EQ(final[k_bytes - 1], 63);
    io_close64(file);
}

TEST_F(RawIo, UncachedTransfersTakeAnyAlignment) {
    constexpr struct {
        const char* label;
        long long offset;
        unsigned long long length;
        size_t shift;
    } rows[] = {{"aligned", 8192, 65536, 0},           {"odd offset", 1, 65536, 0},
                {"odd length", 0, 12345, 0},           {"odd memory", 0, 65536, 1},
                {"across the end", 98304, 65536, 0},   {"at the end", 100'000, 512, 0},
                {"large with odd tail", 0, 99'999, 0}, {"nothing", 0, 0, 0}};
    const auto data = pattern(100'000);
    const AlignedBuffer memory(256 * 1024);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        make(100'000);
        const int file = open_shared(path(), O_RDWR, k_uncached);
        ASSERT_TRUE(io_read64(file, memory.get() + row.shift, row.offset, row.length));
        const auto from = static_cast<size_t>(row.offset);
        const size_t there = std::min<size_t>(row.length, data.size() - from);
        EXPECT_TRUE(std::equal(memory.get() + row.shift, memory.get() + row.shift + there, data.begin() + row.offset));
        const auto fresh = pattern(row.length, 5);
        std::copy(fresh.begin(), fresh.end(), memory.get() + row.shift);
        ASSERT_TRUE(io_write64(file, memory.get() + row.shift, row.offset, row.length));
        EXPECT_EQ(io_close64(file), 0);
        const auto back = read_whole(path());
        ASSERT_GE(back.size(), from + row.length);
        EXPECT_TRUE(std::equal(fresh.begin(), fresh.end(), back.begin() + row.offset));
        EXPECT_TRUE(std::equal(back.begin(), back.begin() + row.offset, data.begin()));
    }
    EXPECT_EQ(log.line_count(), 0) << log.text();
}

TEST_F(RawIo, AnUncachedNumberReusedBehindOurBackReadsTheNewFile) {
    make(1 << 20);
    write_whole(path("other"), pattern(1 << 20, 9));
    const AlignedBuffer memory(1 << 20);
    const int stale = open_shared(path(), O_RDONLY, k_uncached);
    ASSERT_TRUE(io_read64(stale, memory.get(), 0, 1 << 20));
    close(stale);
    ASSERT_EQ(open(path("other").c_str(), O_RDONLY), stale);
    ASSERT_TRUE(io_read64(stale, memory.get(), 0, 1 << 20));
    const auto expected = pattern(1 << 20, 9);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), memory.get()));
    io_close64(stale);
}

// Whatever call is refused: failure or success is reported truly, with a line for a failure, and nothing stays open.
TEST_F(RawIo, SurvivesEveryRefusedCall) {
    const auto data = pattern(1 << 20);
    make(data.size());
    const AlignedBuffer memory(1 << 20), source(1 << 20);
    std::copy(data.begin(), data.end(), source.get());
    ASSERT_NE(io_backend_name(), nullptr);  // a ring has descriptors of its own
    const int before = open_descriptors();
    int round = 0;
    for (const int error : {EIO, EINVAL, ENOSPC, EOPNOTSUPP, EAGAIN}) {
        for_each_file_fault(error, [&](const FileFault&) {
            msgerror("round %d", ++round);  // or an error line equal to the last one would only be counted
            const int lines = log.line_count();
            int handle = 0;
            const int file = open_shared(path(), O_RDWR, k_uncached);
            if (file >= 0) {
                const bool is_read = io_read_async64(file, memory.get(), 0, data.size(), &handle) &&
                                     io_complete64(file, &handle, k_wait) == 1;
                EXPECT_TRUE(!is_read || std::equal(data.begin(), data.end(), memory.get()));
                const bool is_written = io_write64(file, source.get(), 0, data.size());
                EXPECT_EQ(io_close64(file), 0);
                EXPECT_TRUE((is_read && is_written) || log.line_count() > lines);
                EXPECT_TRUE(!is_written || read_whole(path()) == data);
            }
            const int reopened = io_open64(path().c_str(), O_RDONLY, k_cached, k_exclusive, false);
            EXPECT_TRUE(reopened < 0 || io_close64(reopened) == 0);
        });
    }
    EXPECT_EQ(open_descriptors(), before);
}

// No thread can be had for longer than a start is repeated: the transfer is done at once instead.
TEST_F(RawIo, WorksWithoutThreads) {
    const auto data = pattern(10'000);
    const int file = open_shared(make(data.size()), O_RDWR);
    vell::file_calls.create_thread = [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) { return EAGAIN; };
    std::vector<unsigned char> back(data.size());
    int handle = 0;
    EXPECT_TRUE(io_read_async64(file, back.data(), 0, back.size(), &handle));
    EXPECT_TRUE(log.contains("AIO(3b): 11 - 'Resource temporarily unavailable'")) << log.text();
    EXPECT_EQ(back, data);
    EXPECT_EQ(io_complete64(file, &handle, k_ask), 1);
    const int read_only = open_shared(path());
    EXPECT_FALSE(io_write_async64(read_only, back.data(), 0, 5, &handle));
    EXPECT_TRUE(log.contains("AIO(1b): 11 ") && log.contains("AIO(1c): 9 - 'Bad file descriptor'")) << log.text();
    EXPECT_EQ(io_complete64(read_only, &handle, k_wait), 1) << "its slot is free";
    io_close64(read_only);
    vell::file_calls = vell::system_file_calls;
    EXPECT_TRUE(io_read_async64(file, back.data(), 0, back.size(), &handle));
    EXPECT_EQ(io_complete64(file, &handle, k_wait), 1);
    io_close64(file);
}

TEST_F(RawIo, ShortCallsAreContinued) {
    vell::file_calls.pread = [](int fd, void* to, size_t n, off_t at) -> ssize_t {
        return pread(fd, to, std::min<size_t>(n, 1000), at);
    };
    vell::file_calls.pwrite = [](int fd, const void* from, size_t n, off_t at) -> ssize_t {
        return pwrite(fd, from, std::min<size_t>(n, 1000), at);
    };
    vell::file_calls.ring_result = [](int32_t result) { return result; };
    const auto data = pattern(10'500);
    const int file = io_create64(path().c_str(), false, 0);
    EXPECT_TRUE(io_write64(file, data.data(), 0, data.size()));
    std::vector<unsigned char> back(20'000);
    EXPECT_TRUE(io_read64(file, back.data(), 0, back.size()));
    vell::file_calls = vell::system_file_calls;
    EXPECT_EQ(io_get_filesize64(file, ""), data.size());
    EXPECT_TRUE(std::equal(data.begin(), data.end(), back.begin()));
    EXPECT_TRUE(io_close64(file) == 0);
}

TEST_F(RawIo, AFullDeviceIsAnError) {
    const int file = open_shared("/dev/full", O_RDWR);
    int handle = 0;
    char bytes[512] = {};
    EXPECT_FALSE(io_write64(file, bytes, 0, sizeof bytes));
    ASSERT_TRUE(io_write_async64(file, bytes, 0, sizeof bytes, &handle));
    EXPECT_EQ(io_complete64(file, &handle, k_wait), -1);
    EXPECT_TRUE(log.contains("AIO(5): No space left on device"));
    io_close64(file);
}

TEST_F(RawIo, AForkedChildReadsAgainWhatWasInFlight) {
    const auto data = pattern(4 << 20);
    make(data.size());
    const int file = open_shared(path(), O_RDWR, k_uncached);
    const AlignedBuffer memory(data.size());
    Pipe pipe;
    char byte = 0;
    int in_file = 0, in_pipe = 0, in_other = 0, fresh = 0;
    const int other = open_shared(make(data.size(), "other"), O_RDWR, k_uncached);
    const AlignedBuffer other_memory(data.size());
    ASSERT_TRUE(io_read_async64(pipe.read_end, &byte, 0, 1, &in_pipe));
    ASSERT_TRUE(io_read_async64(other, other_memory.get(), 0, data.size(), &in_other));
    ASSERT_TRUE(io_read_async64(file, memory.get(), 0, data.size(), &in_file));
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const bool is_read = io_complete64(file, &in_file, k_wait) == 1;
        const bool is_same = std::equal(data.begin(), data.end(), memory.get());
        // Has to come after the read that nobody carries out yet.
        const bool is_written = io_write64(other, &byte, 100, 1) && io_complete64(other, &in_other, k_ask) == 1 &&
                                std::equal(data.begin(), data.end(), other_memory.get());
        const bool is_called_off = io_complete64(pipe.read_end, &in_pipe, k_wait) == -1;
        const bool has_threads =
            io_read_async64(file, memory.get(), 0, 1000, &fresh) && io_complete64(file, &fresh, k_wait) == 1;
        _exit(is_read && is_same && is_written && is_called_off && has_threads && io_close64(file) == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(io_complete64(file, &in_file, k_wait), 1);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), memory.get()));
    EXPECT_EQ(io_complete64(pipe.read_end, &in_pipe, k_ask), 0) << "the parent's transfer goes on";
    pipe.send("z");
    EXPECT_EQ(io_complete64(pipe.read_end, &in_pipe, k_wait), 1);
    io_close64(file);
    io_close64(other);
}

// One transfer in flight per thread: with two, the strict turn could bring a thread to wait for its own first.
TEST_F(RawIo, ManyThreadsShareTheTable) {
    constexpr int k_threads = 6, k_rounds = 300;
    constexpr size_t k_block = 8192, k_blocks = 128;
    const auto data = pattern(k_block * k_blocks);
    make(data.size());
    std::atomic<int> wrong{0};
    const auto work = [&](size_t thread) {
        const int file = open_shared(path(), O_RDONLY, thread % 2 == 0);
        const AlignedBuffer memory(2 * k_block);
        for (size_t round = 0; round < k_rounds; ++round) {
            const size_t first = round * 7 % k_blocks * k_block, second = round * 11 % k_blocks * k_block;
            int handle = 0;
            wrong += !io_read_async64(file, memory.get(), static_cast<long long>(first), k_block, &handle);
            wrong += !io_read64(file, memory.get() + k_block, static_cast<long long>(second), k_block);
            while (io_complete64(file, &handle, round % 2 == 0) == 0)
                std::this_thread::yield();
            wrong += !std::equal(memory.get(), memory.get() + k_block, &data[first]);
            wrong += !std::equal(memory.get() + k_block, memory.get() + 2 * k_block, &data[second]);
        }
        wrong += io_close64(file) != 0;
    };
    std::vector<std::thread> threads;
    for (size_t t = 0; t < k_threads; ++t)
        threads.emplace_back(work, t);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(RawIo, TheTableBeginsEmptyAtEveryStart) {
    const Pipe pipe;
    char byte = 0;
    int handle = 0;
    vl_init_io64();
    ASSERT_TRUE(io_read_async64(pipe.read_end, &byte, 0, 1, &handle));
    vl_init_io64();
    EXPECT_EQ(io_complete64(pipe.read_end, &handle, k_ask), 0) << "a second start changes nothing";
    vl_close_io64();
    vl_close_io64();
    EXPECT_EQ(io_complete64(pipe.read_end, &handle, k_ask), 0);
    vl_init_io64();
    EXPECT_EQ(io_complete64(pipe.read_end, &handle, k_ask), 1);
    const int last = handle;
    ASSERT_TRUE(io_read_async64(pipe.read_end, &byte, 0, 1, &handle));
    EXPECT_EQ(handle, last + 1) << "numbers go on";
    io_flush64(pipe.read_end);
}

TEST_F(RawIo, ACancelledThreadLeavesNoLockBehind) {
    make(1 << 20);
    for (int round = 0; round < 20; ++round) {
        pthread_t thread;
        std::string target = path();
        pthread_create(
            &thread, nullptr,
            [](void* name) -> void* {
                const AlignedBuffer memory(1 << 16);
                for (;;) {
                    const int file = io_open64(static_cast<const char*>(name), O_RDONLY, k_cached, k_shared, false);
                    int handle = 0;
                    io_read_async64(file, memory.get(), 0, 1 << 16, &handle);
                    io_complete64(file, &handle, k_wait);
                    io_close64(file);
                    pthread_testcancel();
                }
            },
            target.data());
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
    }
    const int file = open_shared(path());
    char byte = 0;
    EXPECT_TRUE(io_read64(file, &byte, 0, 1));
    io_close64(file);
}

TEST_F(RawIo, TellsWhatItUses) {
    const std::string backend = io_backend_name();
    EXPECT_TRUE(backend == "threads" || backend == "uring") << backend;
    EXPECT_STRNE(io_uncached_mode(folder.path().c_str()), "unknown");
    EXPECT_STREQ(io_uncached_mode(make(10).c_str()), io_uncached_mode(folder.path().c_str()));
    EXPECT_STREQ(io_uncached_mode(path("none").c_str()), "unknown");
    EXPECT_STREQ(io_uncached_mode(nullptr), "unknown");
}

}  // namespace
