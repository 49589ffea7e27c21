#include "container/MPEGStream.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::host {

namespace {

using namespace std::string_literals;

std::string Repeat(const std::string& text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

// A frame of silence.
// @param header its first four bytes
std::string Silence(const std::string& header, std::size_t bytes) {
    return header + std::string(bytes - header.size(), '\0');
}

const std::string kHeader = "\xFF\xFB\x90\x64"; // 128 kbit/s, 44100 Hz, two channels
const std::string kFrame = Silence(kHeader, 417);

// A frame that declares a number of frames below 256.
std::string InfoFrame(char frames, const std::string& name = "Xing") {
    std::string frame = kFrame;
    return frame.replace(36, 12, name + std::string("\0\0\0\1\0\0\0", 7) + frames);
}

std::optional<MPEGStream> ReadStream(const std::string& bytes) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take.mp3", bytes);
    return ReadMPEGStream(directory / "take.mp3", nullptr);
}

struct Stream {
    std::string name;
    std::string bytes;
    std::string description;
};

const std::string kTen = "does not declare its length: 10 MPEG frames were counted";

std::vector<Stream> Streams() {
    const std::string ten = Repeat(kFrame, 10);
    const std::string id3 = std::string("ID3\4\0\0\0\0\1\0", 10) + std::string(128, '\0');
    const std::string id3v1 = "TAG" + std::string(125, '\0');
    std::string vbri = kFrame;
    vbri.replace(36, 4, "VBRI");
    std::string uncounted = InfoFrame(10);
    uncounted[43] = '\2';
    std::string checked = kFrame; // with a checksum
    checked[1] = '\xFA';
    std::string checkedInfo = checked;
    checkedInfo.replace(38, 12, InfoFrame(10).substr(36, 12));
    const std::string otherRate = Silence("\xFF\xFB\x94\x64", 384);
    const std::string mono = Silence("\xFF\xFB\x90\xC4", 417);
    const std::string free = Silence("\xFF\xFB\x00\x64"s, 500);
    return {
        {"Plain", ten, kTen},
        {"ID3v2", id3 + ten, kTen},
        {"TwoTags", id3 + id3 + ten, kTen},
        {"ID3v1", ten + id3v1, kTen},
        {"GarbageBefore", std::string(700, 'x') + ten, kTen},
        {"HeaderInGarbage", std::string(700, 'x') + kHeader + std::string(30, 'x') + ten, kTen},
        {"GarbageBetween", ten + std::string(7777, 'x') + kFrame + kFrame,
         "does not declare its length: 12 MPEG frames were counted; 7777 bytes between or after "
         "them are skipped"},
        {"HeaderInGarbageBetween",
         ten + "xx" + "\xFF\xFB\xE0\x64" + std::string(30, 'x') + Repeat(kFrame, 4),
         "does not declare its length: 14 MPEG frames were counted; 36 bytes between or after them "
         "are skipped"},
        {"OneByteBetween", ten + "x" + kFrame + kFrame,
         "does not declare its length: 12 MPEG frames were counted; 1 byte between or after them "
         "is skipped"},
        {"IncompleteLast", ten + kFrame.substr(0, 416),
         kTen + "; an incomplete one at the end is left out"},
        {"IncompleteLastBeforeID3v1", ten + kFrame.substr(0, 416) + id3v1,
         kTen + "; an incomplete one at the end is left out"},
        {"Padded", ten + Silence("\xFF\xFB\x92\x64", 418) + kFrame,
         "does not declare its length: 12 MPEG frames were counted"},
        {"OtherBitRate", ten + Silence("\xFF\xFB\xE0\x64", 1044) + kFrame,
         "does not declare its length: 12 MPEG frames were counted"},
        {"OtherRate", ten + otherRate + kFrame + kFrame,
         "does not declare its length: 12 MPEG frames were counted; 384 bytes between or after "
         "them are skipped"},
        {"OtherChannels", ten + mono + kFrame + kFrame,
         "does not declare its length: 12 MPEG frames were counted; 417 bytes between or after "
         "them are skipped"},
        {"LowRate", Repeat(Silence("\xFF\xF3\x80\x64", 208), 10), kTen},
        {"LowestRate", Repeat(Silence("\xFF\xE3\x80\x64", 417), 10), kTen},
        {"Layer2", Repeat(Silence("\xFF\xFD\x80\x64", 417), 10), kTen},
        {"Layer2LowRate", Repeat(Silence("\xFF\xF5\xE4\x64", 960), 10), kTen},
        {"Layer1", Repeat(Silence("\xFF\xFF\x80\x64", 276), 10), kTen},
        {"Layer1Padded", Repeat(Silence("\xFF\xFF\x82\x64", 280), 10), kTen},
        {"Layer1LowRate", Repeat(Silence("\xFF\xF7\xE0\x64", 556), 10), kTen},
        {"FreeBitRate", Repeat(Silence("\xFF\xFB\x02\x64", 501) + free, 5) + id3v1, kTen},
        {"FreeBitRateInLayer1",
         Repeat(Silence("\xFF\xFF\x02\x64", 504) + Silence("\xFF\xFF\x00\x64"s, 500), 5), kTen},
        {"FreeBitRateInGarbage", "xx" + free.substr(0, 4) + std::string(30, 'x') + Repeat(free, 10),
         kTen},
        {"LargestFreeBitRate", Repeat(Silence("\xFF\xFB\x00\x64"s, 3456), 10), kTen},
        {"VBRI", vbri + ten, kTen},
        {"XingWithoutCount", uncounted + ten, kTen},
        {"Xing", InfoFrame(10) + ten, "declares 10 MPEG frames and contains 10"},
        {"Info", InfoFrame(10, "Info") + ten, "declares 10 MPEG frames and contains 10"},
        {"XingAfterChecksum", checkedInfo + Repeat(checked, 10),
         "declares 10 MPEG frames and contains 10"},
        {"TwoFiles", InfoFrame(10) + ten + id3v1 + id3 + InfoFrame(10) + ten,
         "declares 10 MPEG frames and contains 20"},
    };
}

class CountedFrames : public testing::TestWithParam<Stream> {};

} // namespace

