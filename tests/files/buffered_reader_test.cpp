#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <thread>

#include "files/file_faults.h"
#include "files/test_files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/buffered_file_reader.h"
#include "vellcore/file_io.h"
#include "vellcore/heap_set.h"

namespace {

constexpr bool k_shared = true, k_prefetch = true, k_direct = true;
constexpr size_t k_mib = 1 << 20;
using Lengths = std::vector<unsigned long long>;

class Reader : public testing::Test {
protected:
    std::string path() const { return folder / "clip"; }
    std::vector<unsigned char> make(size_t bytes) const {
        auto data = pattern(bytes);
        write_whole(path(), data);
        return data;
    }
    /// All blocks to the end: their bytes joined, their lengths in order.
    static std::vector<unsigned char> read_blocks(fReadBuffer& reader, Lengths* lengths = nullptr) {
        std::vector<unsigned char> all;
        while (const auto length = reader.getNextBlock()) {
            EXPECT_EQ(reader.block_start + reader.block_length, reader.next_read_position);
            if (lengths != nullptr) lengths->push_back(length);
            all.insert(all.end(), reader.cursor, reader.cursor + reader.unread());
            reader.skip_file(1, reader.unread());
        }
        EXPECT_EQ(reader.cursor, nullptr);
        EXPECT_EQ(reader.unread(), 0U);
        EXPECT_EQ(reader.getNextBlock(), 0U);
        return all;
    }
    TemporaryFolder folder;
    LogCapture log;
};

TEST_F(Reader, SwitchesAreSetAndReadAsNegations) {
    int align = 0;
    bool through = true, direct = true, overlapped = true;
    rwBufferConfigGet(align, through, direct, overlapped);
    EXPECT_TRUE(align == 8192 && !through && !direct && !overlapped) << "a process begins with every feature on";
    EXPECT_EQ(rwBufferConfigure(4096, true, false, true), 4096);
    rwBufferConfigGet(align, through, direct, overlapped);
    EXPECT_TRUE(align == 4096 && through && !direct && overlapped);
    EXPECT_EQ(rwBufferConfigure(-1, false, false, false), 8192);
}

struct Shape {
    size_t bytes;
    int count, block, first;
    bool prefetch, direct;
    Lengths lengths;
};

// With one buffer, or past a first block of another size, the last length is rounded up to the alignment.
TEST_F(Reader, BlocksCoverTheFileInOrder) {
    const int mib = static_cast<int>(k_mib);
    const Shape shapes[] = {
        {10'000, 1, 8192, 8192, false, true, {8192, 8192}},
        {10'000, 8, mib, mib, false, true, {10'000}},
        {10'000, 8, mib, mib, true, true, {10'000}},
        {10'000, 1, mib, 0, true, true, {10'000}},
        {5'000, 8, mib, 8192, false, true, {8192}},
        {5 * k_mib, 8, mib, mib, true, true, {k_mib, k_mib, k_mib, k_mib, k_mib}},
        {5 * k_mib, 2, mib, 8192, true, true, {k_mib, k_mib, k_mib, k_mib, k_mib}},
        {3 * k_mib, 2, mib, 8192, false, true, {8192, k_mib, k_mib, k_mib - 8192}},
        {3 * k_mib + 1, 3, mib, mib, false, false, {k_mib, k_mib, k_mib, 1}},
        {3 * k_mib + 1, 1, mib, mib, false, false, {k_mib, k_mib, k_mib, 4096}},
        {20 * 65'536, 8, 65'536, 65'536, false, true, Lengths(20, 65'536)},
        {2'500'000, 4, 1'000'000, 1'000'000, false, true, {1'000'000, 1'000'000, 500'000}},
        {0, 8, mib, mib, true, true, {}},
        {1, 1, 0, -5, false, true, {8192}},
    };
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(testing::Message() << shape.bytes << " bytes, " << shape.count << " x " << shape.block);
        const auto data = make(shape.bytes);
        fReadBuffer reader(-1);
        reader.cfg_buffers(shape.count, shape.block, shape.first);
        ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, shape.prefetch, shape.direct));
        Lengths lengths;
        auto bytes = read_blocks(reader, &lengths);
        EXPECT_EQ(lengths, shape.lengths);
        ASSERT_GE(bytes.size(), data.size());
        for (size_t i = data.size(); i < bytes.size(); ++i)
            ASSERT_EQ(bytes[i], 0) << "padding is zeros";
        bytes.resize(data.size());
        EXPECT_EQ(bytes, data);
        EXPECT_FALSE(reader.block_failed());
    }
    EXPECT_EQ(log.line_count(), 0) << log.text();
}

