// The chunk PEAK of copies with floats.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// The content of the chunk; empty when there is none.
std::string PeakChunk(const std::string& path, std::size_t channels) {
    const std::string bytes = ReadFile(path);
    const std::size_t place = bytes.find("PEAK");
    return place == std::string::npos ? "" : bytes.substr(place + 8, 8 + 8 * channels);
}

ProcessResult CopyAt(const TemporaryDirectory& directory, const Arguments& arguments,
                     const std::string& time) {
    Command command = Kelhost(directory, Arguments{"copy", "--quiet", "--force"} + arguments);
    command.environment["SOURCE_DATE_EPOCH"] = time;
    return RunCommand(command);
}

} // namespace

TEST(CopyPeaks, AreThoseOfTheOutput) {
    constexpr std::size_t kManyFrames = 50000; // several samples
    std::vector<float> values(2 * kManyFrames, 0.125F);
    values[2 * 40000] = -0.75F;
    values[2 * 17000 + 1] = 1.5F;
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, values);
    struct Row {
        Arguments arguments;
        std::string peaks;
    };
    const std::string left = BytesOf(std::vector<float>{0.75F}) + LittleEndian(40000, 4);
    const std::string right = BytesOf(std::vector<float>{1.5F}) + LittleEndian(17000, 4);
    const std::string quiet = BytesOf(std::vector<float>{0.125F}) + LittleEndian(0, 4);
    for (const Row& row : {
             Row{{"copy.wav"}, left + right},
             Row{{"copy.wav", "--encoding", "float64"}, left + right},
             Row{{"copy.wav", "--channels", "2,1"}, right + left},
             Row{{"copy.wav", "--end", "17000f"}, quiet + quiet},
         }) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        ExpectResult(CopyAt(directory, Arguments{"take.wav"} + row.arguments, "1700000000"), 0, "",
                     "");
        EXPECT_EQ(PeakChunk(directory / row.arguments[0], 2),
                  LittleEndian(1, 4) + LittleEndian(1700000000, 4) + row.peaks);
    }
    ExpectResult(CopyAt(directory, {"take.wav", "copy.rf64"}, ""), 0, "", "");
    EXPECT_EQ(PeakChunk(directory / "copy.rf64", 2), "");
    ExpectResult(CopyAt(directory, {"take.wav", "copy.wav", "--channels", "1"}, ""), 0, "", "");
    EXPECT_EQ(PeakChunk(directory / "copy.wav", 1), LittleEndian(1, 4) + LittleEndian(0, 4) + left);
}

TEST(CopyPeaks, AreTheSameInARepeatedCopy) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    std::string first;
    for (const std::string output : {"a.wav", "b.wav"}) {
        ExpectResult(CopyAt(directory, {"take.wav", output, "--encoding", "float32"}, ""), 0, "",
                     "");
        first = first.empty() ? ReadFile(directory / output) : first;
        EXPECT_TRUE(ReadFile(directory / output) == first);
    }
}

TEST(CopyPeaks, NeedATimeThatTheChunkCanHold) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    for (const std::string time : {"-1", "4294967296", "today", " 1"}) {
        ExpectResult(CopyAt(directory, {"take.wav", "copy.wav"}, time), 1, "",
                     "kelhost: invalid value \"" + time +
                         "\" of SOURCE_DATE_EPOCH: expected an integer from 0 to 4294967295\n");
    }
    EXPECT_EQ(SortedNames(directory), Names{"take.wav"});
}

} // namespace kel::test
