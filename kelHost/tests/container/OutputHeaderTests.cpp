#include "container/OutputHeader.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "base/Errors.h"
#include "container/HeaderSizes.h"
#include "container/StoredFormat.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::host {

namespace {

// The bytes of a file of three values in 3 channels, with a mask.
std::string WithMask(int format, std::uint32_t mask) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take";
    test::WriteAudio(path, format, 3, 8000, test::MakeValues(3));
    WriteChannelMask(path, mask);
    EXPECT_EQ(test::ReadAudio(path).values, test::MakeValues(3));
    return test::ReadFile(path);
}

std::string Without(int format) {
    const test::TemporaryDirectory directory;
    test::WriteAudio(directory / "take", format, 3, 8000, test::MakeValues(3));
    return test::ReadFile(directory / "take");
}

} // namespace

TEST(OutputHeader, HasTheMaskInItsFormatChunk) {
    for (const int format :
         {SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, SF_FORMAT_RF64 | SF_FORMAT_PCM_24}) {
        const std::string before = Without(format);
        const std::size_t place = before.find("fmt ") + 28;
        std::string expected = before;
        expected.replace(place, 4, test::LittleEndian(0x60F, 4));
        EXPECT_TRUE(WithMask(format, 0x60F) == expected);
        EXPECT_TRUE(WithMask(format, 0) == expected.replace(place, 4, 4, '\0'));
    }
}

TEST(OutputHeader, HasAChunkForTheMaskInAIFF) {
    // 24 bits: nine bytes of samples and one of padding.
    for (const int encoding : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24}) {
        const int format = SF_FORMAT_AIFF | SF_ENDIAN_BIG | encoding;
        const std::string before = Without(format);
        std::string expected = before + std::string(before.size() % 2, '\0') + "CHAN" +
                               std::string("\0\0\0\x0C\0\1\0\0\0\0\6\x0F\0\0\0\0", 16);
        expected[7] = static_cast<char>(expected.size() - 8);
        EXPECT_TRUE(WithMask(format, 0x60F) == expected);
        EXPECT_TRUE(WithMask(format, 0) == before);
    }
}

TEST(OutputHeader, IsOnlyChangedWhereItHasAMask) {
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_AU | SF_FORMAT_PCM_16}) {
        EXPECT_TRUE(WithMask(format, 7) == Without(format));
    }
}

TEST(OutputHeader, LimitsTheFramesOfPeaksTo32Bits) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take.wav";
    test::WriteAudio(path, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 1, 8000, {0.5F});
    WritePeaks(path, {{2.0F, (std::uint64_t{1} << 32U) + 5}}, 7);
    const std::string bytes = test::ReadFile(path);
    EXPECT_EQ(bytes.substr(bytes.find("PEAK") + 12, 12),
              test::LittleEndian(7, 4) + test::BytesOf(std::vector<float>{2.0F}) +
                  test::LittleEndian(0xFFFFFFFF, 4));
}

TEST(OutputHeader, HasNoMorePeaksThanThereIsRoomFor) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take.wav";
    for (const int encoding : {SF_FORMAT_FLOAT, SF_FORMAT_PCM_16}) {
        test::WriteAudio(path, SF_FORMAT_WAVEX | encoding, 1, 8000, {0.5F});
        const std::string before = test::ReadFile(path);
        WritePeaks(path, {{2.0F, 5}, {2.0F, 5}}, 7);
        EXPECT_TRUE(test::ReadFile(path) == before);
    }
}

TEST(OutputHeader, MustBeWritable) {
    const test::TemporaryDirectory directory;
    try {
        WriteChannelMask({directory / "missing", "copy.wav"}, 3);
        FAIL();
    } catch (const JobError& error) {
        EXPECT_EQ(DescribeError(error).message,
                  "copy.wav: cannot complete its header: No such file or directory");
    }
}

} // namespace kel::host