TEST_F(Reader, KeepsTheRingFullAndRequestsEachByteOnce) {
    make(20 * k_mib);
    unsigned long long requested = 0, ignored = 0;
    io_get_counters(requested, ignored);
    fReadBuffer reader(-1);
    reader.cfg_buffers(8, static_cast<int>(k_mib), static_cast<int>(k_mib));
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    for (unsigned long long block = 0; block < 20; ++block) {
        ASSERT_EQ(reader.getNextBlock(), k_mib);
        int in_flight = 0;
        for (const auto& slot : reader.slots)
            in_flight += slot.valid_length != 0;
        EXPECT_EQ(in_flight, std::min(7, 19 - static_cast<int>(block)));
    }
    io_get_counters(requested, ignored);
    EXPECT_EQ(requested, 20 * k_mib);
}

TEST_F(Reader, IsReusedOverFilesEvenWhenLeftEarly) {
    for (const bool prefetch : {false, true}) {
        fReadBuffer reader(-1);
        reader.cfg_buffers(8, 65'536, 65'536);
        for (unsigned file = 0; file < 6; ++file) {
            const auto data = pattern(1'000'000, file);
            write_whole(path(), data);
            ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, prefetch, file % 2 == 0));
            for (unsigned block = 0; block < file; ++block) {
                ASSERT_EQ(reader.getNextBlock(), 65'536U);
                EXPECT_EQ(std::memcmp(reader.cursor, &data[block * 65'536], 65'536), 0);
            }
            EXPECT_TRUE(file != 3 || reader.close_file());
        }
    }
}

