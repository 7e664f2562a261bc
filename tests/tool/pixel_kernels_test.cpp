// Kernels against their definition, for formats, odd sizes and any number of shares.

#include "clip/pixel_kernels.h"

#include <cstring>

#include "clip_reference.h"

namespace {

constexpr const char* k_headers[] = {
    "YUV4MPEG2 W64 H32 C420jpeg", "YUV4MPEG2 W65 H33 C420",    "YUV4MPEG2 W7 H9 C422",      "YUV4MPEG2 W1 H1 C420",
    "YUV4MPEG2 W37 H1 C444",      "YUV4MPEG2 W1 H37 Cmono",    "YUV4MPEG2 W65 H33 C420p10", "YUV4MPEG2 W66 H34 C422p10",
    "YUV4MPEG2 W5 H5 Cmono10",    "YUV4MPEG2 W129 H3 C444p16", "YUV4MPEG2 W9 H2 C411"};

/// A frame in memory as the tool holds it, aligned for its samples.
std::vector<uint16_t> packed(const tool::ClipFormat& format, const Samples& samples) {
    const std::string text = frame_text(format, samples);
    std::vector<uint16_t> memory((text.size() + 1) / 2);
    std::memcpy(memory.data(), text.data(), text.size());
    return memory;
}

const unsigned char* bytes_of(const std::vector<uint16_t>& memory) {
    return reinterpret_cast<const unsigned char*>(memory.data());
}

class Kernels : public testing::TestWithParam<const char*> {};

TEST_P(Kernels, HalveEveryPlane) {
    const ReferenceClip clip = random_clip(GetParam(), 1, 11);
    const ReferenceClip expected = halved_clip(clip);
    const std::vector<uint16_t> in = packed(clip.format, clip.frames[0]);
    for (const int32_t shares : {1, 3, 64}) {
        std::string out(expected.format.frame_bytes() + 2, '\x55');
        for (int32_t share = 0; share < shares; ++share) {
            tool::halve_frame(clip.format, expected.format, bytes_of(in), reinterpret_cast<unsigned char*>(out.data()),
                              share, shares);
        }
        EXPECT_EQ(out, frame_text(expected.format, expected.frames[0]) + "\x55\x55") << shares;
    }
}

TEST_P(Kernels, AverageInGroups) {
    const ReferenceClip clip = random_clip(GetParam(), 7, 12);
    std::vector<std::vector<uint16_t>> frames;
    std::vector<const unsigned char*> samples;
    for (const Samples& frame : clip.frames)
        frames.push_back(packed(clip.format, frame));
    for (const auto& frame : frames)
        samples.push_back(bytes_of(frame));
    for (const size_t count : {1u, 2u, 3u, 7u}) {
        const std::span<const unsigned char* const> all(samples.data(), count);
        std::vector<uint32_t> sums(sample_count(clip.format), 999);
        std::vector<uint16_t> out(clip.format.frame_bytes() / 2 + 1);
        constexpr int32_t shares = 3;
        for (int32_t share = 0; share < shares; ++share) {
            tool::add_frames(clip.format, all.first(1), /*start_anew*/ true, sums.data(), share, shares);
            tool::add_frames(clip.format, all.subspan(1), /*start_anew*/ false, sums.data(), share, shares);
            tool::divide_sums(clip.format, sums.data(), static_cast<uint32_t>(count),
                              reinterpret_cast<unsigned char*>(out.data()), share, shares);
        }
        const std::string expected = frame_text(clip.format, mean_of(clip.frames, 0, count));
        EXPECT_EQ(std::memcmp(out.data(), expected.data(), expected.size()), 0) << count;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, Kernels, testing::ValuesIn(k_headers));

// Every sum next to a multiple of the divisor, where a mean by multiplication would go wrong first.
TEST(Mean, IsExactForTheLargestSums) {
    std::string problem;
    const tool::ClipFormat format = tool::parse_clip_header("YUV4MPEG2 W4 H1 Cmono16", problem).value();
    for (uint32_t count = 1; count <= 65536; count += count < 300 ? 1 : 997) {
        for (const uint32_t mean : {0u, 1u, 32767u, 65534u}) {
            const uint64_t exact = uint64_t{mean} * count;
            const uint64_t half = count - count / 2;  // the first sum that rounds up
            const uint32_t sums[4] = {static_cast<uint32_t>(exact), static_cast<uint32_t>(exact + half - 1),
                                      static_cast<uint32_t>(exact + half), static_cast<uint32_t>(exact + count)};
            uint16_t out[4] = {};
            tool::divide_sums(format, sums, count, reinterpret_cast<unsigned char*>(out), 0, 1);
            ASSERT_EQ(out[0], mean) << count;
            ASSERT_EQ(out[1], mean) << count;
            ASSERT_EQ(out[2], mean + 1) << count;
            ASSERT_EQ(out[3], mean + 1) << count;
        }
    }
}

}  // namespace
