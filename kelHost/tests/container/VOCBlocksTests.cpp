#include "container/VOCBlocks.h"

#include "AudioFiles.h"
#include "HeaderFiles.h"
#include "container/RepairedCopy.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using test::kVOCEnd;
using test::LittleEndian;
using test::MakeSamples;
using test::MakeVOC;
using test::OldVOCSound;
using test::VOCBlock;
using test::VOCSilence;
using test::VOCSound;

// Format, number of frames and faults of a file in words.
// @param size of the file; 0: that of the bytes
std::string DescribeVOC(const std::string& bytes, std::uint64_t size) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", bytes);
    if (size > 0) {
        std::filesystem::resize_file(directory / "take", size);
    }
    const InputHeader header = ReadInputHeader(directory / "take").value();
    if (!header.format.has_value()) {
        return "no sound";
    }
    std::string text = std::to_string(header.format->channels) + " x " +
                       std::to_string(header.format->rate) + " Hz, " +
                       (header.stored.has_value() ? header.stored->encoding : "unknown");
    if (header.FrameBytes() > 0) {
        text += ", " + std::to_string(header.SampleBytes() / header.FrameBytes()) + " frames";
    }
    text += header.declaresLength ? "" : " to the end";
    if (header.truncation.has_value()) {
        text += ", " + DescribeCounts(*header.truncation);
    }
    text += header.Obstacle().empty() ? "" : "; " + header.Obstacle();
    return text + (header.isRepairable ? "" : " without remedy");
}

struct VOCCase {
    std::string name;
    std::string blocks;
    std::string text;
    std::uint64_t size = 0; // of the file; 0: that of the bytes
};

class VOCJudgement : public testing::TestWithParam<VOCCase> {};