TEST_F(Reader, TakesNewBuffersWhenBlocksOrAlignmentGrow) {
    const auto data = make(300'000);
    fReadBuffer reader(-1);
    reader.cfg_buffers(1, 65'536, 262'144);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    EXPECT_EQ(reader.getNextBlock(), 262'144U) << "the first block fits although the others are smaller";
    EXPECT_GE(reader.allocated_size, 262'144U);
    reader.cfg_buffers(8, 65'536, 65'536);
    EXPECT_EQ(reader.buffer_count, 1) << "another count is ignored once buffers exist";
    reader.cfg_buffers(1, 524'288, 0);
    EXPECT_EQ(reader.getNextBlock(), 40'960U);
    EXPECT_EQ(std::memcmp(reader.cursor, &data[262'144], 300'000 - 262'144), 0);
    rwBufferConfigure(1 << 20, false, false, false);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    EXPECT_EQ(reader.getNextBlock(), 262'144U);
    EXPECT_EQ(reader.getNextBlock(), k_mib) << "the tail rounded up to the new alignment still fits";
    EXPECT_GE(reader.allocated_size, k_mib);
    EXPECT_EQ(std::memcmp(reader.cursor, &data[262'144], 300'000 - 262'144), 0);
    rwBufferConfigure(0, false, false, false);
    fReadBuffer twelve(-1);
    twelve.cfg_buffers(12, 8192, 0);
    EXPECT_EQ(twelve.buffer_count, 8);
    twelve.cfg_buffers(-3, INT_MIN, INT_MIN);
    EXPECT_EQ(twelve.buffer_count, 1);
    EXPECT_EQ(twelve.get_buffer(), 8192U);
}

TEST_F(Reader, ReportsAnAllocationThatFailsAndTriesAgain) {
    make(100);
    fReadBuffer reader(-1);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    reader.block_size = UINT64_MAX;
    EXPECT_FALSE(reader.ensure_buffers());
    EXPECT_TRUE(log.contains("FileBuffer: Failed to allocate buffer space (18014398509481976.00Kb/0)")) << log.text();
    EXPECT_EQ(reader.getNextBlock(), 0U);
    reader.block_size = 8192;
    EXPECT_EQ(reader.getNextBlock(), 8192U);
}

TEST_F(Reader, FailsToOpenWithoutATrace) {
    const int in_use = open_descriptors();
    fReadBuffer reader(-1);
    EXPECT_FALSE(reader.open_file((folder / "none").c_str(), k_shared, k_prefetch, k_direct));
    EXPECT_TRUE(reader.failed);
    EXPECT_FALSE(reader.open_file(nullptr, k_shared, false, false));
    make(10);
    const int holder = io_open64(path().c_str(), O_RDONLY, false, false, false);
    EXPECT_FALSE(reader.open_file(path().c_str(), !k_shared, false, false));
    EXPECT_EQ(reader.file_handle, -1);
    EXPECT_EQ(reader.getNextBlock(), 0U);
    EXPECT_EQ(reader.read_float(), -1.0F);
    io_close64(holder);
    EXPECT_TRUE(reader.open_file(path().c_str(), !k_shared, false, false));
    EXPECT_FALSE(reader.failed);
    reader.close_file();
    EXPECT_EQ(open_descriptors(), in_use);
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(Reader, LeavesACallersHandleOpenAndUntouched) {
    const auto data = make(3 * k_mib);
    const int handle = io_open64(path().c_str(), O_RDONLY, false, k_shared, false);
    {
        fReadBuffer reader(handle);
        EXPECT_FALSE(reader.failed);
        reader.cfg_buffers(4, 65'536, 65'536);
        ASSERT_EQ(reader.getNextBlock(), 65'536U);
        EXPECT_EQ(std::memcmp(reader.cursor, data.data(), 65'536), 0);
    }
    unsigned char byte = 0;
    EXPECT_TRUE(io_read64(handle, &byte, 100, 1));
    EXPECT_EQ(byte, data[100]);
    io_close64(handle);
    const Pipe pipe;
    fReadBuffer empty(pipe.read_end);
    EXPECT_TRUE(empty.failed);
    EXPECT_EQ(empty.getNextBlock(), 0U);
}

TEST_F(Reader, ReadsPiecesAcrossBlocks) {
    const auto data = make(200'000);
    for (const int count : {1, 3}) {
        fReadBuffer reader(-1);
        reader.cfg_buffers(count, 8192, 8192);
        ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
        std::vector<unsigned char> piece(50'000);
        EXPECT_EQ(reader.read_file(piece.data(), 100, 300), 30'000U);
        EXPECT_EQ(std::memcmp(piece.data(), data.data(), 30'000), 0);
        EXPECT_EQ(reader.skip_file(7, 1000), 7'000U);
        EXPECT_EQ(reader.read_file(piece.data(), 50'000, 1), 50'000U);
        EXPECT_EQ(std::memcmp(piece.data(), &data[37'000], 50'000), 0);
        EXPECT_EQ(reader.read_file(nullptr, 1, 1), 0U);
        EXPECT_EQ(reader.read_file(piece.data(), 0, SIZE_MAX), 0U);
        // The tail's length is rounded up only without read-ahead.
        EXPECT_EQ(reader.skip_file(SIZE_MAX, SIZE_MAX), (count == 1 ? 204'800U : 200'000U) - 87'000U);
    }
}

TEST_F(Reader, ReadsFloatsInBothOrdersAndSuppressesTheUnusual) {
    struct {
        const char* label;
        std::vector<unsigned char> bytes;
        bool little;
        float value;
    } const rows[] = {{"one", {0, 0, 0x80, 0x3F}, true, 1.0F},
                      {"one, other order", {0x3F, 0x80, 0, 0}, false, 1.0F},
                      {"infinity", {0, 0, 0x80, 0x7F}, true, 0.0F},
                      {"NaN", {1, 0, 0xC0, 0xFF}, true, 0.0F},
                      {"minus two", {0, 0, 0, 0xC0}, true, -2.0F}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        fReadBuffer reader(-1);
        EXPECT_TRUE(reader.get_endian());
        reader.set_endian(row.little);
        EXPECT_EQ(reader.get_endian(), row.little);
        reader.set_memory_buffer(row.bytes.data(), 4);
        EXPECT_EQ(reader.read_float(), row.value);
        reader.set_memory_buffer(row.bytes.data(), 3);
        EXPECT_EQ(reader.read_float(), -1.0F);
    }
    write_whole(path(), std::vector<unsigned char>(8190, 0));
    std::vector<unsigned char> more = read_whole(path());
    more.insert(more.end(), {0, 0, 0x80, 0x3F});
    write_whole(path(), more);
    fReadBuffer reader(-1);
    reader.cfg_buffers(2, 8192, 8192);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    EXPECT_EQ(reader.skip_file(8190, 1), 8190U);
    EXPECT_EQ(reader.read_float(), 1.0F) << "across two blocks";
}

TEST_F(Reader, ServesMemoryAndGoesBackToFiles) {
    const auto data = make(100'000);
    fReadBuffer reader(-1);
    reader.cfg_buffers(4, 8192, 8192);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    reader.getNextBlock();
    reader.close_file();
    const char text[] = "from memory";
    reader.set_memory_buffer(text, sizeof text);
    char back[32] = {};
    EXPECT_TRUE(reader.set_position(5));
    EXPECT_EQ(reader.read_file(back, 1, 32), sizeof text - 5);
    EXPECT_STREQ(back, "memory");
    EXPECT_EQ(reader.getNextBlock(), 0U);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    EXPECT_EQ(read_blocks(reader), data);
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(Reader, PositionsAnywhereWithOneBuffer) {
    const auto data = make(100'000);
    fReadBuffer reader(-1);
    reader.cfg_buffers(1, 16'384, 16'384);
    for (const bool prefetch : {false, true}) {
        ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, prefetch, k_direct));
        for (const size_t position : {50'000U, 3U, 99'999U, 16'384U, 16'383U, 0U}) {
            SCOPED_TRACE(position);
            ASSERT_TRUE(reader.set_position(position));
            unsigned char two[2] = {};
            EXPECT_EQ(reader.read_file(two, 1, 2), 2U);
            EXPECT_EQ(two[0], data[position]);
        }
        EXPECT_TRUE(reader.set_position(100'000));
        EXPECT_FALSE(reader.set_position(100'001));
    }
    EXPECT_EQ(log.line_count(), 0);
}

// Blocks chosen for a smaller alignment end before the position within the larger unit.
TEST_F(Reader, PositionsPastABlockSmallerThanTheAlignment) {
    const auto data = make(100'000);
    fReadBuffer reader(-1);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, !k_direct));
    reader.cfg_buffers(1, 4096, 4096);
    rwBufferConfigure(16'384, false, false, false);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    for (const size_t position : {15'000U, 6'000U, 30'000U, 99'999U}) {
        SCOPED_TRACE(position);
        ASSERT_TRUE(reader.set_position(position));
        unsigned char byte = 0;
        EXPECT_EQ(reader.read_file(&byte, 1, 1), 1U);
        EXPECT_EQ(byte, data[position]);
    }
    rwBufferConfigure(0, false, false, false);
}

TEST_F(Reader, PositionsForwardsWithSeveralBuffers) {
    const auto data = make(200'000);
    fReadBuffer reader(-1);
    reader.cfg_buffers(4, 16'384, 16'384);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, k_prefetch, k_direct));
    unsigned char byte = 0;
    ASSERT_TRUE(reader.set_position(40'000));
    EXPECT_TRUE(reader.read_file(&byte, 1, 1) == 1 && byte == data[40'000]);
    EXPECT_TRUE(reader.set_position(32'768)) << "inside the block";
    EXPECT_TRUE(reader.read_file(&byte, 1, 1) == 1 && byte == data[32'768]);
    EXPECT_FALSE(reader.set_position(32'767));
    EXPECT_TRUE(log.contains("FileBuffer: Failed to position backwards..."));
    EXPECT_TRUE(reader.read_file(&byte, 1, 1) == 1 && byte == data[32'769]) << "a refused move changes nothing";
    EXPECT_TRUE(reader.set_position(49'152)) << "the block's end";
    EXPECT_TRUE(reader.set_position(49'152)) << "again, now without a block";
    EXPECT_TRUE(reader.read_file(&byte, 1, 1) == 1 && byte == data[49'152]);
    EXPECT_FALSE(reader.set_position(200'001));
}

TEST_F(Reader, PositionSurvivesAChangeToSeveralBuffers) {
    const auto data = make(200'000);
    fReadBuffer reader(-1);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    ASSERT_TRUE(reader.set_position(50'000));
    reader.cfg_buffers(8, 16'384, 16'384);
    std::vector<unsigned char> rest(150'000);
    EXPECT_EQ(reader.read_file(rest.data(), 1, rest.size()), rest.size());
    EXPECT_EQ(std::memcmp(rest.data(), &data[50'000], rest.size()), 0);
}

TEST_F(Reader, ReadsRawBytesAroundTheBlock) {
    const auto data = make(400'000);
    fReadBuffer reader(-1);
    reader.cfg_buffers(1, 65'536, 65'536);
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    ASSERT_EQ(reader.getNextBlock(), 65'536U);
    std::vector<unsigned char> dest(600'000);
    struct {
        const char* label;
        unsigned long long position;
        size_t length, capacity, result;
    } const rows[] = {{"inside the block", 1'000, 5'000, 5'000, 5'000},
                      {"out of the block, rest rounded", 60'000, 10'000, 600'000, 5'536 + 8'192},
                      {"no room for the rounding", 60'000, 10'000, 10'000, 0},
                      {"room for exactly that", 60'000, 10'000, 13'728, 13'728},
                      {"outside, aligned, odd length", 81'920, 12'345, 12'345, 12'345},
                      {"outside, unaligned", 81'921, 100, 600'000, 0},
                      {"past the end of the file", 393'216, 20'000, 20'000, 20'000},
                      {"nothing", 0, 0, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        ASSERT_EQ(reader.read_raw_bytes(dest.data(), row.position, row.length, row.capacity), row.result);
        const size_t there = std::min<size_t>(row.result, data.size() - row.position);
        EXPECT_EQ(std::memcmp(dest.data(), &data[row.position], there), 0);
    }
    EXPECT_EQ(reader.read_raw_bytes(nullptr, 0, 10, 10), 0U);
    EXPECT_EQ(reader.read_raw_bytes(dest.data(), 60'000, SIZE_MAX, 600'000), 0U);
    constexpr size_t k_huge = SIZE_MAX - 70'000;
    EXPECT_EQ(reader.read_raw_bytes(dest.data(), 65'536, k_huge, SIZE_MAX), k_huge) << "what is not there counts";
    EXPECT_EQ(reader.next_read_position, 65'536U);
}

TEST_F(Reader, SplitsLargeRawReads) {
    const auto data = make(3'000'000);
    const AlignedBuffer dest(3'006'464);
    for (const int value : {65'537, 65'536, 131'072, 100'000}) {
        SCOPED_TRACE(value);
        fReadBuffer::set_xfer_breakvalue(value);
        fReadBuffer reader(-1);
        ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
        std::memset(dest.get(), 0, 3'006'464);
        EXPECT_EQ(reader.read_raw_bytes(dest.get(), 0, 3'006'464, 3'006'464), 3'006'464U);
        EXPECT_EQ(std::memcmp(dest.get(), data.data(), data.size()), 0);
    }
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(Reader, AShrunkenFileIsToldAndZeroed) {
    const auto data = make(3 * k_mib);
    fReadBuffer reader(-1);
    reader.cfg_buffers(1, static_cast<int>(k_mib), static_cast<int>(k_mib));
    ASSERT_TRUE(reader.open_file(path().c_str(), k_shared, false, k_direct));
    ASSERT_EQ(truncate(path().c_str(), k_mib + 100), 0);
    const auto all = read_blocks(reader);
    ASSERT_EQ(all.size(), 3 * k_mib);
    EXPECT_EQ(std::memcmp(all.data(), data.data(), k_mib + 100), 0);
    EXPECT_EQ(std::count(all.begin() + k_mib + 100, all.end(), 0), static_cast<long>(2 * k_mib - 100));
    EXPECT_TRUE(reader.block_failed());
}

TEST_F(Reader, SurvivesEveryRefusedCall) {
    const auto data = make(1'000'000);
    ASSERT_NE(io_backend_name(), nullptr);  // a ring has descriptors of its own
    const int in_use = open_descriptors();
    for (const int count : {1, 4}) {
        for (const int error : {EIO, EINVAL}) {
            for_each_file_fault(error, [&](const FileFault&) {
                fReadBuffer reader(-1);
                reader.cfg_buffers(count, 131'072, 131'072);
                if (!reader.open_file(path().c_str(), !k_shared, count == 4, k_direct)) return;
                auto all = read_blocks(reader);
                EXPECT_TRUE(reader.block_failed() || all.size() >= data.size());
                all.resize(std::min(all.size(), data.size()));
                EXPECT_TRUE(std::equal(all.begin(), all.end(), data.begin()));
                EXPECT_EQ(reader.getNextBlock(), 0U);
                const bool is_reopened = reader.open_file(path().c_str(), !k_shared, false, k_direct) ||
                                         reader.open_file(path().c_str(), !k_shared, false, k_direct);
                EXPECT_TRUE(is_reopened) << "no lock is left; the first attempt may meet the refused call";
            });
        }
    }
    EXPECT_EQ(open_descriptors(), in_use);
}

TEST_F(Reader, ManyReadersPauseWithoutHoldingEachOtherUp) {
    const auto data = make(2 * k_mib);
    std::vector<std::unique_ptr<fReadBuffer>> readers;
    for (int i = 0; i < 20; ++i) {
        readers.push_back(std::make_unique<fReadBuffer>(-1));
        readers.back()->cfg_buffers(8, 65'536, 65'536);
        ASSERT_TRUE(readers.back()->open_file(path().c_str(), k_shared, i % 2 == 0, k_direct));
        ASSERT_EQ(readers.back()->getNextBlock(), 65'536U);
    }
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            fReadBuffer::set_xfer_breakvalue(131'072);
            const AlignedBuffer dest(k_mib);
            for (size_t i = static_cast<size_t>(t); i < readers.size(); i += 4) {
                wrong += readers[i]->read_raw_bytes(dest.get(), k_mib, k_mib, k_mib) != k_mib;
                wrong += std::memcmp(dest.get(), &data[k_mib], k_mib) != 0;
                readers[i]->skip_file(1, 65'536);
                auto rest = read_blocks(*readers[i]);
                wrong += !std::equal(rest.begin(), rest.end(), data.begin() + 65'536, data.end());
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(Reader, FillsTheNameFieldWithoutATerminator) {
    std::string deep = folder.path();
    while (deep.size() + 201 < 1100) {
        deep += "/" + std::string(200, 'd');
        mkdir(deep.c_str(), 0700);
    }
    deep += "/f";
    write_whole(deep, pattern(10));
    ASSERT_GT(deep.size(), 1024U);
    fReadBuffer reader(-1);
    ASSERT_TRUE(reader.open_file(deep.c_str(), k_shared, false, false));
    EXPECT_EQ(std::memcmp(reader.file_name, deep.data(), 1024), 0);
}

}  // namespace
