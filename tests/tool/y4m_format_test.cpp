// Clip headers and sizes as text.

#include "clip/y4m_format.h"

#include "ui/byte_size.h"

namespace {

TEST(ClipHeader, TellsTheLayoutOfAFrame) {
    const struct {
        const char* line;
        uint32_t bits, planes, chroma_width, chroma_height;
        uint64_t frame_bytes;
    } cases[] = {
        {"YUV4MPEG2 W5 H3", 8, 3, 3, 2, 15 + 2 * 6},
        {"YUV4MPEG2 W5 H3 C420", 8, 3, 3, 2, 15 + 2 * 6},
        {"YUV4MPEG2 W5 H3 C420jpeg XYSCSS=420JPEG", 8, 3, 3, 2, 15 + 2 * 6},
        {"YUV4MPEG2 W5 H3 C420mpeg2", 8, 3, 3, 2, 15 + 2 * 6},
        {"YUV4MPEG2 W5 H3 C420paldv", 8, 3, 3, 2, 15 + 2 * 6},
        {"YUV4MPEG2 W5 H3 C420p10", 10, 3, 3, 2, 2 * (15 + 2 * 6)},
        {"YUV4MPEG2 W5 H3 C422", 8, 3, 3, 3, 15 + 2 * 9},
        {"YUV4MPEG2 W5 H3 C422p10", 10, 3, 3, 3, 2 * (15 + 2 * 9)},
        {"YUV4MPEG2 W5 H3 C444", 8, 3, 5, 3, 45},
        {"YUV4MPEG2 W5 H3 C444p16", 16, 3, 5, 3, 90},
        {"YUV4MPEG2 W5 H3 C411", 8, 3, 2, 3, 15 + 2 * 6},
        {"YUV4MPEG2 W5 H3 Cmono", 8, 1, 5, 3, 15},
        {"YUV4MPEG2 W5 H3 Cmono10", 10, 1, 5, 3, 30},
        {"YUV4MPEG2 W1000000 H1000000 C444p16", 16, 3, 1000000, 1000000, 6'000'000'000'000},
    };
    for (const auto& c : cases) {
        std::string problem;
        const auto format = tool::parse_clip_header(c.line, problem);
        ASSERT_TRUE(format) << c.line << ": " << problem;
        EXPECT_EQ(format->bits, c.bits) << c.line;
        EXPECT_EQ(format->plane_count, c.planes) << c.line;
        EXPECT_EQ(format->frame_bytes(), c.frame_bytes) << c.line;
        EXPECT_EQ(format->plane(1).width, c.chroma_width) << c.line;
        EXPECT_EQ(format->plane(1).height, c.chroma_height) << c.line;
        EXPECT_EQ(tool::format_clip_header(*format), std::string(c.line) + "\n");
    }
}

TEST(ClipHeader, IsRefusedWhenItIsWrong) {
    const char* lines[] = {"",
                           "RIFF",
                           "YUV4MPEG",
                           "YUV4MPEG2",
                           "YUV4MPEG2x W4 H4",
                           "YUV4MPEG2 W4",
                           "YUV4MPEG2 H4",
                           "YUV4MPEG2 W0 H4",
                           "YUV4MPEG2 W4 H-4",
                           "YUV4MPEG2 W4 H4x",
                           "YUV4MPEG2 W1000001 H4",
                           "YUV4MPEG2 W99999999999 H4",
                           "YUV4MPEG2 W4 H4 F25",
                           "YUV4MPEG2 W4 H4 Fa:b",
                           "YUV4MPEG2 W4 H4 A1:",
                           "YUV4MPEG2 W4 H4 C",
                           "YUV4MPEG2 W4 H4 C444alpha",
                           "YUV4MPEG2 W4 H4 C420p17",
                           "YUV4MPEG2 W4 H4 C420p8",
                           "YUV4MPEG2 W4 H4 C420p",
                           "YUV4MPEG2 W4 H4 Cmono99",
                           "YUV4MPEG2 W4 H4 C10",
                           "YUV4MPEG2 W4 H4 Cp10"};
    for (const char* line : lines) {
        std::string problem;
        EXPECT_FALSE(tool::parse_clip_header(line, problem)) << line;
        EXPECT_NE(problem, "") << line;
    }
}

TEST(ClipHeader, KeepsEverythingButTheSizeWhenHalved) {
    std::string problem;
    const auto format = tool::parse_clip_header("YUV4MPEG2 W7 H5 F30000:1001 It A10:11  C420p10 XWIDE=1 XH", problem);
    ASSERT_TRUE(format) << problem;
    EXPECT_EQ(format->rate.numerator, 30000u);
    EXPECT_EQ(format->aspect.denominator, 11u);
    EXPECT_EQ(tool::format_clip_header(format->halved()), "YUV4MPEG2 W4 H3 F30000:1001 It A10:11 C420p10 XWIDE=1 XH\n");
}

TEST(FrameLine, GivesItsParameters) {
    EXPECT_EQ(tool::parse_frame_line("FRAME"), "");
    EXPECT_EQ(tool::parse_frame_line("FRAME Ixyz Xa"), " Ixyz Xa");
    for (const char* line : {"", "FRAM", "FRAMES", "frame", "xFRAME"}) {
        EXPECT_FALSE(tool::parse_frame_line(line)) << line;
    }
    EXPECT_EQ(tool::format_frame_line(" Ixyz"), "FRAME Ixyz\n");
}

TEST(ByteSize, ReadsWhatPeopleWrite) {
    const struct {
        const char* text;
        uint64_t bytes;  ///< 0: refused
    } cases[] = {{"1", 1},
                 {"65536K", 64 << 20},
                 {"64M", 64 << 20},
                 {"64m", 64 << 20},
                 {"2G", uint64_t{2} << 30},
                 {"1T", uint64_t{1} << 40},
                 {"0", 0},
                 {"", 0},
                 {"M", 0},
                 {"-1M", 0},
                 {"64MB", 0},
                 {"6 4", 0},
                 {"99999999999999T", 0},
                 {"99999999999999999999", 0}};
    for (const auto& c : cases)
        EXPECT_EQ(tool::parse_byte_size(c.text).value_or(0), c.bytes) << c.text;
    EXPECT_EQ(tool::format_byte_size(512), "512 B");
    EXPECT_EQ(tool::format_byte_size(3 << 19), "1.5 MiB");
}

}  // namespace
