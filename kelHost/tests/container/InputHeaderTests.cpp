#include "container/InputHeader.h"

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "HeaderFiles.h"
#include "base/FileName.h"
#include "container/HeaderReader.h"

#include <TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <utility>
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
    for (const Row& row : {Row{SF_FORMAT_WAV, false}, Row{SF_FORMAT_WAVEX, false},
                           Row{SF_FORMAT_RF64, false}, Row{SF_FORMAT_W64, false},
                           Row{SF_FORMAT_AU, true}, Row{SF_FORMAT_AU | SF_ENDIAN_LITTLE, false},
                           Row{SF_FORMAT_AIFF, true}, Row{SF_FORMAT_AIFF | SF_ENDIAN_LITTLE, false},
                           Row{SF_FORMAT_WAV | SF_ENDIAN_BIG, true}}) {
        SCOPED_TRACE(row.format);
        const test::TemporaryDirectory directory;
        const std::string path = Write(directory, row.format | SF_FORMAT_PCM_16);
        const auto layout = ReadInputHeader(path).value().Layout();
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
        const auto layout =
            ReadInputHeader(Write(directory, SF_FORMAT_WAV | encoding)).value().Layout();
        ASSERT_TRUE(layout.has_value());
        EXPECT_EQ(layout->frames, 101);
    }
}

TEST(InputHeader, CountsOnlyFramesThatTheFileHas) {
    const test::TemporaryDirectory directory;
    const std::string path = Write(directory, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 5);
    const auto layout = ReadInputHeader(path).value().Layout();
    ASSERT_TRUE(layout.has_value());
    EXPECT_EQ(layout->frames, 99);
}

TEST(InputHeader, CountsIn64BitsInRF64) {
    const test::TemporaryDirectory directory;
    constexpr std::uint64_t kFrames = (std::uint64_t{1} << 31U) + 5;
    test::WriteSparseAudio(directory / "take", 2, 2, kFrames, 0, "");
    const auto layout = ReadInputHeader(directory / "take").value().Layout();
    ASSERT_TRUE(layout.has_value());
    EXPECT_EQ(layout->frames, static_cast<std::int64_t>(kFrames));
}

// In 32 bits, the size would differ from that of the file by a few bytes.
TEST(InputHeader, NoticesThat4GiBAreMissingInRF64) {
    const test::TemporaryDirectory directory;
    constexpr std::uint64_t kFrames = std::uint64_t{9} << 28U;
    test::WriteSparseAudio(directory / "take", 2, 2, kFrames, 0, "");
    std::filesystem::resize_file(directory / "take", 80 + (std::uint64_t{5} << 30U) + 400);
    const auto truncation = ReadInputHeader(directory / "take").value().truncation;
    ASSERT_TRUE(truncation.has_value());
    EXPECT_EQ(DescribeCounts(*truncation), "declares 2415919104 frames and contains 1342177380");
}

TEST(InputHeader, DeclaresNothingWhereSomethingIsOpen) {
    const test::TemporaryDirectory directory;
    const std::string path = directory / "take";
    const std::string format =
        test::Chunk("fmt ", test::LittleEndian(1, 2) + test::LittleEndian(1, 2) +
                                test::LittleEndian(8000, 4) + test::LittleEndian(16000, 4) +
                                test::LittleEndian(2, 2) + test::LittleEndian(16, 2));
    const std::string data = test::Chunk("data", "samples.");
    const auto declares = [&](const std::string& chunks) {
        test::WriteFile(path, test::Chunk("RIFF", "WAVE" + chunks));
        return ReadInputHeader(path).value().Layout().has_value();
    };
    EXPECT_TRUE(declares(format + data));
    EXPECT_FALSE(declares(data));
    EXPECT_FALSE(declares(format));
    EXPECT_FALSE(declares(format + test::Chunk("data", "")));
    EXPECT_FALSE(declares(format + data + data));
    test::WriteFile(path, "RIFF");
    EXPECT_FALSE(ReadInputHeader(path).has_value());
    test::WriteFile(path, "");
    EXPECT_FALSE(ReadInputHeader(path).has_value());
    for (const int other : {SF_FORMAT_WAV | SF_FORMAT_ULAW, SF_FORMAT_AIFF | SF_FORMAT_ULAW}) {
        EXPECT_FALSE(ReadInputHeader(Write(directory, other)).value().Layout().has_value());
    }
    EXPECT_FALSE(ReadInputHeader(Write(directory, SF_FORMAT_FLAC | SF_FORMAT_PCM_16)).has_value());
}

