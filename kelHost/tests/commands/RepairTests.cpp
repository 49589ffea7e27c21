// Inputs whose header keeps a source from reading their samples.

#include "AudioFiles.h"
#include "HeaderFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace {

struct WrongHeader {
    std::string name;
    std::string bytes;
    std::string reason;
    bool isOpened = true; // by the library
    std::size_t frames = 100;
};

std::vector<WrongHeader> WrongHeaders() {
    const std::string none = "it contains 100 frames, of which 0 can be read";
    const std::string more = "it contains 100 frames, and 12 more would be read from other chunks";
    const std::string unsized = "its chunk \"ds64\" does not declare the size of the samples";
    const std::string title = TitleChunk();
    const std::string second = Chunk("data", MakeSamples(20));
    return {
        {"WaveWithDataSize0", MakeWave(0, 0), none},
        {"WaveWithDataSizeFFFFFFFFBeforeTitle", MakeWave(0xFFFFFFFF, 0xFFFFFFFF, title), more},
        {"WaveWithDataSize7FFFF000BeforeTitle", MakeWave(0x7FFFF024, 0x7FFFF000, title), more},
        {"WaveWithTwoDataChunks", MakeWave({}, {}, title + second), "it has 2 data chunks", false,
         120},
        {"RIFXWithDataSize0", MakeWave(0, 0, "", "RIFX"), none},
        {"RF64WithTableOf24Bytes", MakeRF64({}, {}, "RF64", 24),
         "its chunk \"ds64\" has 24 bytes instead of 28", false},
        {"RF64WithTableOfFFFFFFFFFFFFFFFF", MakeRF64(~std::uint64_t{0}, ~std::uint64_t{0}), unsized,
         false},
        {"BW64", MakeRF64({}, {}, "BW64"), "it is BW64", false},
        {"AIFFWithDataSize8", MakeAIFF(46, 8), none},
        {"AUWithDataSize0", MakeAU(0), none},
        {"CAFWithUnknownSize", MakeSizedCAF(~std::uint64_t{0}),
         "it does not declare the size of its samples", false},
        {"VOCWithTwoBlocks",
         MakeVOC(VOCSound(MakeSamples()) + VOCBlock(2, MakeSamples(20)) + kVOCEnd),
         "it contains 120 frames in 2 blocks", true, 120},
        {"VOCWithTwoOldBlocks",
         MakeVOC(OldVOCSound(MakeSamples()) + OldVOCSound(MakeSamples(20)) + kVOCEnd),
         "it contains 120 frames in 2 blocks", false, 120},
        {"VOCWithTextAfterItsSamples",
         MakeVOC(VOCSound(MakeSamples()) + VOCBlock(5, "take1234") + kVOCEnd),
         "it contains 100 frames, and 6 more would be read from other blocks"},
        {"VOCWithoutEnd", MakeVOC(OldVOCSound(MakeSamples())), "it does not declare its end",
         false},
    };
}

class Repair : public testing::TestWithParam<WrongHeader> {
protected:
    Repair() {
        WriteFile(m_directory / "take", GetParam().bytes);
        std::filesystem::create_directory(m_directory / "temporary");
    }

    ProcessResult Run(const Arguments& arguments) const {
        Command command = Kelhost(m_directory, arguments);
        command.environment["TMPDIR"] = m_directory / "temporary";
        return RunCommand(command);
    }

