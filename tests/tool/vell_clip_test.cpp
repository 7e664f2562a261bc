// The tool on whole clips, against results worked out one sample at a time.

#include <sys/stat.h>

#include <cstdio>

#include "clip_reference.h"
#include "run_vell.h"

namespace {

constexpr const char* k_headers[] = {"YUV4MPEG2 W64 H48 F25:1 Ip A1:1 C420jpeg XYSCSS=420JPEG",
                                     "YUV4MPEG2 W33 H17 F30000:1001 It A10:11 C420p10 XANY",
                                     "YUV4MPEG2 W18 H31 F24:1 C422",
                                     "YUV4MPEG2 W31 H9 F50:2 C422p10",
                                     "YUV4MPEG2 W40 H10 C444",
                                     "YUV4MPEG2 W19 H21 F25:1 Cmono"};

class VellClip : public testing::TestWithParam<const char*> {
protected:
    const TemporaryFolder folder;
};

/// The value behind a label of --stats.
unsigned long long statistic(const std::string& text, const std::string& label) {
    const size_t at = text.find("\n" + label + ":");
    return at == std::string::npos ? ~0ull : std::stoull(text.substr(at + label.size() + 2));
}

std::string md5sum(const std::string& path) {
    char text[33] = {};
    FILE* program = popen(("md5sum " + path).c_str(), "r");
    if (program == nullptr) return "";
    const size_t length = fread(text, 1, 32, program);
    pclose(program);
    return std::string(text, length);
}

TEST_P(VellClip, IsHalved) {
    const ReferenceClip clip = random_clip(GetParam(), 4, 21);
    const std::string in = folder.write("in.y4m", clip_text(clip));
    const RunResult run = run_vell(folder, {"clip", "proxy", in, folder / "out.y4m"});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(read_whole_file(folder / "out.y4m") == clip_text(halved_clip(clip)));
}

TEST_P(VellClip, IsReversedWithItsFrameParameters) {
    const ReferenceClip clip = random_clip(GetParam(), 7, 22);
    const std::string in = folder.write("in.y4m", clip_text(clip));
    const RunResult run = run_vell(folder, {"clip", "reverse", in, "-", "--threads", "3"});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_TRUE(run.output == clip_text(reversed_clip(clip)));
}

TEST_P(VellClip, IsAveragedWhateverTheHeapHolds) {
    const ReferenceClip clip = random_clip(GetParam(), 9, 23);
    const std::string in = folder.write("in.y4m", clip_text(clip));
    for (const size_t window : {1u, 2u, 5u, 40u}) {
        const std::string expected = clip_text(averaged_clip(clip, window));
        // 96 KiB hold the sums, the result and one to three of these frames; 1 MiB holds the clip.
        for (const char* heap : {"112K", "1M"}) {
            const RunResult run = run_vell(folder, {"clip", "average", in, folder / "out.y4m", "--window",
                                                    std::to_string(window), "--heap", heap, "--stats"});
            ASSERT_EQ(run.code, 0) << run.errors;
            EXPECT_TRUE(read_whole_file(folder / "out.y4m") == expected) << window << " in " << heap;
            EXPECT_EQ(statistic(run.errors, "reads"), clip.frames.size());
            const bool is_cached = heap == std::string("1M");
            EXPECT_TRUE(!is_cached || statistic(run.errors, "re-reads") == 0) << run.errors;
            EXPECT_TRUE(is_cached || window < 40 || statistic(run.errors, "re-reads") > 0) << run.errors;
        }
    }
}

TEST_P(VellClip, HasTheFrameSumsOfItsBytes) {
    const ReferenceClip clip = random_clip(GetParam(), 5, 24);
    const std::string in = folder.write("in.y4m", clip_text(clip));
    std::string expected;
    for (size_t i = 0; i < clip.frames.size(); ++i) {
        const std::string bytes = frame_text(clip.format, clip.frames[i]);
        char line[128];
        std::snprintf(line, sizeof line, "0, %10zu, %10zu,        1, %8zu, %s\n", i, i, bytes.size(),
                      md5sum(folder.write("frame", bytes)).c_str());
        expected += line;
    }
    for (const char* threads : {"1", "3"}) {
        const RunResult run = run_vell(folder, {"clip", "framemd5", in, "--threads", threads});
        EXPECT_EQ(run.code, 0) << run.errors;
        const size_t lines = run.output.find("\n0,");
        ASSERT_NE(lines, std::string::npos) << run.output;
        EXPECT_EQ(run.output.substr(lines + 1), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, VellClip, testing::ValuesIn(k_headers));

TEST(VellClipHead, OfTheSumsTellsTimeBaseSizeAndAspect) {
    const struct {
        const char* header;
        const char* expected;
    } cases[] = {
        {"YUV4MPEG2 W4 H2 F30000:1001 A8:4",
         "#tb 0: 1001/30000\n#media_type 0: video\n#codec_id 0: rawvideo\n"
         "#dimensions 0: 4x2\n#sar 0: 8/4\n"},
        {"YUV4MPEG2 W4 H2 F50:2",
         "#tb 0: 1/25\n#media_type 0: video\n#codec_id 0: rawvideo\n"
         "#dimensions 0: 4x2\n#sar 0: 0/1\n"},
        {"YUV4MPEG2 W4 H2 F0:0 A0:0",
         "#tb 0: 1/25\n#media_type 0: video\n#codec_id 0: rawvideo\n"
         "#dimensions 0: 4x2\n#sar 0: 0/1\n"},
    };
    for (const auto& c : cases) {
        const TemporaryFolder folder;
        const std::string in = folder.write("in.y4m", clip_text(random_clip(c.header, 1, 25)));
        const RunResult run = run_vell(folder, {"clip", "framemd5", in});
        EXPECT_NE(run.output.find(std::string("#hash: MD5\n") + c.expected), std::string::npos) << run.output;
    }
}

TEST(VellClipInfo, TellsWhatTheClipIs) {
    const TemporaryFolder folder;
    const ReferenceClip clip = random_clip("YUV4MPEG2 W33 H17 F24:1 A1:1 C420p10", 12, 26);
    const RunResult run = run_vell(folder, {"clip", "info", folder.write("in.y4m", clip_text(clip))});
    EXPECT_EQ(run.code, 0) << run.errors;
    for (const char* text : {"33x17", "420p10, 10 bit, 3 planes", "24:1", "12 of 1734 bytes", "0.500 s"}) {
        EXPECT_NE(run.output.find(text), std::string::npos) << text << " in\n" << run.output;
    }
}

TEST(VellClip, OfNoFramesStaysOne) {
    const TemporaryFolder folder;
    const std::string in = folder.write("in.y4m", "YUV4MPEG2 W4 H2 F25:1\n");
    for (const char* command : {"proxy", "reverse"}) {
        const RunResult run = run_vell(folder, {"clip", command, in, "-"});
        EXPECT_EQ(run.code, 0) << run.errors;
        EXPECT_EQ(run.output.substr(0, 9), "YUV4MPEG2");
        EXPECT_EQ(run.output.find('\n'), run.output.size() - 1);
    }
}

TEST(VellClip, HasTheOldResultsPermissionsOrTheCallers) {
    const TemporaryFolder folder;
    const ReferenceClip clip = random_clip("YUV4MPEG2 W8 H8 F25:1", 3, 27);
    const std::string in = folder.write("in.y4m", clip_text(clip));
    ASSERT_EQ(chmod(folder.write("target", "old").c_str(), 0600), 0);
    ASSERT_EQ(symlink("target", (folder / "link").c_str()), 0);
    const mode_t before = umask(027);
    EXPECT_EQ(run_vell(folder, {"clip", "reverse", in, folder / "link"}).code, 0);
    EXPECT_EQ(run_vell(folder, {"clip", "reverse", in, folder / "new"}).code, 0);
    umask(before);
    EXPECT_TRUE(read_whole_file(folder / "target") == clip_text(reversed_clip(clip)));
    struct stat facts {};
    ASSERT_EQ(stat((folder / "target").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0600u);
    ASSERT_EQ(stat((folder / "new").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0640u);
}

// The clip is ten times the heap. What the process takes beside the heap is its own code, buffers and stacks.
TEST(VellClip, StaysWithinItsMemory) {
    const TemporaryFolder folder;
    constexpr size_t frame_bytes = 640 * 360 * 3 / 2;
    constexpr size_t frame_count = 250;
    const std::string in = folder / "in.y4m";
    // Written frame by frame: the record of the child's memory begins with that of its parent.
    std::ofstream file(in, std::ios::binary);
    file << "YUV4MPEG2 W640 H360 F25:1 C420jpeg\n";
    for (size_t i = 0; i < frame_count; ++i)
        file << "FRAME\n" << std::string(frame_bytes, static_cast<char>(i));
    file.close();
    const RunResult run =
        run_vell(folder, {"clip", "average", in, folder / "out.y4m", "--window", "5", "--heap", "8M", "--stats"});
    ASSERT_EQ(run.code, 0) << run.errors;
    EXPECT_EQ(statistic(run.errors, "reads"), frame_count);
    EXPECT_EQ(statistic(run.errors, "re-reads"), 0u);
    EXPECT_GT(statistic(run.errors, "discards"), frame_count - 25);
    EXPECT_GT(statistic(run.errors, "cache hits"), 3 * frame_count);
#if !VELL_IS_SANITIZED
    EXPECT_LE(run.peak_kib, (8 + 64) * 1024) << run.errors;
#endif
}

}  // namespace
