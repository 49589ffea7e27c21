#include "container/StoredFormat.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "base/Errors.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::host {

namespace {

StoredFormat Store(int format, int channels = 1) {
    const test::TemporaryDirectory directory;
    const bool isOpus = (format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS;
    test::WriteAudio(directory / "take", format, channels, isOpus ? 48000 : 8000,
                     test::MakeValues(static_cast<std::size_t>(channels) * 960));
    return ReadStoredFormat(directory / "take");
}

} // namespace

TEST(StoredFormat, NamesContainerAndEncoding) {
    struct Row {
        int format;
        const char* name;
        Coding coding;
        unsigned bits;
    };
    for (const Row& row : {
             Row{SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "WAVE 8-bit integer", Coding::Integer, 8},
             Row{SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, "WAVE 24-bit integer", Coding::Integer, 24},
             Row{SF_FORMAT_WAV | SF_ENDIAN_BIG | SF_FORMAT_PCM_16, "RIFX 16-bit integer",
                 Coding::Integer, 16},
             Row{SF_FORMAT_RF64 | SF_FORMAT_FLOAT, "RF64 32-bit float", Coding::Float, 32},
             Row{SF_FORMAT_W64 | SF_FORMAT_DOUBLE, "W64 64-bit float", Coding::Float, 64},
             Row{SF_FORMAT_AIFF | SF_FORMAT_PCM_32, "AIFF 32-bit integer", Coding::Integer, 32},
             Row{SF_FORMAT_AIFF | SF_FORMAT_FLOAT, "AIFF-C 32-bit float", Coding::Float, 32},
             Row{SF_FORMAT_AIFF | SF_ENDIAN_LITTLE | SF_FORMAT_PCM_16, "AIFF-C 16-bit integer",
                 Coding::Integer, 16},
             Row{SF_FORMAT_WAV | SF_FORMAT_ULAW, "WAVE mu-law", Coding::Lossy, 0},
             Row{SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM, "WAVE IMA ADPCM", Coding::Lossy, 0},
             Row{SF_FORMAT_AU | SF_FORMAT_PCM_16, "AU 16-bit integer", Coding::Integer, 16},
             Row{SF_FORMAT_FLAC | SF_FORMAT_PCM_16, "FLAC 16-bit", Coding::Integer, 16},
             Row{SF_FORMAT_OGG | SF_FORMAT_VORBIS, "Ogg Vorbis", Coding::Lossy, 0},
             Row{SF_FORMAT_OGG | SF_FORMAT_OPUS, "Ogg Opus", Coding::Lossy, 0},
             Row{SF_FORMAT_CAF | SF_FORMAT_ALAC_24, "CAF ALAC 24-bit", Coding::Integer, 24},
         }) {
        SCOPED_TRACE(row.name);
        const StoredFormat format = Store(row.format);
        EXPECT_EQ(Describe(format), row.name);
        EXPECT_EQ(format.coding, row.coding);
        EXPECT_EQ(format.bits, row.bits);
    }
}

// Formats that are added to the library later have no entry in the tables here.
TEST(StoredFormat, NamesEveryFormatOfTheLibrary) {
    int containers = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &containers, sizeof(containers));
    int encodings = 0;
    sf_command(nullptr, SFC_GET_FORMAT_SUBTYPE_COUNT, &encodings, sizeof(encodings));
    int written = 0;
    for (int i = 0; i < containers; ++i) {
        SF_FORMAT_INFO container{i, nullptr, nullptr};
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &container, sizeof(container));
        for (int j = 0; j < encodings; ++j) {
            SF_FORMAT_INFO encoding{j, nullptr, nullptr};
            sf_command(nullptr, SFC_GET_FORMAT_SUBTYPE, &encoding, sizeof(encoding));
            const int format = container.format | encoding.format;
            const int rate = encoding.format == SF_FORMAT_OPUS ? 48000 : 8000;
            SF_INFO info{0, rate, 1, format, 0, 0};
            // The first two need a resource file or settings of their own to be read. Of the MPEG
            // encodings, only one can be written, and only in its own container.
            const bool isWritable = container.format != SF_FORMAT_RAW &&
                                    container.format != SF_FORMAT_SD2 &&
                                    (encoding.format < SF_FORMAT_MPEG_LAYER_I ||
                                     format == (SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III));
            if (isWritable && sf_format_check(&info) == SF_TRUE) {
                const test::TemporaryDirectory directory;
                {
                    const test::SoundFile file(directory / "take", SFM_WRITE, info);
                    const std::vector<float> values = test::MakeValues(960);
                    sf_write_float(file.Handle(), values.data(), 960); // some write whole blocks
                }
                const std::string name = Describe(ReadStoredFormat(directory / "take"));
                EXPECT_EQ(name.find("unknown"), std::string::npos)
                    << container.name << ", " << encoding.name;
                ++written;
            }
        }
    }
    EXPECT_GT(written, 60);
}