    // The values of the samples.
    static std::vector<float> Values() {
        std::vector<float> values;
        for (std::size_t i = 0; i < 100; ++i) {
            const auto value = static_cast<std::int16_t>((0x81F3 + 7 * i) & 0xFFFFU);
            values.push_back(static_cast<float>(value) / 32768.0F);
        }
        const std::size_t repeated = GetParam().frames - values.size();
        const std::vector<float> again(values.begin(),
                                       values.begin() + static_cast<std::ptrdiff_t>(repeated));
        values.insert(values.end(), again.begin(), again.end());
        return values;
    }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_P(Repair, IsSuggestedWhereSamplesCannotBeRead) {
    const std::string& reason = GetParam().reason;
    const std::string error =
        "kelhost: take: cannot read all samples: " + reason + "; use --repair\n";
    for (const Arguments& arguments :
         {Arguments{"copy", "take", "out.wav"}, Arguments{"info", "--measure", "take"},
          Arguments{"plot", "take"}, Arguments{"compare", "take", "take"},
          Arguments{"run", "kel.LibsndfileSource:WAVE", "FilePath=take", "!", "kel.LibsndfileSink",
                    "FilePath=out.wav"}}) {
        const ProcessResult result = Run(arguments);
        EXPECT_EQ(result.status, arguments.front() == "compare" ? 2 : 1);
        if (GetParam().isOpened) {
            EXPECT_EQ(result.err, error);
        } else {
            EXPECT_EQ(result.err, "kelhost: take: cannot open for reading: " + reason +
                                      " (--repair reads it)\n");
        }
    }
}

TEST_P(Repair, ReadsAllSamplesAndLeavesTheInput) {
    const std::string warning =
        "kelhost: warning: take: is read through a copy with a new header: " + GetParam().reason +
        "\n";
    ExpectResult(Run({"copy", "--repair", "--quiet", "take", "out.wav"}), 0, "", warning);
    EXPECT_EQ(ReadAudio(m_directory / "out.wav").values, Values());
    for (const Arguments& arguments :
         {Arguments{"info", "--measure", "--field", "frames", "take"}, Arguments{"plot", "take"},
          Arguments{"compare", "take", "out.wav"},
          Arguments{"run", "--force", "kel.LibsndfileSource:WAVE", "FilePath=take", "!",
                    "kel.LibsndfileSink", "FilePath=out.wav"}}) {
        const ProcessResult result = Run(arguments + Arguments{"--repair"});
        EXPECT_EQ(result.status, 0) << arguments.front();
        EXPECT_EQ(result.err, warning);
        EXPECT_EQ(ReadAudio(m_directory / "out.wav").values, Values());
    }
    EXPECT_EQ(ReadFile(m_directory / "take"), GetParam().bytes);
    EXPECT_EQ(SortedNames(m_directory / "temporary"), Names());
}

INSTANTIATE_TEST_SUITE_P(Headers, Repair, testing::ValuesIn(WrongHeaders()),
                         [](const auto& header) { return header.param.name; });

TEST(RepairedMetadata, IncludesChunksAfterSamplesOfUnknownSize) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take", MakeWave(0xFFFFFFFF, 0xFFFFFFFF, TitleChunk()));
    const std::string reason =
        "it contains 100 frames, and 12 more would be read from other chunks";
    ExpectResult(RunKelhost(directory, {"copy", "--repair", "--quiet", "take", "out.wav"}), 0, "",
                 "kelhost: warning: take: is read through a copy with a new header: " + reason +
                     "\n");
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames,tags.title", "out.wav"}), 0,
                 "100\ttake\n", "");
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames,tags.title", "take"}), 0,
                 "112\ttake\n",
                 "kelhost: warning: take: cannot read all samples: " + reason + "; use --repair\n");
}

TEST(RepairOfCompressedSamples, EndsThemBeforeOtherChunks) {
    const TemporaryDirectory directory;
    std::string bytes = MakeWave(0xFFFFFFFF, 0xFFFFFFFF, TitleChunk());
    bytes[20] = '\7';  // mu-law
    bytes[32] = '\1';  // byte per frame
    bytes[34] = '\10'; // bits
    WriteFile(directory / "take", bytes);
    const std::string reason =
        "it contains 200 bytes of samples, and 24 more would be read from other chunks";
    ExpectResult(RunKelhost(directory, {"copy", "take", "out.wav"}), 1, "",
                 Error("take", "cannot read all samples: " + reason + "; use --repair"));
    ExpectResult(RunKelhost(directory, {"copy", "--repair", "--quiet", "take", "out.wav"}), 0, "",
                 "kelhost: warning: take: is read through a copy with a new header: " + reason +
                     "\n");
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames,tags.title", "out.wav"}), 0,
                 "200\ttake\n", "");
}

TEST(RepairDirectory, IsNamedWhenTheCopyCannotBeMade) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take", MakeWave(0, 0));
    const Command command =
        Kelhost(directory, {"info", "--repair", "--temp-dir", directory / "missing", "take"});
    // The copy has the samples at the same offset of a block: 44.
    ExpectResult(
        RunCommand(command), 1, "",
        Error("take", "cannot make the copy for --repair in " + (directory / "missing") +
                          ": No such file or directory; --temp-dir DIRECTORY names a place "
                          "with 244 bytes of space"));
}

TEST(RepairDirectory, IsNotUsedForARightHeader) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    Command command = Kelhost(directory, {"copy", "--repair", "take.wav", "out.wav"});
    command.environment["TMPDIR"] = directory / "missing";
    ExpectResult(RunCommand(command), 0, CopyReport("take.wav", "out.wav"), "");
}

TEST(RepairOfVOC, IsNotSuggestedWhereItIsImpossible) {
    const TemporaryDirectory directory;
    const std::string samples = MakeSamples();
    const std::string mixed = "its blocks have different rates, encodings or numbers of channels";
    WriteFile(directory / "take",
              MakeVOC(VOCSound(samples) + VOCSound(samples, {}, 16, 4, 16000) + kVOCEnd));
    WriteFile(directory / "old", MakeVOC(OldVOCSound(samples) + OldVOCSound(samples, 0) + kVOCEnd));
    for (const Arguments& options : {Arguments{}, Arguments{"--repair"}}) {
        ExpectResult(RunKelhost(directory, Arguments{"copy", "take", "out.wav"} + options), 1, "",
                     Error("take", "cannot read all samples: " + mixed));
        ExpectResult(RunKelhost(directory, Arguments{"copy", "old", "out.wav"} + options), 1, "",
                     Error("old", "cannot open for reading: " + mixed));
    }
}

