#include "container/InputHeader.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "base/FileName.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::host {

namespace {

// Writes stereo audio of 101 frames at 44100 Hz with values that 16 bits can hold.
std::string Write(const test::TemporaryDirectory& directory, int format) {
    const std::string path = directory / "take";
    test::WriteAudio(path, format, 2, 44100, test::MakeValues(202));
    return path;
}

// The offset of the first value of 16 bits, found by those that follow it.
std::uint64_t FindSamples(const std::string& path, bool bigEndian) {
    const std::vector<float> values = test::MakeValues(202);
    std::string sought;
    for (std::size_t i = 1; i < 4; ++i) {
        const auto number = static_cast<std::uint16_t>(static_cast<int>(values[i] * 32768.0F));
        const std::string bytes = test::LittleEndian(number, 2);
        sought += bigEndian ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
    }
    return test::ReadFile(path).find(sought) - 2;
}

} // namespace

TEST(InputHeader, DeclaresTheSamplesOfLinearFiles) {
    struct Row {
        int format;
        bool bigEndian;
    };
    for (const Row& row :
         {Row{SF_FORMAT_WAV, false}, Row{SF_FORMAT_WAVEX, false}, Row{SF_FORMAT_RF64, false},
          Row{SF_FORMAT_AIFF, true}, Row{SF_FORMAT_AIFF | SF_ENDIAN_LITTLE, false},
          Row{SF_FORMAT_WAV | SF_ENDIAN_BIG, true}}) {
        SCOPED_TRACE(row.format);
        const test::TemporaryDirectory directory;
        const std::string path = Write(directory, row.format | SF_FORMAT_PCM_16);
        const auto layout = ReadInputHeader(path);
        ASSERT_TRUE(layout.has_value());
        EXPECT_EQ(layout->channels, 2U);
        EXPECT_EQ(layout->rate, 44100U);
        EXPECT_EQ(layout->frames, 101);
        EXPECT_EQ(layout->first, FindSamples(path, row.bigEndian));
    }
}

TEST(InputHeader, CountsFramesOfEveryWidth) {
    for (const int encoding : {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32,
                               SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE}) {
        SCOPED_TRACE(encoding);
        const test::TemporaryDirectory directory;
        const auto layout = ReadInputHeader(Write(directory, SF_FORMAT_WAV | encoding));
        ASSERT_TRUE(layout.has_value());
        EXPECT_EQ(layout->frames, 101);
    }
}

TEST(InputHeader, CountsOnlyFramesThatTheFileHas) {
    const test::TemporaryDirectory directory;
    const std::string path = Write(directory, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 5);
    const auto layout = ReadInputHeader(path);
    ASSERT_TRUE(layout.has_value());
    EXPECT_EQ(layout->frames, 99);
}

TEST(InputHeader, CountsIn64BitsInRF64) {
    const test::TemporaryDirectory directory;
    constexpr std::uint64_t kFrames = (std::uint64_t{1} << 31U) + 5;
    test::WriteSparseAudio(directory / "take", 2, 2, kFrames, 0, "");
    const auto layout = ReadInputHeader(directory / "take");
    ASSERT_TRUE(layout.has_value());
    EXPECT_EQ(layout->frames, static_cast<std::int64_t>(kFrames));
}

TEST(InputHeader, DeclaresNothingWhereSomethingIsOpen) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take";
    const std::string format =
        test::Chunk("fmt ", test::LittleEndian(1, 2) + test::LittleEndian(1, 2) +
                                test::LittleEndian(8000, 4) + test::LittleEndian(16000, 4) +
                                test::LittleEndian(2, 2) + test::LittleEndian(16, 2));
    const std::string data = test::Chunk("data", "samples.");
    const std::string endless = "data" + test::LittleEndian(0xFFFFFFFF, 4) + "samples.";
    const auto declares = [&](const std::string& chunks) {
        test::WriteFile(path, test::Chunk("RIFF", "WAVE" + chunks));
        return ReadInputHeader(path).has_value();
    };
    EXPECT_TRUE(declares(format + data));
    EXPECT_FALSE(declares(data));
    EXPECT_FALSE(declares(format));
    EXPECT_FALSE(declares(format + test::Chunk("data", "")));
    EXPECT_FALSE(declares(format + endless));
    EXPECT_FALSE(declares(format + data + data));
    test::WriteFile(path, "RIFF");
    EXPECT_FALSE(ReadInputHeader(path).has_value());
    test::WriteFile(path, "");
    EXPECT_FALSE(ReadInputHeader(path).has_value());
    for (const int other : {SF_FORMAT_WAV | SF_FORMAT_ULAW, SF_FORMAT_AIFF | SF_FORMAT_ULAW,
                            SF_FORMAT_AU | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_16}) {
        EXPECT_FALSE(ReadInputHeader(Write(directory, other)).has_value());
    }
}

TEST(InputHeader, LeavesPipesAndMissingFilesToTheSource) {
    const test::TemporaryDirectory directory;
    EXPECT_FALSE(ReadInputHeader(directory / "missing").has_value());
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(ReadInputHeader(directory / "pipe").has_value()) << "does not wait for a writer";
}

} // namespace kel::host