std::vector<VOCCase> VOCCases() {
    const std::string samples = MakeSamples();
    const std::string sound = VOCSound(samples);
    const std::string old = OldVOCSound(samples);
    const std::string text = VOCBlock(5, std::string("take", 5));
    const std::string marker = VOCBlock(4, LittleEndian(7, 2));
    // Stereo at 22053 Hz, in the place of the format in the next block.
    const std::string stereo = VOCBlock(8, LittleEndian(65536 - 256000000 / 44100, 2) +
                                               LittleEndian(4, 1) + LittleEndian(1, 1));
    const std::string whole = "1 x 8000 Hz, 16-bit integer, 100 frames";
    const std::string mixed = "; its blocks have different rates, encodings or numbers of "
                              "channels without remedy";
    const std::string between = "; it contains 100 frames between other blocks";
    const std::string toTheEnd = whole + " to the end";
    constexpr std::uint64_t kTooLarge = std::uint64_t{1} << 24U;
    const std::string large = "1 x 8000 Hz, 16-bit integer, 8388708 frames to the end";
    return {
        {"Sound", sound + kVOCEnd, whole},
        {"SoundAfterText", text + sound + kVOCEnd, whole},
        {"SoundWithoutEnd", sound, whole},
        {"SoundOf8Bits", VOCSound(samples, {}, 8, 0) + kVOCEnd,
         "1 x 8000 Hz, 8-bit integer, 200 frames"},
        {"SoundInMuLaw", VOCSound(samples, {}, 8, 7) + kVOCEnd, "1 x 8000 Hz, mu-law, 200 frames"},
        {"SoundInALaw", VOCSound(samples, {}, 8, 6) + kVOCEnd, "1 x 8000 Hz, A-law, 200 frames"},
        {"SoundOf24Bits", VOCSound(samples, {}, 24) + kVOCEnd,
         "1 x 8000 Hz, unknown; its samples have the unknown encoding 4 of 24 bits without remedy"},
        {"SoundInADPCM", OldVOCSound(samples, 3) + kVOCEnd,
         "1 x 8000 Hz, unknown; its samples are Creative ADPCM (ffmpeg reads it) without remedy"},
        {"SoundAndContinuation", sound + VOCBlock(2, samples) + kVOCEnd,
         "1 x 8000 Hz, 16-bit integer, 200 frames; it contains 200 frames in 2 blocks"},
        {"SilenceAfterSound", sound + VOCSilence(50) + kVOCEnd,
         "1 x 8000 Hz, 16-bit integer, 150 frames; it contains 150 frames in 2 blocks"},
        {"SilenceBeforeSound", VOCSilence(50) + old + kVOCEnd,
         "1 x 8000 Hz, 16-bit integer, 150 frames; it contains 150 frames in 2 blocks"},
        {"SilenceAtHalfTheRate",
         sound + VOCBlock(3, LittleEndian(49, 2) + LittleEndian(6, 1)) + kVOCEnd,
         "1 x 8000 Hz, 16-bit integer, 200 frames; it contains 200 frames in 2 blocks"},
        {"SilenceAtARateThatIsNoWholePeriod",
         VOCSound(samples, {}, 16, 4, 44100) +
             VOCBlock(3, LittleEndian(49, 2) + LittleEndian(256 - 23, 1)) + kVOCEnd,
         "1 x 44100 Hz, 16-bit integer, 150 frames; it contains 150 frames in 2 blocks"},
        {"SilenceOnly", VOCSilence(50) + kVOCEnd, "no sound"},
        {"OtherRate", sound + VOCSound(samples, {}, 16, 4, 16000) + kVOCEnd,
         "1 x 8000 Hz, 16-bit integer, 200 frames" + mixed},
        {"OldSound", old + kVOCEnd, whole},
        {"OldSoundInStereo", stereo + old + kVOCEnd, "2 x 22053 Hz, 16-bit integer, 50 frames"},
        {"OldSoundInStereoAndThenMono", stereo + old + old + kVOCEnd,
         "2 x 22053 Hz, 16-bit integer, 100 frames" + mixed},
        {"OldSoundWithoutEnd", old, whole + "; it does not declare its end"},
        {"OldSoundBeforeAByte", old + kVOCEnd + "x", whole + "; 1 byte follows its last block"},
        {"OldSoundBeforeAnotherFile", old + kVOCEnd + MakeVOC(old),
         whole + "; 232 bytes follow its last block"},
        {"OldSoundBeforeText", old + text + kVOCEnd, whole + between},
        {"MarkerBeforeSound", marker + sound + kVOCEnd, whole + between},
        {"MarkerAfterSound", sound + marker + kVOCEnd, whole},
        {"TextBetweenFormatAndSound", stereo + text + old + kVOCEnd,
         "2 x 22053 Hz, 16-bit integer, 50 frames"},
        {"SoundThatWasCut", sound.substr(0, sound.size() - 100),
         "1 x 8000 Hz, 16-bit integer, 50 frames, declares 100 frames and contains 50; it "
         "declares 100 frames and contains 50"},
        {"TextThatWasCut", sound + text.substr(0, text.size() - 2),
         whole + ", declares 251 bytes and contains 249; it declares 251 bytes and contains 249"},
        {"SoundWithSize0", VOCSound(samples, 0) + kVOCEnd, toTheEnd},
        {"SoundWithSizeFFFFFF", VOCSound(samples, 0xFFFFFF) + kVOCEnd, toTheEnd},
        {"SoundWithSize8BytesTooSmall", VOCSound(samples, 204) + kVOCEnd, toTheEnd},
        {"SoundWithSize9BytesTooSmall", VOCSound(samples, 203) + kVOCEnd,
         "1 x 8000 Hz, 16-bit integer, 95 frames"},
        {"SoundWithLower24BitsOfItsSize", sound, large, 243 + kTooLarge},
        {"SoundBefore16MiBOfAnotherKind", VOCSound(samples, 203),
         "1 x 8000 Hz, 16-bit integer, 95 frames", 243 + kTooLarge},
    };
}

} // namespace