TEST(RepairOfVOC, AcceptsTruncationOnlyWhereThatIsAllowed) {
    const std::string counts = "declares 100 frames and contains 50";
    for (const auto& [blocks, error] :
         {std::pair(VOCSound(MakeSamples()),
                    "cannot read all samples: it " + counts + "; use --repair --allow-truncated"),
          std::pair(OldVOCSound(MakeSamples()), "cannot open for reading: it " + counts +
                                                    " (--repair --allow-truncated reads it)")}) {
        const TemporaryDirectory directory;
        WriteFile(directory / "take", MakeVOC(blocks).substr(0, 26 + blocks.size() - 100));
        ExpectResult(RunKelhost(directory, {"copy", "take", "out.wav"}), 1, "",
                     Error("take", error));
        ExpectResult(RunKelhost(directory, {"copy", "--repair", "take", "out.wav"}), 1, "",
                     Error("take", counts + "; it is truncated (--allow-truncated accepts the "
                                            "frames that exist)"));
        ExpectResult(RunKelhost(directory, {"copy", "--quiet", "--repair", "--allow-truncated",
                                            "take", "out.wav"}),
                     0, "",
                     "kelhost: warning: take: is read through a copy with a new header: it " +
                         counts + "\nkelhost: warning: take: " + counts + "; it is truncated\n");
        EXPECT_EQ(ReadAudio(directory / "out.wav").values.size(), 50U);
    }
}

TEST(RepairOfCAF, AcceptsTruncationOnlyWhereThatIsAllowed) {
    const std::string counts = "declares 100 frames and contains 50";
    const TemporaryDirectory directory;
    const std::string bytes = MakeSizedCAF(204);
    WriteFile(directory / "take", bytes.substr(0, bytes.size() - 100));
    ExpectResult(RunKelhost(directory, {"copy", "take", "out.wav"}), 1, "",
                 Error("take", "cannot open for reading: it " + counts +
                                   " (--repair --allow-truncated reads it)"));
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "--repair", "--allow-truncated", "take",
                                        "out.wav"}),
                 0, "",
                 "kelhost: warning: take: is read through a copy with a new header: it " + counts +
                     "\nkelhost: warning: take: " + counts + "; it is truncated\n");
    EXPECT_EQ(ReadAudio(directory / "out.wav").values.size(), 50U);
}

// The library would read them as samples.
TEST(RepairOfNIST, IsNotSuggestedForBytesAfterItsSamples) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take", SF_FORMAT_NIST | SF_FORMAT_PCM_16, 1, 8000, MakeValues(100));
    WriteFile(directory / "take", ReadFile(directory / "take") + std::string(20, 'x'));
    for (const Arguments& options : {Arguments{}, Arguments{"--repair"}}) {
        ExpectResult(RunKelhost(directory, Arguments{"copy", "take", "out.wav"} + options), 1, "",
                     Error("take", "cannot read all samples: it contains 100 frames, and 10 more "
                                   "would be read from other bytes"));
    }
}

TEST(CopyOfAU, NamesBytesAfterItsSamples) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take", MakeAU({}) + MakeAU({}));
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "take", "out.wav"}), 0, "",
                 "kelhost: warning: take: 224 bytes after its samples are not read\n");
    WriteFile(directory / "take", MakeAU({}) + std::string(7, '\0'));
    ExpectResult(RunKelhost(directory, {"copy", "--quiet", "--force", "take", "out.wav"}), 0, "",
                 "");
}

// The library is not asked about files that it does not open.
TEST(InfoOfVOC, NamesItsFormatAndMetadata) {
    const TemporaryDirectory directory;
    WriteFile(directory / "take",
              MakeVOC(VOCBlock(5, "title") + OldVOCSound(MakeSamples()) +
                      VOCBlock(4, LittleEndian(7, 2)) + OldVOCSound(MakeSamples()) + kVOCEnd));
    ExpectResult(RunKelhost(directory, {"info", "--repair", "--quiet", "--field",
                                        "format,frames,tags.comment,cue_points.0.frame", "take"}),
                 0, "VOC 16-bit integer\t200\ttitle\t100\n",
                 "kelhost: warning: take: is read through a copy with a new header: it contains "
                 "200 frames in 2 blocks\n");
}

} // namespace kel::test