namespace {

// A header in words.
// @param size of the file; 0: that of the bytes
std::string Judge(const std::string& bytes, std::uint64_t size) {
    const test::TemporaryDirectory directory;
    test::WriteFile(directory / "take", bytes);
    if (size > 0) {
        std::filesystem::resize_file(directory / "take", size);
    }
    const InputHeader header = ReadInputHeader(directory / "take").value();
    std::string text = std::to_string(header.SampleBytes()) + " bytes of samples";
    text += header.declaresLength ? "" : header.declaresNone ? ", none declared" : ", unknown";
    if (header.trailingBytes > 0) {
        text += ", " + std::to_string(header.trailingBytes) + " bytes follow";
    }
    if (header.truncation.has_value()) {
        text += ", " + DescribeCounts(*header.truncation);
    }
    return text;
}

struct Judgement {
    std::string name;
    std::string bytes;
    std::string text;
    std::uint64_t size = 0; // of the file; 0: that of the bytes
};

class HeaderJudgement : public testing::TestWithParam<Judgement> {};

// Bytes without the last ones.
std::string Cut(const std::string& bytes, std::size_t count) {
    return bytes.substr(0, bytes.size() - count);
}

std::vector<Judgement> Judgements() {
    using test::MakeAIFF;
    using test::MakeAU;
    using test::MakeRF64;
    using test::MakeW64;
    using test::MakeWave;
    constexpr std::uint64_t kMax = 0xFFFFFFFFFFFFFFFF;
    constexpr std::uint64_t k4GiB = std::uint64_t{1} << 32U;
    constexpr std::uint64_t kWaveHeader = 44;
    const std::string whole = "200 bytes of samples";
    const std::string half = "100 bytes of samples, declares 100 frames and contains 50";
    const std::string twice = "200 bytes of samples, declares 200 frames and contains 100";
    const std::string none = "200 bytes of samples, none declared";
    const std::string unknown = "200 bytes of samples, unknown";
    const std::string title = test::TitleChunk();
    const std::string muLaw = MakeWave({}, 400).replace(20, 2, std::string("\7\0", 2));
    return {
        {"Wave", MakeWave({}, {}, title), whole},
        {"WaveWithTooLargeDataSize", MakeWave({}, 400), twice},
        {"WaveThatWasCut", Cut(MakeWave({}, {}), 100), half},
        {"WaveWithTooLargeSizeOfFramesOfAnotherSize", MakeWave({}, 400).replace(32, 1, "\3"),
         "200 bytes of samples, declares 400 bytes and contains 200"},
        {"WaveWithTooLargeSizeOfValuesOfUnknownWidth", muLaw,
         "200 bytes of samples, declares 400 bytes and contains 200"},
        {"WaveWithOneMoreByteThanItsFrames", MakeWave({}, 201), whole},
        {"WaveWithTooLargeOuterSize", MakeWave(1000, {}),
         "200 bytes of samples, declares 1008 bytes and contains 244"},
        {"WaveWithOuterSizeThatIncludesItsHeader", MakeWave(244, {}), whole},
        {"WaveWithTooSmallOuterSize", MakeWave(100, {}, title), whole},
        {"WaveWithOuterSize0", MakeWave(0, {}), whole},
        {"WaveWithUnknownOuterSize", MakeWave(0xFFFFFFFF, {}), whole},
        {"WaveWithCutTitle", Cut(MakeWave({}, {}, title), 2),
         "200 bytes of samples, declares 268 bytes and contains 266"},
        {"WaveWithTagThatIsNoChunk", MakeWave(236, {}) + "TAGATitle" + std::string(119, ' '),
         whole},
        {"WaveWithDataSize0", MakeWave(0, 0), none},
        {"WaveWithDataSize0Before8Bytes", MakeWave(0, 0).substr(0, 52),
         "8 bytes of samples, none declared"},
        {"WaveWithDataSize0BeforeTitle",
         "RIFF" + test::LittleEndian(68, 4) + "WAVE" + test::FormatOfSamples() +
             test::Chunk("data", "") + title,
         "0 bytes of samples"},
        {"WaveWithDataSizeFFFFFFFF", MakeWave(0xFFFFFFFF, 0xFFFFFFFF), unknown},
        {"WaveWithDataSize7FFFF000", MakeWave(0x7FFFF024, 0x7FFFF000), unknown},
        {"WaveWithDataSize7FFFFFFF", MakeWave(0, 0x7FFFFFFF), unknown},
        {"WaveWithDataSize80000000", MakeWave(0x80000024, 0x80000000), unknown},
        {"WaveWithDataSizeOfOuterSize7FFFFFFF", MakeWave(0x7FFFFFFF, 0x7FFFFFDB), unknown},
        {"WaveWithDataSize7FFFFFFCOfFramesOf4Bytes",
         MakeWave(0, 0x7FFFFFFC).replace(22, 1, "\2").replace(32, 1, "\4"), unknown},
        {"WaveWithDataSize7FFFFFFCOfFramesOf2Bytes", MakeWave(0, 0x7FFFFFFC),
         "200 bytes of samples, declares 1073741822 frames and contains 100"},
        {"WaveWithDataSize7FFFE000", MakeWave(0x7FFFF024, 0x7FFFE000),
         "200 bytes of samples, declares 1073737728 frames and contains 100"},
        {"WaveWithDataSize7FFFFFFBOfFramesOf4Bytes",
         MakeWave(0, 0x7FFFFFFB).replace(22, 1, "\2").replace(32, 1, "\4"),
         "200 bytes of samples, declares 536870910 frames and contains 50"},
        {"WaveWithDataSize4095BelowOuterSizeFFFFFFFF", MakeWave(0xFFFFFFFF, 0xFFFFF000), unknown},
        {"WaveWithDataSize4096BelowOuterSizeFFFFFFFF", MakeWave(0xFFFFFFFF, 0xFFFFEFFF),
         "200 bytes of samples, declares 2147481599 frames and contains 100"},
        {"WaveWithLower32BitsOfItsDataSize", MakeWave(0, 200),
         "4295016144 bytes of samples, unknown", kWaveHeader + k4GiB + 48848},
        {"WaveWithLower32BitsOfADataSizeNotQuite1MiBLess", MakeWave(0, 200),
         "4296016071 bytes of samples, unknown", kWaveHeader + k4GiB + 200 + 0xFFFFF},
        {"WaveWithDataSizeAnd4GiBAnd1MiBAfterIt", MakeWave(0, 200), whole,
         kWaveHeader + k4GiB + 200 + 0x100000},
        {"WaveWithDataSizeAndFewBytesAfterItUpTo4GiB", MakeWave(0, 0xFFFF0000),
         "4294901760 bytes of samples", kWaveHeader + k4GiB - 1},
        {"WaveWithDataSize0BeforeAChunkWithoutItsPadding",
         MakeWave(0, 0).substr(0, kWaveHeader) + "odd " + test::LittleEndian(3, 4) + "123",
         "0 bytes of samples"},
        {"WaveWithDataSize0BeforeWhatIsNoChunk",
         MakeWave(0, 0).substr(0, kWaveHeader) + "odd " + test::LittleEndian(5, 4) + "123",
         "11 bytes of samples, none declared"},
        {"WaveWithUnknownDataSizeBeforeACutTitle", Cut(MakeWave(0, 0xFFFFFFFF, title), 1),
         "223 bytes of samples, unknown"},
        {"WaveWithUnknownDataSizeBeforeTitleAndOtherBytes", MakeWave(0, 0xFFFFFFFF, title + "odd "),
         "228 bytes of samples, unknown"},
        {"WaveWithUnknownDataSizeBeforeATitleWithoutPadding",
         MakeWave(0, 0xFFFFFFFF, "ANNO" + test::LittleEndian(3, 4) + "123"),
         unknown + ", 11 bytes follow"},
        {"WaveWithUnknownDataSizeBeforeTitle", MakeWave(0xFFFFFFFF, 0xFFFFFFFF, title),
         unknown + ", 24 bytes follow"},
        {"RIFXWithTooLargeDataSize", MakeWave({}, 400, "", "RIFX"), twice},
        {"RIFXWithDataSize0", MakeWave(0, 0, "", "RIFX"), none},
        {"RF64WithTooLargeDataSize", MakeRF64({}, 400), twice},
        {"RF64ThatWasCut", Cut(MakeRF64({}, {}), 100), half},
        {"RF64WithTooLargeOuterSize", MakeRF64(1000, {}),
         "200 bytes of samples, declares 1008 bytes and contains 280"},
        {"RF64WithZeroTable", MakeRF64(0, 0), none},
        {"RF64WithTableOfFFFFFFFFFFFFFFFF", MakeRF64(kMax, kMax), unknown},
        {"RF64WithTableOf24Bytes", MakeRF64({}, {}, "RF64", 24), whole},
        {"BW64WithTooLargeDataSize", MakeRF64({}, 400, "BW64"), twice},
        {"W64", MakeW64({}, {}), whole},
        {"W64ThatWasCut", Cut(MakeW64({}, {}), 100), half},
        {"W64WithTooLargeOuterSize", MakeW64(1000, {}),
         "200 bytes of samples, declares 1000 bytes and contains 304"},
        {"W64WithDataSize0", MakeW64(0, 0), none},
        {"RF64WithDataSizeOf2ToThe62", MakeRF64({}, kMax / 4 + 1), unknown},
        {"RF64WithDataSizeBelow2ToThe62", MakeRF64({}, kMax / 4),
         "200 bytes of samples, declares 2305843009213693951 frames and contains 100"},
        {"W64WithUnknownDataSizeBeforeWhatLooksLikeAChunk", MakeW64(kMax, kMax / 2) + title,
         "224 bytes of samples, unknown"},
        {"W64WithDataSize7FFFFFFFFFFFFFFF", MakeW64(kMax, kMax / 2), unknown},
        {"AIFFWithTooLargeDataSize", MakeAIFF({}, 408), twice},
        {"AIFFThatWasCut", Cut(MakeAIFF({}, {}), 100), half},
        {"AIFFWithTooLargeOuterSize", MakeAIFF(1000, {}),
         "200 bytes of samples, declares 1008 bytes and contains 254"},
        {"AIFFWithDataSize0", MakeAIFF(0, 0, 0), none},
        {"AIFFWithDataSize7F000008", MakeAIFF(0x7F000050, 0x7F000008, 0x3F800000), unknown},
        {"AIFFWithDataSizeFFFFFFFF", MakeAIFF(0xFFFFFFFF, 0xFFFFFFFF), unknown},
        {"AIFFWithSamplesAfterAnOffset", MakeAIFF({}, {}).replace(49, 1, "\4"),
         "196 bytes of samples"},
        {"AIFFWithUnknownDataSizeBeforeName",
         MakeAIFF(0, 0x7F000008, 0, "NAME" + test::BigEndian(4, 4) + "take"),
         unknown + ", 12 bytes follow"},
        {"AUWithTooLargeDataSize", MakeAU(400), twice},
        {"AUThatWasCut", Cut(MakeAU({}), 100), half},
        {"AUWithTooSmallDataSize", MakeAU(100), "100 bytes of samples"},
        {"AUWithDataSize0", MakeAU(0), none},
        {"AUWithDataSize0Before8Bytes", MakeAU(0).substr(0, 32),
         "8 bytes of samples, none declared"},
        {"AUWithDataSizeFFFFFFFF", MakeAU(0xFFFFFFFF), unknown},
        {"AUWithDataSizeFFFFFFFFAndSoManyBytes", MakeAU(0xFFFFFFFF), "4294967295 bytes of samples",
         24 + k4GiB - 1},
    };
}

} // namespace

