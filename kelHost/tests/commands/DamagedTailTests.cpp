// Inputs in whose middle a read fails.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel::test {

namespace {

// Writes a stereo MP3 file in whose middle some bytes are 0.
void WriteDamagedMP3(const std::string& path) {
    WriteAudio(path, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 2, 44100, MakeValues(200000));
    std::string bytes = ReadFile(path);
    constexpr std::size_t kDamaged = 1500;
    WriteFile(path, bytes.replace(bytes.size() / 2, kDamaged, kDamaged, '\0'));
}

// Lines that the library prints are not of interest here.
std::string LastLine(const ProcessResult& result) {
    const std::vector<std::string> lines = LinesOf(result.err);
    return lines.empty() ? "" : lines.back();
}

} // namespace

TEST(DamagedTail, IsTheSameForEveryBlockSize) {
    const TemporaryDirectory directory;
    WriteDamagedMP3(directory / "take.mp3");
    const Arguments copy{"copy", "--force", "--quiet", "take.mp3", "out.wav"};
    const std::string error = LastLine(RunKelhost(directory, copy + Arguments{"--block", "1"}));
    EXPECT_EQ(ReplaceMatches(error, "delivers [0-9]+;", "delivers N;"),
              "kelhost: take.mp3: declares 100000 frames and delivers N; it is damaged or was "
              "changed while it was read (--allow-truncated accepts the frames that exist)");
    const Arguments allowed = copy + Arguments{"--allow-truncated"};
    EXPECT_EQ(RunKelhost(directory, allowed + Arguments{"--block", "1"}).status, 0);
    const std::vector<float> expected = ReadAudio(directory / "out.wav").values;
    EXPECT_NE(expected.size() / 2 % 1000, 0U) << "no block ends there by chance";
    for (const std::string block : {"7", "1000", "16384", "1000000"}) {
        SCOPED_TRACE(block);
        EXPECT_EQ(LastLine(RunKelhost(directory, copy + Arguments{"--block", block})), error);
        EXPECT_EQ(RunKelhost(directory, allowed + Arguments{"--block", block}).status, 0);
        EXPECT_EQ(ReadAudio(directory / "out.wav").values, expected);
    }
    // No sample of the part begins where one of the whole does.
    EXPECT_EQ(RunKelhost(directory, allowed + Arguments{"--start", "5000f"}).status, 0);
    EXPECT_EQ(ReadAudio(directory / "out.wav").values.size(), expected.size() - 10000);
}

TEST(DamagedTail, IsTheSameInAPipeline) {
    const TemporaryDirectory directory;
    WriteDamagedMP3(directory / "take.mp3");
    const auto run = [&](const std::string& block) {
        const ProcessResult result = RunKelhost(
            directory, {"run", "--force", "--allow-truncated", "kel.LibsndfileSource:WAVE",
                        "FilePath=take.mp3", "MaxSamplesPerBuffer=" + block, "!",
                        "kel.LibsndfileSink", "FilePath=out.wav"});
        EXPECT_EQ(result.status, 0) << result.err;
        return ReadAudio(directory / "out.wav").values;
    };
    const std::vector<float> expected = run("1");
    for (const std::string block : {"7", "1000", "16384"}) {
        EXPECT_EQ(run(block), expected) << block;
    }
}

} // namespace kel::test
