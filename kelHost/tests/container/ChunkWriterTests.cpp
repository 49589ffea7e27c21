#include "container/ChunkWriter.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "base/Errors.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using test::LittleEndian;

// Appends "abc" and a part of "0123456789".
void AppendTwo(const FileName& file) {
    const std::string other = "0123456789";
    ChunkWriter writer(file);
    writer.Append({"odd ", "abc"});
    writer.Append("part", {2, 4}, [&](std::uint64_t offset, std::size_t count) {
        return other.substr(offset, count);
    });
    writer.Finish();
}

// The bytes of a file after AppendTwo.
std::string WithTwo(const std::string& before) {
    const test::TemporaryDirectory directory;
    const FileName file(directory / "take");
    test::WriteFile(file.path, before);
    AppendTwo(file);
    return test::ReadFile(file.path);
}

std::string WriteError(const std::string& path) {
    const FileName file(path, "a\nb");
    try {
        AppendTwo(file);
    } catch (const JobError& error) {
        return DescribeError(error).message;
    }
    return "none";
}

} // namespace

TEST(ChunkWriter, AppendsToEveryContainer) {
    const std::string chunks = "odd " + LittleEndian(3, 4) + "abc" + std::string(1, '\0') + "part" +
                               LittleEndian(4, 4) + "2345";
    EXPECT_EQ(WithTwo("RIFF" + LittleEndian(4, 4) + "WAVE"),
              "RIFF" + LittleEndian(28, 4) + "WAVE" + chunks);
    const std::string sizes = LittleEndian(7, 8) + LittleEndian(8, 8) + LittleEndian(9, 8);
    EXPECT_EQ(WithTwo("RF64\xFF\xFF\xFF\xFFWAVE" + test::Chunk("ds64", sizes)),
              "RF64\xFF\xFF\xFF\xFFWAVE" +
                  test::Chunk("ds64", LittleEndian(60, 8) + sizes.substr(8)) + chunks);
    EXPECT_EQ(WithTwo(std::string("FORM\0\0\0\4AIFC", 12)),
              std::string("FORM\0\0\0\x1C"
                          "AIFCodd \0\0\0\3abc\0part\0\0\0\4",
                          32) +
                  "2345");
}

TEST(ChunkWriter, PadsTheSamplesBefore) {
    const std::string file = "RIFF" + LittleEndian(13, 4) + "WAVEdata" + LittleEndian(1, 4) + "x";
    EXPECT_EQ(WithTwo(file).substr(20, 6), std::string("x\0odd ", 6));
}

TEST(ChunkWriter, CopiesLargePartsInPieces) {
    const test::TemporaryDirectory directory;
    const FileName file(directory / "take");
    test::WriteFile(file.path, "RIFF" + LittleEndian(4, 4) + "WAVE");
    constexpr std::uint64_t kBytes = (5U << 20U) + 3;
    std::size_t largest = 0;
    ChunkWriter writer(file);
    writer.Append("part", {10, kBytes}, [&](std::uint64_t offset, std::size_t count) {
        largest = std::max(largest, count);
        return std::string(count, static_cast<char>('a' + (offset - 10) / (1U << 20U)));
    });
    writer.Finish();
    EXPECT_LE(largest, 1U << 20U);
    const std::string bytes = test::ReadFile(file.path);
    EXPECT_EQ(bytes.size(), 12 + ChunkFileBytes(kBytes));
    EXPECT_EQ(bytes.substr(bytes.size() - 5), std::string("efff\0", 5));
}

TEST(ChunkWriter, RefusesFilesOfOtherKinds) {
    const test::TemporaryDirectory directory;
    for (const std::string content : {"", "RIFF", "fLaC12345678", "RIFX12345678"}) {
        test::WriteFile(directory / "take", content);
        EXPECT_EQ(WriteError(directory / "take"),
                  "a\\nb: cannot write its metadata: its header is of another kind");
        EXPECT_EQ(test::ReadFile(directory / "take"), content);
    }
    EXPECT_EQ(WriteError(directory / "missing"),
              "a\\nb: cannot write its metadata: No such file or directory");
}

TEST(ChunkWriter, RefusesSizesWithTooManyDigits) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", "RIFF" + LittleEndian(4, 4) + "WAVE");
    std::filesystem::resize_file(directory / "take", 0xFFFFFFF4);
    EXPECT_EQ(WriteError(directory / "take"),
              "a\\nb: cannot write its metadata: the file would be larger than 4 GiB; use --format "
              "bwave or --metadata none");
}

} // namespace kel::host