TEST_P(CountedFrames, AreThoseOfTheWholeFile) {
    const auto stream = ReadStream(GetParam().bytes);
    ASSERT_TRUE(stream.has_value());
    EXPECT_EQ(stream->Describe(), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(MPEGStream, CountedFrames, testing::ValuesIn(Streams()),
                         [](const auto& stream) { return stream.param.name; });

TEST(MPEGStream, HasThePartsBetweenOtherBytes) {
    const auto stream =
        ReadStream(InfoFrame(5) + kFrame + kFrame + "xx" + kFrame + kFrame + kFrame);
    ASSERT_TRUE(stream.has_value());
    ASSERT_EQ(stream->parts.size(), 2U);
    EXPECT_EQ(stream->parts[0].offset, 417U);
    EXPECT_EQ(stream->parts[0].bytes, 834U);
    EXPECT_EQ(stream->parts[1].offset, 1253U);
    EXPECT_EQ(stream->parts[1].bytes, 1251U);
    EXPECT_EQ(stream->Samples(), 5760);
}

TEST(MPEGStream, IsLongerThanADecoderDeliversThatDoesNotKnowItsLength) {
    const std::string frames = Repeat(kFrame, 20); // 23040 samples
    EXPECT_TRUE(ReadStream(frames)->IsLongerThan(23040));
    EXPECT_TRUE(ReadStream(InfoFrame(19) + frames)->IsLongerThan(23040));
    EXPECT_FALSE(ReadStream(InfoFrame(20) + frames)->IsLongerThan(23040 - 8190));
    EXPECT_TRUE(ReadStream(InfoFrame(20) + frames)->IsLongerThan(23040 - 8191));
    EXPECT_FALSE(ReadStream(InfoFrame(21) + frames)->IsLongerThan(24192));
}

// Layer I has four times the bytes of this frame first, then of that.
TEST(MPEGStream, IsEstimatedByItsFirstFrame) {
    const std::string large = Silence("\xFF\xFF\xE0\x64", 484);
    const std::string small = Silence("\xFF\xFF\x10\x64", 32);
    EXPECT_EQ(ReadStream(Repeat(large, 2) + Repeat(small, 3))->MissingBytes(), 6 * 484U - 1064U);
    EXPECT_EQ(ReadStream(Repeat(small, 2) + Repeat(large, 3))->MissingBytes(), 0U);
}

TEST(MPEGStream, CountsFramesOfOtherKinds) {
    const std::string otherRate = Silence("\xFF\xFB\x94\x64", 384);
    std::string info = otherRate;
    info.replace(36, 12, InfoFrame(10).substr(36, 12));
    const auto describe = [](const std::string& bytes) {
        const auto stream = ReadStream(bytes);
        return stream.has_value() ? stream->DescribeOther() : "nothing";
    };
    const std::string three = Repeat(kFrame, 3);
    const std::string kind = " MPEG frames have another layer, rate or number of channels than the "
                             "first";
    EXPECT_EQ(describe(three + Repeat(otherRate, 4)), "4 of its 7" + kind);
    EXPECT_EQ(describe(InfoFrame(3) + three + info + Repeat(otherRate, 2) + "xx" + three),
              "2 of its 8" + kind);
    EXPECT_EQ(describe(three + Repeat(Silence("\xFF\xFB\x90\xC4", 417), 2)), "2 of its 5" + kind);
    EXPECT_EQ(describe(three + Repeat(Silence("\xFF\xFF\x80\x64", 276), 2) + three),
              "2 of its 8" + kind);
    EXPECT_EQ(describe(three + otherRate + "xx" + three), "") << "one may be a coincidence";
}

TEST(MPEGStream, IsDeclaredInAFrameOfItsKind) {
    const std::string tag("Xing\0\0\0\1\0\0\0\12", 12);
    const std::string zeros(300, '\0');
    EXPECT_EQ(ReadStream(Repeat(kFrame, 10))->MakeInfoFrame(),
              "\xFF\xFB\x50\x64" + zeros.substr(0, 32) + tag + zeros.substr(0, 208 - 48));
    EXPECT_EQ(ReadStream(Repeat(Silence("\xFF\xFB\x92\xC4", 418), 10))->MakeInfoFrame(),
              "\xFF\xFB\x50\xC4" + zeros.substr(0, 17) + tag + zeros.substr(0, 208 - 33));
    EXPECT_EQ(ReadStream(Repeat(Silence("\xFF\xF2\x80\x64", 208), 10))->MakeInfoFrame(),
              "\xFF\xF3\x80\x64" + zeros.substr(0, 17) + tag + zeros.substr(0, 208 - 33));
    EXPECT_EQ(ReadStream(Repeat(Silence("\xFF\xF3\x80\xC4", 208), 10))->MakeInfoFrame(),
              "\xFF\xF3\x80\xC4" + zeros.substr(0, 9) + tag + zeros.substr(0, 208 - 25));
}

TEST(MPEGStream, IsMissingInOtherFiles) {
    EXPECT_FALSE(ReadStream("").has_value());
    EXPECT_FALSE(ReadStream(std::string(70000, 'x') + Repeat(kFrame, 10)).has_value());
    EXPECT_FALSE(ReadStream(InfoFrame(10)).has_value()) << "no sound";
    EXPECT_FALSE(ReadStream(Repeat(Silence("\xFF\xFB\x00\x64"s, 3457), 10)).has_value());
    // Samples may look like frames.
    EXPECT_FALSE(ReadStream("RIFF" + test::LittleEndian(4206, 4) + "WAVEfmt " +
                            test::LittleEndian(16, 4) + test::LittleEndian(0x10001, 4) +
                            test::LittleEndian(8000, 4) + test::LittleEndian(16000, 4) +
                            test::LittleEndian(0x100002, 4) + "data" + test::LittleEndian(4170, 4) +
                            Repeat(kFrame, 10))
                     .has_value());
}

TEST(MPEGStream, IsRefusedWithTooManyGaps) {
    const std::string small = Silence("\xFF\xF3\x14\xC4", 24); // 8 kbit/s, 24000 Hz
    const std::string pair = small + small + "x";
    EXPECT_EQ(ReadStream(Repeat(pair, 65536))->frames, 131072U);
    try {
        ReadStream(Repeat(pair, 65537));
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "it is damaged: its MPEG frames have more than 65536 gaps "
                                   "between them");
    }
}

} // namespace kel::host
