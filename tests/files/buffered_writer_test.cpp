#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "files/file_faults.h"
#include "files/test_files.h"
#include "support/log_capture.h"
#include "support/random_seed.h"
#include "support/temporary_folder.h"
#include "vellcore/buffered_file_reader.h"
#include "vellcore/buffered_file_writer.h"
#include "vellcore/file_io.h"

namespace {

constexpr bool k_uncached = true, k_double = true, k_single = false, k_final = true, k_early = false;

/// Shows the protected fields.
class Writer : public fWriteBuffer {
public:
    explicit Writer(int handle = -1, bool allocate = true) : fWriteBuffer(handle, allocate) {}
    size_t write_file(const void* data, size_t size, size_t count) noexcept override {
        ++write_calls;
        return fWriteBuffer::write_file(data, size, count);
    }
    bool open(const std::string& path) { return open_file(path.c_str(), 0, k_uncached); }
    size_t write(const std::vector<unsigned char>& data) { return write_file(data.data(), 1, data.size()); }
    using fWriteBuffer::buffer_a;
    using fWriteBuffer::buffer_b;
    using fWriteBuffer::buffer_size;
    using fWriteBuffer::offset;
    using fWriteBuffer::request_a;
    using fWriteBuffer::write_count;
    int write_calls = 0;
};

class WriterTest : public testing::Test {
protected:
    std::string path() const { return folder / "out"; }
    void expect_file(const std::vector<unsigned char>& data) const {
        const auto back = read_whole(path());
        ASSERT_EQ(back.size(), data.size());
        EXPECT_TRUE(back == data);
    }
    TemporaryFolder folder;
    LogCapture log;
};

TEST_F(WriterTest, WritesAnySizeThroughAnyBuffer) {
    struct {
        size_t bytes, piece;
        int buffer;
        bool is_double;
        int writes;
    } const rows[] = {{1000, 1000, 8192, k_double, 1},          {8192, 8192, 8192, k_double, 1},
                      {8193, 8193, 8192, k_single, 2},          {300'000, 7, 16'384, k_double, 19},
                      {300'000, 300'000, 100'000, k_double, 3}, {300'001, 4'321, 100'000, k_single, 4},
                      {3 << 20, 1 << 20, 1 << 20, k_double, 3}, {0, 0, 8192, k_double, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.bytes << " in " << row.piece << " through " << row.buffer);
        const auto data = pattern(row.bytes);
        Writer writer;
        writer.set_buffer(row.buffer, row.is_double);
        ASSERT_TRUE(writer.open(path()));
        for (size_t at = 0; at < data.size(); at += row.piece) {
            const size_t bytes = std::min(row.piece, data.size() - at);
            ASSERT_EQ(writer.write_file(&data[at], bytes, 1), bytes);
            ASSERT_EQ(writer.get_file_position(), at + bytes);
        }
        EXPECT_TRUE(writer.close_file(k_final));
        EXPECT_EQ(writer.error(), 0);
        EXPECT_EQ(writer.write_count, row.writes);
        expect_file(data);
    }
    EXPECT_EQ(log.line_count(), 0) << log.text();
}

TEST_F(WriterTest, BuffersStartAtTheAlignmentAndKeepTheirSize) {
    Writer writer;
    for (const int size : {1, 8192, 100'000, 1 << 20}) {
        for (const bool is_double : {k_single, k_double}) {
            writer.set_buffer(size, is_double);
            EXPECT_EQ(writer.buffer_size, std::max(size, 8192));
            EXPECT_EQ(writer.get_current_buffer(), writer.buffer_a);
            EXPECT_EQ(writer.buffer_b != nullptr, is_double);
            if (size % 8192 != 0) continue;
            EXPECT_EQ(reinterpret_cast<uintptr_t>(writer.buffer_a) % 4096, 0U);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(writer.buffer_b) % 4096, 0U);
        }
    }
    writer.ensure_minimum_buffer_size(1000);
    EXPECT_EQ(writer.buffer_size, 1 << 20);
    writer.ensure_minimum_buffer_size(2 << 20);
    EXPECT_EQ(writer.buffer_size, 2 << 20);
}

TEST_F(WriterTest, OwnWritesLoopWhileADerivedClassSeesTheRest) {
    const auto data = pattern(100 * 8192);
    Writer derived;
    derived.set_buffer(8192, k_double);
    ASSERT_TRUE(derived.open(path()));
    derived.write(data);
    EXPECT_EQ(derived.write_calls, 100);
    derived.close_file(k_final);
    expect_file(data);
}

// A header is patched after the data was written: nothing beside it may change.
TEST_F(WriterTest, PatchingLeavesTheNeighbourhoodAlone) {
    auto data = pattern(100'000);
    for (const size_t position : {0U, 8192U, 12'345U, 98'304U, 99'999U}) {
        SCOPED_TRACE(position);
        Writer writer;
        writer.set_buffer(16'384, k_double);
        ASSERT_TRUE(writer.open(path()));
        writer.write(data);
        ASSERT_TRUE(writer.set_file_position(position));
        const bool was_inside = position >= 98'304;
        const size_t lands = was_inside ? position : position / 8192 * 8192;
        EXPECT_EQ(writer.get_file_position(), lands);
        writer.write_file("PATCH", 5, 1);
        writer.close_file(k_final);
        auto expected = data;
        expected.resize(std::max(expected.size(), lands + 5));
        std::memcpy(&expected[lands], "PATCH", 5);
        expect_file(expected);
        EXPECT_EQ(writer.error(), 0);
    }
}

TEST_F(WriterTest, GapsInsideTheBufferAreZeros) {
    Writer writer;
    ASSERT_TRUE(writer.open(path()));
    writer.write(pattern(50'000));
    writer.flush_buffers();
    EXPECT_EQ(writer.get_file_position(), 57'344U);
    writer.write_file("ab", 1, 2);
    EXPECT_TRUE(writer.is_file_position_inside_current_buffer(60'000));
    writer.set_file_position(60'000);
    writer.write_file("cd", 1, 2);
    writer.close_file(k_final);
    auto expected = pattern(50'000);
    expected.resize(60'002);
    std::memcpy(&expected[57'344], "ab", 2);
    std::memcpy(&expected[60'000], "cd", 2);
    expect_file(expected);
}

// The same random writes, moves and flushes on a plain model of the file.
TEST_F(WriterTest, FollowsAPlainModel) {
    const unsigned seed = random_seed();
    RecordProperty("seed", static_cast<int>(seed));
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::minstd_rand random(seed);
    for (int round = 0; round < 30; ++round) {
        Writer writer;
        writer.set_buffer(random() % 2 == 0 ? 8192 : 20'000, random() % 2 == 0);
        ASSERT_TRUE(writer.open_file(path().c_str(), 0, random() % 2 == 0));
        std::vector<unsigned char> model, scratch;
        size_t position = 0;
        for (int step = 0; step < 40; ++step) {
            if (random() % 4 == 0) {
                writer.set_file_position(random() % 100'000);
                position = writer.get_file_position();
                continue;
            }
            scratch = pattern(random() % 30'000, static_cast<unsigned>(step));
            ASSERT_EQ(writer.write(scratch), scratch.size());
            if (position + scratch.size() > model.size() && !scratch.empty()) model.resize(position + scratch.size());
            std::copy(scratch.begin(), scratch.end(),
                      model.begin() + static_cast<long>(scratch.empty() ? 0 : position));
            position += scratch.size();
            ASSERT_EQ(writer.get_file_position(), position);
        }
        writer.close_file(k_final);
        ASSERT_EQ(writer.error(), 0);
        expect_file(model);
    }
}

TEST_F(WriterTest, EarlyCloseStartsTheWriteAndLeavesTheFileOpen) {
    for (const bool is_double : {k_single, k_double}) {
        Writer writer;
        writer.set_buffer(65'536, is_double);
        ASSERT_TRUE(writer.open(path()));
        const auto data = pattern(1000);
        writer.write(data);
        EXPECT_TRUE(writer.data_pending());
        EXPECT_TRUE(writer.close_file(k_early));
        EXPECT_FALSE(writer.data_pending());
        EXPECT_EQ(writer.write_count, 1);
        EXPECT_EQ(writer.get_file_position(), 8192U);
        writer.write(std::vector<unsigned char>(1000, 0xEE));  // must not reach the write in flight
        writer.reset_buffers();
        EXPECT_TRUE(writer.close_file(k_final));
        EXPECT_EQ(writer.write_count, 1);
        expect_file(data);
    }
}

TEST_F(WriterTest, EarlyCloseIsRepeatedUntilItSucceeds) {
    const AlignedBuffer block(1 << 20);
    std::memset(block.get(), 7, 1 << 20);
    Writer writer;
    ASSERT_TRUE(writer.open(path()));
    writer.write(pattern(500));
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(writer.add_write_buffer(block.get(), 1 << 20), 1U << 20);
    std::thread closer([&] {
        while (!writer.close_file(k_early))
            std::this_thread::yield();
    });
    closer.join();
    EXPECT_TRUE(writer.close_file(k_final));
    EXPECT_EQ(writer.error(), 0);
    EXPECT_EQ(std::filesystem::file_size(path()), 8192U + (20U << 20));
}

TEST_F(WriterTest, ManyDirectBlocksGoOutWithoutCopying) {
    constexpr size_t k_block = 64 * 1024, k_blocks = 150;  // more than there are slots in the table of transfers
    const auto data = pattern(k_block * k_blocks);
    const AlignedBuffer memory(k_block * k_blocks);
    std::copy(data.begin(), data.end(), memory.get());
    Writer writer;
    EXPECT_EQ(writer.add_write_buffer(memory.get(), k_block), 0U) << "no file";
    ASSERT_TRUE(writer.open(path()));
    for (size_t i = 0; i < k_blocks; ++i)
        ASSERT_EQ(writer.add_write_buffer(memory.get() + i * k_block, k_block), k_block);
    writer.flush_buffers();
    EXPECT_EQ(writer.add_write_buffer(memory.get(), 100), 100U);
    EXPECT_TRUE(log.contains("fWriteBuffer: Write buffer not aligned"));
    EXPECT_EQ(writer.add_write_buffer(nullptr, 100), 0U);
    writer.close_file(k_final);
    auto expected = data;
    expected.insert(expected.end(), data.begin(), data.begin() + 100);
    expect_file(expected);
}

TEST_F(WriterTest, PutsSmallValuesInBothOrders) {
    Writer writer;
    writer.set_buffer(8192, k_double);
    ASSERT_TRUE(writer.open(path()));
    EXPECT_EQ(writer.put_int(16'909'060), 4U);
    writer.set_endian(false);
    EXPECT_FALSE(writer.get_endian());
    EXPECT_EQ(writer.put_int(16'909'060), 8U);
    EXPECT_EQ(writer.put_short(0x0102), 10U);
    EXPECT_EQ(writer.put_byte(0x1FF), 11U);
    EXPECT_EQ(writer.put_float(1.0F), 15U);
    writer.set_endian(true);
    EXPECT_EQ(writer.put_float(1.0F), 19U);
    writer.close_file(k_final);
    expect_file({4, 3, 2, 1, 1, 2, 3, 4, 1, 2, 0xFF, 0x3F, 0x80, 0, 0, 0, 0, 0x80, 0x3F});
}

// Bytes measure their room from the offset, the others from the used mark; the slow path answers the byte count.
TEST_F(WriterTest, PutChangesToWriteFileNearTheBuffersEnd) {
    struct {
        size_t filled;
        size_t byte, two, four;
    } const rows[] = {{8186, 8187, 8188, 8190}, {8187, 8188, 8189, 8191}, {8188, 8189, 8190, 4},
                      {8189, 8190, 8191, 4},    {8190, 8191, 2, 4},       {8191, 1, 2, 4}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.filled);
        for (int kind = 0; kind < 3; ++kind) {
            Writer writer;
            writer.set_buffer(8192, k_single);
            ASSERT_TRUE(writer.open(path()));
            writer.write(pattern(row.filled));
            const size_t result = kind == 0 ? writer.put_byte(1) : kind == 1 ? writer.put_short(1) : writer.put_int(1);
            EXPECT_EQ(result, kind == 0 ? row.byte : kind == 1 ? row.two : row.four);
            writer.close_file(k_final);
            EXPECT_EQ(std::filesystem::file_size(path()), row.filled + (kind == 0 ? 1 : kind == 1 ? 2 : 4));
        }
    }
    Writer writer;
    writer.set_buffer(8192, k_double);
    ASSERT_TRUE(writer.open(path()));
    writer.set_file_position(8190);
    EXPECT_EQ(writer.put_int(0x04030201), 4U) << "the used mark says there is room; the buffer says there is not";
    writer.close_file(k_final);
    auto expected = std::vector<unsigned char>(8190, 0);
    expected.insert(expected.end(), {1, 2, 3, 4});
    expect_file(expected);
}

TEST_F(WriterTest, StreamingLeavesTheCacheAlone) {
    // Where the file system is a cache itself, everything is cached and only the contents count.
    const bool is_disk = can_be_uncached(folder.path());
    constexpr size_t k_blocks = 32;
    const auto block = pattern(1 << 20);
    Writer writer;
    ASSERT_TRUE(writer.open(path()));
    for (size_t i = 0; i < k_blocks; ++i)
        writer.write(block);
    writer.close_file(k_final);
    CachedPages pages = cached_pages(path());
    EXPECT_EQ(pages.all, 8192);
    EXPECT_TRUE(!is_disk || pages.cached * 100 <= pages.all) << pages.cached;
    fReadBuffer reader(-1);
    reader.cfg_buffers(8, 1 << 20, 1 << 20);
    ASSERT_TRUE(reader.open_file(path().c_str(), true, true, true));
    EXPECT_EQ(reader.skip_file(1, k_blocks << 20), k_blocks << 20);
    reader.close_file();
    pages = cached_pages(path());
    EXPECT_TRUE(!is_disk || pages.cached * 100 <= pages.all) << pages.cached;
    // What somebody else has in the cache is used and stays there.
    const auto warm = read_whole(path());
    ASSERT_TRUE(reader.open_file(path().c_str(), true, true, true));
    std::vector<unsigned char> back(warm.size());
    EXPECT_EQ(reader.read_file(back.data(), 1, back.size()), warm.size());
    EXPECT_TRUE(back == warm);
    reader.close_file();
    EXPECT_GT(cached_pages(path()).cached, 4096) << "the system itself may have dropped some";
}

TEST_F(WriterTest, CutsACallersFileToWhatItWrote) {
    write_whole(path(), pattern(100'000));
    const int handle = io_open64(path().c_str(), O_RDWR, false, true, false);
    {
        fWriteBuffer writer(handle, true);
        writer.write_file("head", 1, 4);
        writer.flush_buffers();
        auto patched = pattern(100'000);
        std::memcpy(patched.data(), "head", 4);
        EXPECT_EQ(read_whole(path()), patched) << "the rest of the file is only cut at the end";
    }
    expect_file({'h', 'e', 'a', 'd'});
    EXPECT_EQ(io_get_filesize64(handle, ""), 4U) << "still open";
    io_close64(handle);
}

TEST_F(WriterTest, CountsErrorsAndDeletesABadFileOnTheNextOpen) {
    Writer writer;
    ASSERT_TRUE(writer.open(path()));
    writer.write(pattern(100));
    writer.flush_buffers();
    {
        const FileFault fault(1, EIO);
        writer.write(pattern(100));
        EXPECT_TRUE(writer.close_file(k_final));
    }
    EXPECT_EQ(writer.error(), 1);
    EXPECT_TRUE(log.contains("AIO(5): Input/output error"));
    EXPECT_FALSE(writer.open_file((folder / "no/such").c_str(), 0, k_uncached));
    EXPECT_TRUE(log.contains("Failed to write file '" + path() + "'."));
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_EQ(writer.error(), 0);
    EXPECT_FALSE(writer.open_file(nullptr, 0, k_uncached));
}

TEST_F(WriterTest, NeverDeletesADevice) {
    Writer writer;
    ASSERT_TRUE(writer.open_file("/dev/full", 0, k_uncached));
    writer.write(pattern(3 << 20));
    EXPECT_TRUE(writer.close_file(k_final));
    EXPECT_EQ(writer.error(), 3);
    EXPECT_TRUE(log.contains("AIO(5): No space left on device"));
    EXPECT_TRUE(log.contains("Writebuffer set FileSize : 'Invalid argument'"));
    ASSERT_TRUE(writer.open(path()));
    EXPECT_TRUE(log.contains("Failed to write file '/dev/full'."));
    EXPECT_EQ(access("/dev/full", F_OK), 0);
}

TEST_F(WriterTest, WorksOnWithoutABuffer) {
    Writer writer;
    writer.set_buffer(INT_MAX, k_double);  // may or may not be had; what follows is the same writer
    writer.reset_buffers();
    ASSERT_TRUE(writer.open(path()));
    writer.reset_buffers();
    EXPECT_EQ(writer.write(pattern(10)), 0U);
    EXPECT_EQ(writer.put_byte(1), 0U);
    EXPECT_EQ(writer.error(), 2);
    writer.set_memory_buffer(100);
    EXPECT_EQ(writer.write(pattern(10)), 10U);
    writer.flush_buffers();
    EXPECT_EQ(writer.error(), 3) << "a memory block beside an open file is not for that file";
    EXPECT_EQ(writer.put_byte(1), 1U);
    writer.set_buffer(8192, k_double);
    EXPECT_EQ(writer.error(), 4);
    EXPECT_EQ(writer.write(pattern(10)), 10U);
    EXPECT_TRUE(writer.close_file(k_final));
    expect_file(pattern(10));
    for (const bool is_direct : {false, true}) {
        ASSERT_TRUE(writer.open(path()));
        writer.set_memory_buffer(100);
        EXPECT_EQ(writer.write(pattern(10)), 10U);
        const AlignedBuffer block(8192);
        std::memset(block.get(), 0, 8192);
        EXPECT_TRUE(!is_direct || writer.add_write_buffer(block.get(), 8192) == 8192U);
        EXPECT_TRUE(writer.close_file(k_early)) << "nothing of it can be written, early or late";
        EXPECT_EQ(writer.error(), 1);
        EXPECT_EQ(std::filesystem::file_size(path()), is_direct ? 8192U : 0U);
    }
    Writer no_file;
    no_file.set_buffer(8192, k_double);
    EXPECT_EQ(no_file.write(pattern(20'000)), 8192U) << "nowhere to write the full buffer to";
    EXPECT_EQ(no_file.error(), 0);
    EXPECT_EQ(no_file.write_file(nullptr, 1, 1), 0U);
}

TEST_F(WriterTest, BuffersFollowAGrowingAlignment) {
    const auto data = pattern(1'500'000);
    Writer writer;
    ASSERT_TRUE(writer.open(path()));
    writer.write(data);
    writer.close_file(k_final);
    rwBufferConfigure(3 << 20, false, false, false);
    ASSERT_TRUE(writer.open(path()));
    writer.write(data);
    writer.close_file(k_final);
    rwBufferConfigure(0, false, false, false);
    expect_file(data);
}

TEST_F(WriterTest, SurvivesEveryRefusedCall) {
    const auto data = pattern(200'000);
    ASSERT_NE(io_backend_name(), nullptr);  // a ring has descriptors of its own
    const int in_use = open_descriptors();
    for (const int error : {EIO, ENOSPC}) {
        for_each_file_fault(error, [&](const FileFault& fault) {
            Writer writer;
            writer.set_buffer(65'536, k_double);
            if (!writer.open(path())) return;
            EXPECT_EQ(writer.write(data), data.size());
            writer.set_file_position(0);
            writer.write_file(data.data(), 1, 100);
            EXPECT_TRUE(writer.close_file(k_final));
            const bool is_whole = read_whole(path()) == data;
            EXPECT_TRUE(is_whole || writer.error() != 0 || log.contains("Writebuffer set FileSize"));
            EXPECT_TRUE(fault.has_fired() || is_whole);
        });
    }
    EXPECT_EQ(open_descriptors(), in_use);
}

TEST_F(WriterTest, WritesToMemoryWithoutAFile) {
    const auto data = pattern(300'000);
    Writer writer(-1, false);
    writer.set_memory_buffer(1000);
    EXPECT_EQ(writer.write(data), data.size());
    EXPECT_EQ(writer.put_byte('!'), 300'001U);
    EXPECT_FALSE(writer.data_pending());
    EXPECT_EQ(writer.buffer_size, 1000 + 3 * 131'072);
    int used = 0;
    void* block = writer.get_buffer_used(used);
    ASSERT_EQ(used, 300'001);
    EXPECT_EQ(std::memcmp(block, data.data(), data.size()), 0);
    std::free(block);
    EXPECT_EQ(writer.get_buffer_used(used), nullptr);
    EXPECT_EQ(used, 0);
    EXPECT_EQ(writer.write(data), data.size()) << "starts over in new memory";
}

class MemoryWriter : public fMemBuffer {
public:
    using fMemBuffer::capacity;
    using fMemBuffer::set_memory_buffer;
};

TEST_F(WriterTest, MemBufferGrowsInStepsAndHandsItsMemoryOver) {
    const auto data = pattern(200'000);
    MemoryWriter writer;
    EXPECT_EQ(writer.write_file(data.data(), 1, data.size()), data.size());
    EXPECT_EQ(writer.capacity, 262'144);
    EXPECT_EQ(writer.get_file_position(), data.size());
    int used = 0;
    void* block = writer.get_buffer_used(used);
    EXPECT_EQ(used, 200'000);
    EXPECT_EQ(std::memcmp(block, data.data(), data.size()), 0);
    std::free(block);
    writer.set_memory_buffer(4);
    EXPECT_EQ(writer.put_int(1), 4U);
    EXPECT_EQ(writer.capacity, 4 + 131'072) << "grown as soon as it is full";
    EXPECT_TRUE(writer.set_file_position(400'000));
    EXPECT_EQ(writer.write_file("end", 1, 3), 3U);
    block = writer.get_buffer_used(used);
    ASSERT_EQ(used, 400'003);
    const auto* bytes = static_cast<unsigned char*>(block);
    EXPECT_EQ(std::count(bytes + 4, bytes + 400'000, 0), 399'996);
    EXPECT_EQ(std::memcmp(bytes + 400'000, "end", 3), 0);
    std::free(block);
    EXPECT_TRUE(writer.set_file_position(SIZE_MAX));
    EXPECT_EQ(writer.write_file("x", 1, 1), 0U);
    EXPECT_EQ(writer.capacity, 0) << "memory that cannot reach the position is not taken at all";
    EXPECT_EQ(writer.error(), 0);
    EXPECT_TRUE(writer.open_file("x", 0, true) && writer.close_file(k_final));
    EXPECT_FALSE(writer.data_pending());
    EXPECT_EQ(writer.add_write_buffer(data.data(), 10), 0U);
}

TEST_F(WriterTest, MemBufferNeverGrowsTheCallersMemory) {
    const auto data = pattern(150);
    unsigned char memory[104];
    std::memset(memory, 0xAA, sizeof memory);
    MemoryWriter writer;
    writer.set_memory_buffer(memory, 100);
    EXPECT_EQ(writer.write_file(data.data(), 1, 150), 100U);
    EXPECT_EQ(writer.write_file(data.data(), 1, 1), 0U);
    EXPECT_EQ(std::memcmp(memory, data.data(), 100), 0);
    EXPECT_EQ(memory[100], 0xAA);
    writer.set_file_position(5000);
    EXPECT_EQ(writer.write_file(data.data(), 1, 1), 0U);
    writer.set_file_position(98);
    EXPECT_EQ(writer.write_file("xyz", 1, 3), 2U);
    writer.ensure_minimum_buffer_size(1000);
    EXPECT_EQ(writer.get_current_buffer(), memory) << "not its own: stays";
    EXPECT_EQ(memory[99], 'y');
}

}  // namespace