TEST_P(HeaderJudgement, ComparesTheSizesWithTheFile) {
    EXPECT_EQ(Judge(GetParam().bytes, GetParam().size), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(InputHeader, HeaderJudgement, testing::ValuesIn(Judgements()),
                         [](const auto& judgement) { return judgement.param.name; });

TEST(InputHeader, HasAnotherNumberOfFramesInCOMM) {
    const auto others = [](const std::string& bytes) {
        const test::TemporaryDirectory directory;
        test::WriteFile(directory / "take", bytes);
        return ReadInputHeader(directory / "take").value().OtherFrames();
    };
    EXPECT_EQ(others(test::MakeAIFF({}, {}, 102)), 102U);
    EXPECT_EQ(others(test::MakeAIFF({}, {}, 98)), 98U);
    for (const std::uint64_t same : {0U, 99U, 100U, 101U}) {
        EXPECT_EQ(others(test::MakeAIFF({}, {}, same)), std::nullopt) << same;
    }
    EXPECT_EQ(others(Cut(test::MakeAIFF({}, {}), 100)), std::nullopt) << "truncated";
    EXPECT_EQ(others(test::MakeAIFF(0, 8, 300)), std::nullopt) << "of unknown size";
}

// Some programs write no sizes; others lose those after the samples.
TEST(AllChunks, IncludeThoseAfterSamplesOfUnknownSize) {
    const auto describe = [](const std::string& bytes) {
        const test::TemporaryDirectory directory;
        const FileName file(directory / "take");
        test::WriteFile(file.path, bytes);
        auto input = OpenRegularFile(file.path);
        HeaderReader header(file, std::move(input->descriptor), "cannot read its header");
        const auto list = ReadAllChunks(header, input->bytes);
        std::string text;
        for (const Chunk& chunk : list.value().chunks) {
            text += chunk.name + "@" + std::to_string(chunk.offset) + "+" +
                    std::to_string(chunk.bytes) + " ";
        }
        return text;
    };
    const std::string after = test::TitleChunk() + test::Chunk("odd ", "123") +
                              std::string(1, '\0') + test::Chunk("bext", "");
    const std::string chunks = "fmt @20+16 data@44+200 LIST@252+16 odd @276+3 bext@288+0 ";
    EXPECT_EQ(describe(test::MakeWave({}, {}, after)), chunks);
    for (const std::uint64_t unknown : {0U, 0x7FFFF000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(describe(test::MakeWave(0, unknown, after)), chunks) << unknown;
    }
    EXPECT_EQ(describe(test::MakeWave(0, 0).replace(44, 8, "abcdabcd")), "fmt @20+16 data@44+200 ")
        << "samples that look like a chunk";
    EXPECT_EQ(describe(test::MakeAIFF(0, 8, 0, "NAME" + test::BigEndian(4, 4) + "take")),
              "COMM@20+18 SSND@46+208 NAME@262+4 ");
}

TEST(InputHeader, LeavesPipesAndMissingFilesToTheSource) {
    const test::TemporaryDirectory directory;
    EXPECT_FALSE(ReadInputHeader(directory / "missing").has_value());
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(ReadInputHeader(directory / "pipe").has_value()) << "does not wait for a writer";
}

} // namespace kel::host
