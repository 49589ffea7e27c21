#include "container/RepairedCopy.h"

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

RepairedCopy Repair(const std::string& path) {
    return MakeRepairedCopy(path, ReadInputHeader(path).value(),
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
    const RepairedCopy copy = Repair(directory / "take");
    const auto layout = ReadInputHeader(FileName(copy.Path())).value().Layout();
    EXPECT_EQ(layout.value().first, 80U);
    EXPECT_EQ(layout->frames, 100);
    EXPECT_EQ(test::ReadFile(copy.Path()).substr(80), test::MakeSamples());
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
    constexpr std::uint64_t kBytes = (std::uint64_t{1} << 32U) + 10;
    test::WriteFile(path, header);
    std::filesystem::resize_file(path, header.size() + kBytes - 4);
    std::ofstream(path, std::ios::binary | std::ios::app) << "last";
    const RepairedCopy copy = Repair(path);
    const auto repaired = ReadInputHeader(FileName(copy.Path())).value();
    EXPECT_EQ(repaired.container, "RF64");
    EXPECT_EQ(repaired.SampleBytes(), kBytes);
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
