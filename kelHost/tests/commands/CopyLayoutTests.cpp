// Speakers of copied channels.

#include "AudioFiles.h"
#include "LayoutFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// Place of the mask in an extensible file; none in others.
std::size_t MaskPlace(const std::string& bytes) {
    const std::size_t format = bytes.find("fmt ");
    return format == std::string::npos ? format : format + 28;
}

void WriteWithMask(const std::string& path, int channels, std::uint32_t mask) {
    WriteAudio(path, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, channels, 48000,
               MakeValues(static_cast<std::size_t>(channels) * 100));
    std::string bytes = ReadFile(path);
    WriteFile(path, bytes.replace(MaskPlace(bytes), 4, LittleEndian(mask, 4)));
}

// The mask in a WAVE or RF64 file, as bytes.
std::string MaskIn(const std::string& path) {
    const std::string bytes = ReadFile(path);
    return bytes.substr(MaskPlace(bytes), 4);
}

} // namespace

TEST(CopyLayout, IsThatOfTheInput) {
    struct Row {
        const char* name;
        int channels;
        std::uint32_t mask;
    };
    for (const Row& row : {
             Row{"7.1", 8, 0x63F},
             Row{"7.1(wide)", 8, 0xFF},
             Row{"6.0", 6, 0x707},
             Row{"5.1", 6, 0x3F},
             Row{"5.1(side)", 6, 0x60F},
             Row{"quad", 4, 0x33},
             Row{"first-order Ambisonics", 4, 0},
             Row{"stereo and two more", 4, 0x3},
         }) {
        SCOPED_TRACE(row.name);
        const TemporaryDirectory directory;
        WriteWithMask(directory / "take.wav", row.channels, row.mask);
        for (const std::string output : {"a.wav", "a.rf64", "a.aiff"}) {
            ExpectResult(RunKelhost(directory, {"copy", "take.wav", output, "--quiet", "--verify"}),
                         0, "", "");
            ExpectResult(RunKelhost(directory, {"copy", output, "back.wav", "--quiet", "--force"}),
                         0, "", "");
            EXPECT_EQ(MaskIn(directory / "back.wav"), LittleEndian(row.mask, 4)) << output;
        }
        EXPECT_EQ(MaskIn(directory / "a.rf64"), LittleEndian(row.mask, 4));
        EXPECT_EQ(ReadFile(directory / "a.aiff").find("CHAN") == std::string::npos, row.mask == 0);
    }
}

TEST(CopyLayout, IsThatOfTheSelectedChannels) {
    const TemporaryDirectory directory;
    WriteWithMask(directory / "take.wav", 6, 0x60F);
    const auto mask = [&](const std::string& list) {
        EXPECT_EQ(
            RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--force", "--channels", list})
                .status,
            0);
        return MaskIn(directory / "copy.wav");
    };
    EXPECT_EQ(mask("1,2,5,6"), LittleEndian(0x603, 4));
    EXPECT_EQ(mask("2,1"), LittleEndian(0, 4));
}

TEST(CopyLayout, IsImpliedByCompressedFilesAndMissingFromPlainOnes) {
    struct Row {
        int format;
        int channels;
        std::uint32_t mask;
    };
    for (const Row& row : {
             Row{SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 7, 0x70F},
             Row{SF_FORMAT_OGG | SF_FORMAT_VORBIS, 6, 0x3F},
             Row{SF_FORMAT_WAV | SF_FORMAT_PCM_16, 6, 0},
             Row{SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2, 0},
         }) {
        SCOPED_TRACE(row.format);
        const TemporaryDirectory directory;
        WriteAudio(directory / "take", row.format, row.channels, 48000,
                   std::vector<float>(static_cast<std::size_t>(row.channels) * 1000));
        EXPECT_EQ(RunKelhost(directory, {"copy", "take", "copy.wav"}).status, 0);
        EXPECT_EQ(MaskIn(directory / "copy.wav"), LittleEndian(row.mask, 4));
    }
}

TEST(CopyLayout, IsThatOfACAFFileInTheOrderOfWave) {
    const TemporaryDirectory directory;
    for (const std::string& layout : {LayoutContent(0x00790006), LayoutContent(0x10000, 0x3F),
                                      LayoutContent(0, 0, {1, 2, 3, 4, 5, 6})}) {
        WriteFile(directory / "take.caf", MakeCAF(6, layout));
        ExpectResult(RunKelhost(directory, {"copy", "--quiet", "--force", "take.caf", "copy.wav"}),
                     0, "", "");
        EXPECT_EQ(MaskIn(directory / "copy.wav"), LittleEndian(0x3F, 4));
    }
}

TEST(CopyLayout, IsNamedWhereItIsNotPreserved) {
    const TemporaryDirectory directory;
    const std::string warning = "kelhost: warning: take.caf: its channel layout ";
    WriteFile(directory / "take.caf", MakeCAF(6, LayoutContent(0x007C0006)));
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "take.caf", "copy.wav"}), 0, "",
                 warning + "C L R Ls Rs LFE is not preserved; --channels 2,3,1,6,4,5 puts the "
                           "channels into the order of WAVE\n");
    EXPECT_EQ(MaskIn(directory / "copy.wav"), LittleEndian(0, 4));
    WriteFile(directory / "take.caf", MakeCAF(4, LayoutContent(0x006B0004)));
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "take.caf", "copy.aiff"}), 0, "",
                 warning + "W X Y Z is not preserved\n");
}

TEST(CopyLayout, IsThatOfTheOrderThatTheWarningNames) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.caf", MakeCAF(6, LayoutContent(0x007C0006)));
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "--channels", "2,3,1,6,4,5", "take.caf",
                                        "copy.wav"}),
                 0, "", "");
    EXPECT_EQ(MaskIn(directory / "copy.wav"), LittleEndian(0x3F, 4));
    const std::vector<float> values = ReadAudio(directory / "copy.wav").values;
    std::vector<float> channels;
    for (std::size_t i = 0; i < 6; ++i) {
        channels.push_back(values.at(i) * 32768.0F);
    }
    EXPECT_EQ(channels, (std::vector<float>{2, 3, 1, 6, 4, 5}));
}

TEST(InfoOfALayout, NamesSpeakersInAnotherOrder) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take.caf", MakeCAF(6, LayoutContent(0x007C0006)));
    ExpectResult(RunKelhost(directory, {"info", "--field", "layout,channel_mask", "take.caf"}), 0,
                 "C L R Ls Rs LFE\tnull\n", "");
}

} // namespace kel::test