TEST_P(VOCJudgement, ComparesTheBlocksWithTheFile) {
    EXPECT_EQ(DescribeVOC(MakeVOC(GetParam().blocks), GetParam().size), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(VOCBlocks, VOCJudgement, testing::ValuesIn(VOCCases()),
                         [](const auto& one) { return one.param.name; });

TEST(VOCBlocks, AreNotReadWithoutEnd) {
    std::string blocks = VOCSound("ab");
    for (int i = 0; i < (1 << 18) + 1; ++i) {
        blocks += VOCBlock(2, "");
    }
    EXPECT_EQ(DescribeVOC(MakeVOC(blocks), 0),
              "1 x 8000 Hz, 16-bit integer, 1 frames; it has more than 262144 blocks without "
              "remedy");
}

TEST(VOCBlocks, BecomeOneChunkWithTheirSilence) {
    struct Row {
        std::uint64_t bits;
        std::uint64_t codec;
        char silence;
    };
    for (const Row& row :
         {Row{16, 4, '\0'}, Row{8, 0, '\x80'}, Row{8, 6, '\xD5'}, Row{8, 7, '\xFF'}}) {
        SCOPED_TRACE(row.codec);
        const test::TemporaryDirectory directory;
        const FileName file(directory / "take");
        test::WriteFile(file.path, MakeVOC(VOCSound("abcd", {}, row.bits, row.codec) +
                                           VOCSilence(3) + VOCBlock(2, "efgh") + kVOCEnd));
        const TemporaryFile copy =
            MakeRepairedCopy(file, ReadInputHeader(file).value(), DefaultTemporaryDirectory(),
                             [](const std::function<void()>& step) { step(); });
        const std::string samples = "abcd" + std::string(3 * row.bits / 8, row.silence) + "efgh";
        const std::string bytes = test::ReadFile(copy.Path());
        EXPECT_EQ(bytes.substr(bytes.find("data") + 8, samples.size()), samples);
        EXPECT_EQ(ReadInputHeader(FileName(copy.Path())).value().SampleBytes(), samples.size());
    }
}

namespace {

// Metadata of a file in words.
std::string DescribeVOCMetadata(const std::string& blocks) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", MakeVOC(blocks));
    const Metadata metadata = ReadMetadata(directory / "take");
    std::string text;
    for (const Tag& tag : metadata.tags) {
        text += tag.name + "=" + tag.value + " ";
    }
    for (const CuePoint& point : metadata.cuePoints) {
        text += std::to_string(point.id) + "@" + std::to_string(point.frame) + " ";
    }
    for (const OtherPart& part : metadata.others) {
        text += part.name + ":" + std::to_string(part.bytes) + " ";
    }
    for (const std::string& problem : metadata.problems) {
        text += "(" + problem + ")";
    }
    return text;
}

} // namespace

TEST(VOCMetadata, IsThatOfTextsMarkersAndRepeats) {
    const std::string text = VOCBlock(5, std::string("take\0and more", 13));
    const std::string marker = VOCBlock(4, LittleEndian(7, 2));
    const std::string repeat = VOCBlock(6, LittleEndian(2, 2));
    const std::string sound = VOCSound(MakeSamples());
    EXPECT_EQ(DescribeVOCMetadata(text + sound + marker + repeat + VOCSilence(50) + marker +
                                  VOCBlock(7, "") + kVOCEnd),
              "comment=take 7@100 7@150 repeat:2 ");
    EXPECT_EQ(DescribeVOCMetadata(sound + VOCBlock(5, "taken!", 7)),
              "comment=taken! (text declares 7 bytes and has 6)");
}

// The samples look like blocks.
TEST(VOCMetadata, IsNotThatOfSamplesAfterAWrongSize) {
    const std::string samples = VOCBlock(5, "take") + VOCBlock(5, "take", 0xFF0000);
    EXPECT_EQ(DescribeVOCMetadata(VOCBlock(5, "before") + VOCSound(samples, 0) + kVOCEnd),
              "comment=before ");
}

} // namespace kel::host
