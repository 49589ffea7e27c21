#include "container/HeaderSizes.h"

#include "AudioFiles.h"
#include "Program.h"
#include "base/Errors.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace kel::host {

namespace fs = std::filesystem;

TEST(ContainerSizeBeforehand, FitsUpToTheLastByte) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    for (const std::uint32_t channels : {1U, 2U, 8U, 1024U}) {
        SCOPED_TRACE(channels);
        const std::uint64_t last = kMost - MaxFileSize(0, channels);
        EXPECT_TRUE(FitsInto32Bits(0, channels));
        EXPECT_TRUE(FitsInto32Bits(last, channels));
        EXPECT_FALSE(FitsInto32Bits(last + 1, channels));
        EXPECT_FALSE(FitsInto32Bits(kMost, channels));
        EXPECT_FALSE(FitsInto32Bits(std::uint64_t{1} << 62U, channels));
        EXPECT_EQ(MaxFileSize(last, channels), kMost);
    }
}

TEST(ContainerSizeBeforehand, CoversTheChunksThatAreWritten) {
    // And not by so much that a file would be called too large for no reason.
    for (const int channels : {1, 2, 8, 1024}) {
        for (const std::string output : {"copy.wav", "copy.rf64", "copy.aiff"}) {
            SCOPED_TRACE(output + " of " + std::to_string(channels));
            const test::TemporaryDirectory directory;
            const std::size_t values = static_cast<std::size_t>(channels) * 3;
            test::WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, channels,
                             48000, test::MakeValues(values));
            EXPECT_EQ(test::RunKelhost(directory, {"copy", "take.wav", output}).status, 0);
            const std::uint64_t samples = values * (output == "copy.aiff" ? 3 : 4);
            const std::uint64_t size = fs::file_size(directory / output);
            const std::uint64_t reckoned =
                MaxFileSize(samples, static_cast<std::uint32_t>(channels));
            EXPECT_LE(size, reckoned);
            EXPECT_LT(reckoned - size, 512U + 16U * static_cast<unsigned>(channels));
        }
    }
}

TEST(ContainerSizeAfterwards, IsRightInWhatIsWrittenAndInNothingElse) {
    struct Row {
        std::string output;
        std::uint64_t width;
    };
    for (const Row& row : {Row{"copy.wav", 4}, Row{"copy.rf64", 4}, Row{"copy.aiff", 3}}) {
        SCOPED_TRACE(row.output);
        const test::TemporaryDirectory directory;
        test::WriteTake(directory / "take.wav", 101);
        EXPECT_EQ(test::RunKelhost(directory, {"copy", "take.wav", row.output}).status, 0);
        const FileName file(directory / row.output, "a\nb");
        const std::uint64_t bytes = 202 * row.width;
        const auto errorOf = [&file](std::uint64_t sampleBytes, std::uint64_t frames) {
            try {
                VerifyHeaderSizes(file, sampleBytes, frames);
            } catch (const JobError& error) {
                return std::string(error.what());
            }
            return std::string("none");
        };
        const std::string wrong =
            "a\\nb: the header of the file that was written is wrong; is the disk full?";
        EXPECT_EQ(errorOf(bytes, 101), "none");
        EXPECT_EQ(errorOf(bytes, 102), wrong);
        EXPECT_EQ(errorOf(bytes + 4, 101), wrong);
        EXPECT_EQ(errorOf(0, 0), wrong);
        fs::resize_file(directory / row.output, fs::file_size(directory / row.output) - 1);
        EXPECT_EQ(errorOf(bytes, 101), wrong);
    }
}

} // namespace kel::host