TEST(StoredFormat, HasTheDeclaredSpeakers) {
    EXPECT_EQ(Store(SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 6).channelMask, 0x3FU);
    EXPECT_EQ(Store(SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 3).channelMask, 0U);
    EXPECT_FALSE(Store(SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2).channelMask.has_value());
    EXPECT_FALSE(Store(SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2).channelMask.has_value());
    EXPECT_FALSE(Store(SF_FORMAT_AU | SF_FORMAT_PCM_16, 2).channelMask.has_value());
}

TEST(StoredFormat, HasTheSpeakersOfCompressedFiles) {
    EXPECT_EQ(Store(SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2).channelMask, 0x3U);
    EXPECT_EQ(Store(SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 7).channelMask, 0x70FU);
    EXPECT_EQ(Store(SF_FORMAT_OGG | SF_FORMAT_VORBIS, 6).channelMask, 0x3FU);
    EXPECT_FALSE(Store(SF_FORMAT_OGG | SF_FORMAT_VORBIS, 9).channelMask.has_value());
    EXPECT_EQ(Store(SF_FORMAT_OGG | SF_FORMAT_OPUS, 4).channelMask, 0x33U);
}

// The comments of a FLAC file follow its first block.
TEST(StoredFormat, HasTheSpeakersThatACommentInFLACDeclares) {
    const auto mask = [](const std::string& text) {
        const test::TemporaryDirectory directory;
        const std::string path = directory / "take";
        test::WriteAudio(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 3, 48000, test::MakeValues(300));
        std::string bytes = test::ReadFile(path);
        const std::string comment = "WaveFormatExtensible_Channel_Mask=" + text;
        const std::string content = test::LittleEndian(0, 4) + test::LittleEndian(1, 4) +
                                    test::LittleEndian(comment.size(), 4) + comment;
        constexpr std::size_t kSecondBlock = 42;
        const auto size = static_cast<unsigned char>(bytes.at(kSecondBlock + 3));
        bytes.replace(kSecondBlock, 4 + std::size_t{size},
                      bytes[kSecondBlock] + test::BigEndian(content.size(), 3) + content);
        test::WriteFile(path, bytes);
        return ReadStoredFormat(path).channelMask;
    };
    EXPECT_EQ(mask("0xB"), 0xBU);
    EXPECT_EQ(mask("0X0000010b"), 0x10BU);
    EXPECT_EQ(mask("0x0"), 0U);
    for (const char* invalid : {"", "11", "0x", "0xBs", "0x100000000"}) {
        EXPECT_EQ(mask(invalid), 0x7U) << invalid;
    }
}

TEST(StoredFormat, HasNoSpeakersWhereOpusHasDiscreteChannels) {
    const test::TemporaryDirectory directory;
    test::WriteAudio(directory / "take", SF_FORMAT_OGG | SF_FORMAT_OPUS, 4, 48000,
                     test::MakeValues(3840));
    constexpr std::size_t kCheckSum = 22; // of the page
    constexpr std::size_t kPacket = 28;
    constexpr std::size_t kFamily = kPacket + 18;
    std::string bytes = test::ReadFile(directory / "take");
    bytes[kFamily] = '\xFF';
    bytes.replace(kCheckSum, 4, 4, '\0');
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < kPacket + static_cast<unsigned char>(bytes[kPacket - 1]); ++i) {
        sum ^= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << 24U;
        for (int bit = 0; bit < 8; ++bit) {
            sum = (sum << 1U) ^ ((sum >> 31U) * 0x04C11DB7U);
        }
    }
    test::WriteFile(directory / "take", bytes.replace(kCheckSum, 4, test::LittleEndian(sum, 4)));
    const StoredFormat format = ReadStoredFormat(directory / "take");
    EXPECT_EQ(Describe(format), "Ogg Opus");
    EXPECT_FALSE(format.channelMask.has_value());
}

TEST(StoredFormat, NamesFormatsThatTheLibraryRecognisesByTheExtension) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take.vox", std::string(100, 'x'));
    EXPECT_EQ(Describe(ReadStoredFormat(directory / "take.vox")), "headerless VOX ADPCM");
}

TEST(StoredFormat, IsMissingForFilesWithoutAudio) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "notes.txt";
    test::WriteFile(path, "no audio");
    try {
        ReadStoredFormat(path);
        FAIL();
    } catch (const JobError& error) {
        EXPECT_EQ(error.File(), path);
        EXPECT_STREQ(error.what(), "cannot read its header: Format not recognised.");
    }
}

} // namespace kel::host
