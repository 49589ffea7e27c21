#include "container/HeaderSizes.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"
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
    for (const int channels : {1, 1024}) {
        for (const std::string output : {"copy.wav", "copy.rf64", "copy.aiff"}) {
            SCOPED_TRACE(output + " of " + std::to_string(channels));
            const test::TemporaryDirectory directory;
            const std::size_t values = static_cast<std::size_t>(channels) * 3;
            test::WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, channels,
                             48000, test::MakeValues(values));
            const bool isAIFF = output == "copy.aiff";
            EXPECT_EQ(test::RunKelhost(directory, {"copy", "take.wav", output, "--encoding",
                                                   isAIFF ? "int24" : "float32"})
                          .status,
                      0);
            const std::uint64_t samples = values * (isAIFF ? 3 : 4);
            const std::uint64_t size = fs::file_size(directory / output);
            const std::uint64_t reckoned =
                MaxFileSize(samples, static_cast<std::uint32_t>(channels));
            EXPECT_LE(size, reckoned);
            EXPECT_LT(reckoned - size, 512U + 16U * static_cast<unsigned>(channels));
        }
    }
}

namespace {

std::string VerifyError(const FileName& file, std::uint64_t sampleBytes, std::uint64_t frames) {
    try {
        VerifyHeaderSizes(file, sampleBytes, frames);
    } catch (const JobError& error) {
        return DescribeError(error).message;
    }
    return "none";
}

const std::string kWrong = "a\\nb: the header of the written file is wrong; is the disk full?";

} // namespace

TEST(ContainerSizeAfterwards, IsRightOnlyInTheHeadersOfWholeFiles) {
    struct Row {
        std::string output;
        std::uint64_t width;
    };
    for (const Row& row : {Row{"copy.wav", 2}, Row{"copy.rf64", 2}, Row{"copy.aiff", 2}}) {
        SCOPED_TRACE(row.output);
        const test::TemporaryDirectory directory;
        test::WriteTake(directory / "take.wav", 101);
        EXPECT_EQ(test::RunKelhost(directory, {"copy", "take.wav", row.output}).status, 0);
        const FileName file(directory / row.output, "a\nb");
        const std::uint64_t bytes = 202 * row.width;
        EXPECT_EQ(VerifyError(file, bytes, 101), "none");
        EXPECT_EQ(VerifyError(file, bytes, 102), kWrong);
        EXPECT_EQ(VerifyError(file, bytes + 4, 101), kWrong);
        EXPECT_EQ(VerifyError(file, 0, 0), kWrong);
        fs::resize_file(directory / row.output, fs::file_size(directory / row.output) - 1);
        EXPECT_EQ(VerifyError(file, bytes, 101), kWrong);
    }
}

TEST(ContainerSizeAfterwards, IsCountedIn64BitsInRF64) {
    const test::TemporaryDirectory directory;
    const FileName file(directory / "take.rf64", "a\nb");
    constexpr std::uint64_t kFrames = (std::uint64_t{1} << 31U) + 5;
    test::WriteSparseAudio(file.path, 2, 2, kFrames, 0, "");
    EXPECT_EQ(VerifyError(file, 4 * kFrames, kFrames), "none");
    EXPECT_EQ(VerifyError(file, 4 * kFrames - (std::uint64_t{1} << 32U), kFrames), kWrong);
}

TEST(ContainerSizeAfterwards, IsFoundAfterAChunkOfOddSizeAndItsPadding) {
    const test::TemporaryDirectory directory;
    const FileName file(directory / "take.wav", "a\nb");
    const std::string odd = test::Chunk("note", "odd") + std::string(1, '\0');
    test::WriteFile(file.path,
                    test::Chunk("RIFF", "WAVE" + odd + test::Chunk("data", std::string(8, 'x'))));
    EXPECT_EQ(VerifyError(file, 8, 2), "none");
    EXPECT_EQ(VerifyError(file, 6, 2), kWrong);
}

TEST(ContainerSizeAfterwards, IncludesTheChunksAfterTheSamples) {
    const test::TemporaryDirectory directory;
    const FileName file(directory / "take.wav", "a\nb");
    const std::string odd = test::Chunk("odd ", "abc");
    const auto write = [&](const std::string& chunks) {
        test::WriteFile(file.path, test::Chunk("RIFF", "WAVE" + test::Chunk("data", "x") +
                                                           std::string(1, '\0') + chunks));
        return VerifyError(file, 1, 1);
    };
    EXPECT_EQ(write(odd), "none");
    EXPECT_EQ(write(odd + std::string(1, '\0') + odd + std::string(1, '\0')), "none");
    EXPECT_EQ(write(odd + std::string(3, '\0')), kWrong);
    EXPECT_EQ(write("odd " + test::LittleEndian(9, 4) + "abc"), kWrong);
    EXPECT_EQ(write("odd " + test::LittleEndian(0xFFFFFFFF, 4) + "abc"), kWrong);
}

TEST(ContainerSizeBeforehand, IncludesTheMetadata) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t last = kMost - MaxFileSize(0, 2);
    EXPECT_TRUE(FitsInto32Bits(last - 100, 2, 100));
    EXPECT_FALSE(FitsInto32Bits(last - 99, 2, 100));
    const auto require = [](WrapperFormat format, std::uint64_t samples, std::uint64_t metadata) {
        try {
            RequireFits(*FindContainer(format), "a", samples, 2, "b", metadata);
        } catch (const JobError& error) {
            return DescribeError(error).message;
        }
        return std::string("none");
    };
    EXPECT_EQ(require(WrapperFormat::BWAVE, last, 100), "none");
    EXPECT_EQ(require(WrapperFormat::AIFF, last - 100, 100), "none");
    EXPECT_EQ(require(WrapperFormat::AIFF, last, 100),
              "a: would have " + std::to_string(last) +
                  " bytes of samples and 100 of metadata, and AIFF-C holds at most 4 GiB; use b or "
                  "--metadata none");
    EXPECT_EQ(require(WrapperFormat::AIFF, kMost, 100),
              "a: would have 4294967295 bytes of samples, and AIFF-C holds at most 4 GiB; use b");
}

} // namespace kel::host
