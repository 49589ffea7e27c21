#include "container/RepairedCopy.h"

#include "base/Errors.h"

#include "AudioFiles.h"
#include "HeaderFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>

namespace kel::host {

namespace {

TemporaryFile Repair(const std::string& path) {
    return MakeRepairedCopy(path, ReadInputHeader(path).value(), DefaultTemporaryDirectory(),
                            [](const std::function<void()>& step) { step(); });
}

} // namespace

TEST(RepairedCopy, OfWaveHasNewSizesAndTheSameSamples) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", test::MakeWave(0, 0));
    EXPECT_EQ(test::ReadFile(Repair(directory / "take").Path()), test::MakeWave({}, {}));
}

TEST(RepairedCopy, OfRF64HasItsSamplesAtTheSamePlaceOfABlock) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", test::MakeRF64(0, 0));
    const TemporaryFile copy = Repair(directory / "take");
    const auto layout = ReadInputHeader(FileName(copy.Path())).value().Layout();
    EXPECT_EQ(layout.value().first, 80U);
    EXPECT_EQ(layout->frames, 100);
    EXPECT_EQ(test::ReadFile(copy.Path()).substr(80), test::MakeSamples());
}

TEST(RepairedCopy, HasNoPartOfAFrame) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", test::MakeWave(0, 0) + "x");
    EXPECT_EQ(test::ReadFile(Repair(directory / "take").Path()), test::MakeWave({}, {}));
}

// No chunk fits into the four bytes by which the new header is shorter in its last block.
TEST(RepairedCopy, FillsAGapThatIsTooSmallForAChunk) {
    const test::TemporaryDirectory directory;
    std::string bytes = test::MakeWave(0, 0);
    test::WriteFile(directory / "take",
                    bytes.insert(12, test::Chunk("JUNK", std::string(4092, '\0'))));
    const TemporaryFile copy = Repair(directory / "take");
    EXPECT_EQ(ReadInputHeader(FileName(copy.Path())).value().Layout().value().first, 4144U);
}

// Larger samples than these containers can declare.
TEST(RepairedCopy, IsRefusedWhereItsContainerIsTooSmall) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take";
    const auto refusal = [&](const std::string& bytes) -> std::string {
        test::WriteFile(path, bytes);
        std::filesystem::resize_file(path, (std::uint64_t{1} << 32U) + 1000);
        try {
            Repair(path);
            return "";
        } catch (const JobError& error) {
            return error.what();
        }
    };
    const std::string start = "cannot be repaired: its samples are too large for ";
    EXPECT_EQ(refusal(test::MakeAIFF(0, 0, 0)), start + "AIFF");
    EXPECT_EQ(refusal(test::MakeAU(0)), start + "AU");
    EXPECT_EQ(refusal(test::MakeWave(0, 0, "", "RIFX")), start + "RIFX");
}

namespace {

class LargeCopy : public testing::TestWithParam<std::uint64_t> {};

} // namespace

// The sizes are unknown, those of a program that assumes 2 GiB, and the lower bits of the right
// one.
TEST_P(LargeCopy, IsRF64AndKeepsHoles) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take";
    const std::string header = test::MakeWave(GetParam(), GetParam()).substr(0, 44);
    constexpr std::uint64_t kSampleBytes = (std::uint64_t{1} << 32U) + 10;
    test::WriteFile(path, header);
    std::filesystem::resize_file(path, header.size() + kSampleBytes - 4);
    std::ofstream(path, std::ios::binary | std::ios::app) << "last";
    const TemporaryFile copy = Repair(path);
    const auto repaired = ReadInputHeader(FileName(copy.Path())).value();
    EXPECT_EQ(repaired.container, "RF64");
    EXPECT_EQ(repaired.parts.front().offset % 4096, header.size()) << "blocks can be shared";
    EXPECT_EQ(repaired.SampleBytes(), kSampleBytes);
    EXPECT_EQ(DescribeCounts(repaired.truncation.value_or(Truncation{})),
              "declares 0 bytes and contains 0");
    std::ifstream file(copy.Path(), std::ios::binary);
    std::string end(4, '\0');
    file.seekg(-4, std::ios::end);
    file.read(end.data(), 4);
    EXPECT_EQ(end, "last");
    struct stat status {};
    ASSERT_EQ(stat(copy.Path().c_str(), &status), 0);
    constexpr std::int64_t kFewBlocks = 100; // of 512 bytes
    EXPECT_LT(status.st_blocks, kFewBlocks);
}

INSTANTIATE_TEST_SUITE_P(Sizes, LargeCopy, testing::Values(0xFFFFFFFF, 0x7FFFF000, 10));

} // namespace kel::host
