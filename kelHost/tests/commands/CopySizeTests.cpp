// Copies that are too large for their container, too large for the disk, and shorter than they
// promise.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

// What the chunks of a one-channel file may take, as it is reckoned before the first byte.
constexpr std::uint64_t kChunkRoom = 512 + 16;
constexpr std::uint64_t kMost = 0xFFFFFFFF;

struct SizeRow {
    std::string encoding;
    std::uint64_t width;
};

const std::vector<SizeRow> kSizes{
    {"int16", 2}, {"int24", 3}, {"int32", 4}, {"float32", 4}, {"float64", 8}};

// Copies an input of so many frames on a disk that has no room at all: what is decided before the
// first byte is told, and nothing is written.
ProcessResult CopyWithoutRoom(const TemporaryDirectory& directory, std::uint64_t frames,
                              const std::vector<std::string>& arguments) {
    WriteSparseAudio(directory / "take.rf64", 1, 1, frames, 0, "");
    Command command = Kelhost(directory, {"copy", "take.rf64"});
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    DisturbSystem(command);
    command.environment["KEL_TEST_DISK_ROOM"] = "1000";
    return RunCommand(command);
}

std::string NoRoom(const std::string& output, std::uint64_t sampleBytes) {
    return "kelhost: " + output + ": needs " + std::to_string(sampleBytes + kChunkRoom) +
           " bytes, and its disk has 1000 left; nothing was written\n";
}

std::string TooLarge(const std::string& output, std::uint64_t sampleBytes,
                     const std::string& container) {
    return "kelhost: " + output + ": would have " + std::to_string(sampleBytes) +
           " bytes of samples, and " + container + " holds 4 GiB at most; use --format bwave\n";
}

std::string Promoted(const std::string& output, std::uint64_t sampleBytes) {
    return "kelhost: warning: " + output + ": is written as RF64, as its " +
           std::to_string(sampleBytes) + " bytes of samples do not fit into WAVE\n";
}

// A FLAC file that was cut off, and what libsndfile gives of it in blocks of 16384 frames.
class CutFlac {
public:
    // It depends on the place whether libsndfile tells that something is wrong: looks for one where
    // it does, or does not.
    CutFlac(const std::string& path, bool isTold) {
        WriteAudio(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, MakeValues(2 * kFrames));
        constexpr std::uintmax_t kStep = 97;
        for (std::uintmax_t size = fs::file_size(path) / 2; size > kStep; size -= kStep) {
            fs::resize_file(path, size);
            Read(path);
            if (reason.empty() != isTold && m_promised == kFrames) {
                return;
            }
        }
        throw std::runtime_error("there is no such place in " + path);
    }

    std::string Shortage() const {
        return "take.flac: promises " + std::to_string(m_promised) + " frames and delivers " +
               std::to_string(values.size() / 2) + reason;
    }

    static constexpr std::size_t kFrames = 100000;
    std::string reason; // as the source logs it
    std::vector<float> values;

private:
    void Read(const std::string& path) {
        constexpr sf_count_t kBlock = 16384;
        SF_INFO info{};
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        if (file == nullptr) {
            throw std::runtime_error(path + " cannot be opened");
        }
        m_promised = info.frames;
        reason.clear();
        values.clear();
        std::vector<float> block(2 * kBlock);
        while (const sf_count_t count = sf_readf_float(file, block.data(), kBlock)) {
            if (sf_error(file) != SF_ERR_NO_ERROR && reason.empty()) {
                reason = " (Warning: tried to read 16384 frames but could only read " +
                         std::to_string(count) + " -- libsndfile error is " + sf_strerror(file) +
                         ")";
            }
            values.insert(values.end(), block.begin(), block.begin() + 2 * count);
        }
        sf_close(file);
    }

    sf_count_t m_promised = 0;
};

Command ShortCopy(const TemporaryDirectory& directory, const std::vector<std::string>& options) {
    WriteFile(directory / "in.wav", "40000 2 48000\n");
    Command command = Kelhost(
        directory, {"copy", "--plugin", TestPlugin("kelFaultyElements"), "in.wav", "out.wav"});
    command.arguments.insert(command.arguments.end(), options.begin(), options.end());
    command.environment["KEL_TEST_FAULT"] = "source delivers fewer frames";
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "sink is not closed";
    return command;
}

} // namespace

TEST(CopySize, StaysWaveForTheLastFrameThatFits) {
    for (const SizeRow& row : kSizes) {
        SCOPED_TRACE(row.encoding);
        const std::uint64_t frames = (kMost - kChunkRoom) / row.width;
        const TemporaryDirectory directory;
        ExpectResult(CopyWithoutRoom(directory, frames, {"copy.wav", "--encoding", row.encoding}),
                     1, "", NoRoom("copy.wav", frames * row.width));
        EXPECT_EQ(SortedNames(directory), Names{"take.rf64"});
    }
}

TEST(CopySize, BecomesRF64WithANoticeFromOneFrameMoreOn) {
    for (const SizeRow& row : kSizes) {
        SCOPED_TRACE(row.encoding);
        const std::uint64_t frames = (kMost - kChunkRoom) / row.width + 1;
        const std::uint64_t bytes = frames * row.width;
        const TemporaryDirectory directory;
        ExpectResult(CopyWithoutRoom(directory, frames, {"copy.wav", "--encoding", row.encoding}),
                     1, "", Promoted("copy.wav", bytes) + NoRoom("copy.wav", bytes));
        EXPECT_EQ(SortedNames(directory), Names{"take.rf64"});
    }
}

TEST(CopySize, IsRefusedWhereWaveWasAskedFor) {
    for (const SizeRow& row : kSizes) {
        SCOPED_TRACE(row.encoding);
        const std::uint64_t frames = (kMost - kChunkRoom) / row.width + 1;
        const TemporaryDirectory directory;
        const std::vector<std::string> arguments{"copy.wav", "--format", "wave", "--encoding",
                                                 row.encoding};
        ExpectResult(CopyWithoutRoom(directory, frames, arguments), 1, "",
                     TooLarge("copy.wav", frames * row.width, "extensible WAVE"));
        ExpectResult(CopyWithoutRoom(directory, frames - 1, arguments), 1, "",
                     NoRoom("copy.wav", (frames - 1) * row.width));
        EXPECT_EQ(SortedNames(directory), Names{"take.rf64"});
    }
}

TEST(CopySize, IsRefusedInAiff) {
    for (const SizeRow& row : {kSizes[0], kSizes[1], kSizes[2]}) {
        for (const bool named : {false, true}) {
            SCOPED_TRACE(row.encoding + (named ? " by name" : " by extension"));
            const std::uint64_t frames = (kMost - kChunkRoom) / row.width + 1;
            const TemporaryDirectory directory;
            std::vector<std::string> arguments{"copy.aiff", "--encoding", row.encoding};
            if (named) {
                arguments.insert(arguments.end(), {"--format", "aiff"});
            }
            ExpectResult(CopyWithoutRoom(directory, frames, arguments), 1, "",
                         TooLarge("copy.aiff", frames * row.width, "AIFF-C"));
            ExpectResult(CopyWithoutRoom(directory, frames - 1, arguments), 1, "",
                         NoRoom("copy.aiff", (frames - 1) * row.width));
            EXPECT_EQ(SortedNames(directory), Names{"take.rf64"});
        }
    }
}

TEST(CopySize, IsNoMatterForRF64) {
    const TemporaryDirectory directory;
    const std::uint64_t frames = std::uint64_t{1} << 33U;
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"copy.rf64"},
          std::vector<std::string>{"copy.rf64", "--format", "bwave"}}) {
        ExpectResult(CopyWithoutRoom(directory, frames, arguments), 1, "",
                     NoRoom("copy.rf64", frames * 4));
    }
}

TEST(CopySize, CountsTheRangeAndTheChannelsThatAreCopied) {
    const TemporaryDirectory directory;
    const std::uint64_t frames = std::uint64_t{1} << 31U;
    ExpectResult(CopyWithoutRoom(directory, frames, {"copy.aiff", "--duration", "100000f"}), 1, "",
                 NoRoom("copy.aiff", 300000));
    ExpectResult(CopyWithoutRoom(directory, frames / 4,
                                 {"copy.aiff", "--encoding", "int16", "--channels", "1,1,1,1"}),
                 1, "", TooLarge("copy.aiff", frames / 4 * 8, "AIFF-C"));
}

TEST(CopySize, IsWholeInRF64ThatAWaveBecame) {
    // One channel that is written 64 times, silent but for its last frame; silence takes no room.
    constexpr std::uint64_t kChannels = 64;
    std::string channels = "1";
    for (std::uint64_t channel = 1; channel < kChannels; ++channel) {
        channels += ",1";
    }
    const std::uint64_t frames = (std::uint64_t{1} << 24U) + 10;
    const TemporaryDirectory directory;
    WriteSparseAudio(directory / "take.rf64", 2, 1, frames, frames * 2 - 2, "\x34\x12");
    Command command = Kelhost(directory, {"copy", "take.rf64", "copy.wav", "--channels", channels});
    DisturbSystem(command);
    command.environment["KEL_TEST_SPARSE"] = "1";
    const std::string overridden =
        "kelhost: warning: The file extension suggests the following wrapper format: WAVE but it "
        "has been overriden with the type wrapper format:BWAVE\n";
    ExpectResult(RunCommand(command), 0,
                 "take.rf64 -> copy.wav: RF64, float32 little-endian, 64 channels, 48000 Hz, "
                 "16777226 frames, 0:05:49.526\n",
                 Promoted("copy.wav", frames * kChannels * 4) + overridden);
    SF_INFO info{};
    SNDFILE* file = sf_open((directory / "copy.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(info.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK),
              SF_FORMAT_RF64 | SF_FORMAT_FLOAT);
    EXPECT_EQ(info.frames, static_cast<sf_count_t>(frames));
    std::vector<float> last(2 * kChannels);
    EXPECT_EQ(sf_seek(file, -2, SEEK_END), static_cast<sf_count_t>(frames) - 2);
    EXPECT_EQ(sf_readf_float(file, last.data(), 2), 2);
    sf_close(file);
    std::vector<float> expected(kChannels, 0.0F);
    expected.resize(2 * kChannels, static_cast<float>(0x1234) / 32768.0F);
    EXPECT_EQ(last, expected);
}

TEST(CopyShortage, IsToldWithBothCountsAndLeavesNothing) {
    for (const bool isTold : {false, true}) {
        const TemporaryDirectory directory;
        const CutFlac flac(directory / "take.flac", isTold);
        ASSERT_LT(flac.values.size() / 2, CutFlac::kFrames);
        for (const std::string output : {"copy.wav", "copy.aiff"}) {
            ExpectResult(RunKelhost(directory, {"copy", "take.flac", output}), 1, "",
                         "kelhost: " + flac.Shortage() +
                             "; it is damaged or was changed while it was read (--allow-short "
                             "copies what there is)\n");
            EXPECT_EQ(SortedNames(directory), Names{"take.flac"});
        }
    }
}

TEST(CopyShortage, CopiesWhatThereIsWhenThatIsAllowed) {
    for (const bool isTold : {false, true}) {
        for (const std::string output : {"copy.wav", "copy.aiff"}) {
            SCOPED_TRACE(output);
            const TemporaryDirectory directory;
            const CutFlac flac(directory / "take.flac", isTold);
            const ProcessResult result = RunKelhost(
                directory, {"copy", "take.flac", output, "--allow-short", "--verify", "--quiet"});
            ExpectResult(result, 0, "", "kelhost: warning: " + flac.Shortage() + "\n");
            EXPECT_TRUE(ReadAudio(directory / output).values == flac.values);
            EXPECT_EQ(SortedNames(directory), (Names{output, "take.flac"}));
        }
    }
}

TEST(CopyShortage, IsCountedWithinTheRange) {
    const TemporaryDirectory directory;
    const CutFlac flac(directory / "take.flac", true);
    const std::size_t delivered = flac.values.size() / 2;
    EXPECT_EQ(RunKelhost(directory, {"copy", "take.flac", "part.wav", "--start", "100f",
                                     "--duration", "10000f"})
                  .status,
              0);
    EXPECT_TRUE(ReadAudio(directory / "part.wav").values ==
                std::vector<float>(flac.values.begin() + 200, flac.values.begin() + 20200));
    const ProcessResult result = RunKelhost(
        directory, {"copy", "take.flac", "rest.wav", "--start", "100f", "--allow-short"});
    EXPECT_EQ(result.status, 0);
    const std::string counts = "kelhost: warning: take.flac: promises " +
                               std::to_string(CutFlac::kFrames - 100) + " frames and delivers " +
                               std::to_string(delivered - 100) + " (";
    EXPECT_EQ(result.err.substr(0, counts.size()), counts);
    EXPECT_TRUE(ReadAudio(directory / "rest.wav").values ==
                std::vector<float>(flac.values.begin() + 200, flac.values.end()));
}

TEST(CopyShortage, NeedsNoErrorOfTheSourceToBeNoticed) {
    const TemporaryDirectory directory;
    ExpectResult(RunCommand(ShortCopy(directory, {})), 1, "",
                 "kelhost: in.wav: promises 40000 frames and delivers 39999; it is damaged or was "
                 "changed while it was read (--allow-short copies what there is)\n");
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
    ExpectResult(RunCommand(ShortCopy(directory, {"--allow-short"})), 0,
                 "in.wav -> out.wav: extensible WAVE, float32 little-endian, 2 channels, 48000 Hz, "
                 "39999 frames, 0:00:00.833\n",
                 "kelhost: warning: in.wav: promises 40000 frames and delivers 39999\n");
    EXPECT_EQ(Content(directory / "out.wav"), "39999 2 48000\n");
}

TEST(CopyShortage, IsNoPermissionForErrorsThatTakeNoFrameAway) {
    const TemporaryDirectory directory;
    Command command = ShortCopy(directory, {"--allow-short"});
    command.environment["KEL_TEST_FAULT"] = "source logs an error while reading";
    ExpectResult(RunCommand(command), 1, "",
                 "kelhost: in.wav: fault source logs an error while reading\n");
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
}

TEST(CopyShortage, IsNoneWhenThereIsNothingMissing) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    ExpectResult(RunKelhost(directory, {"copy", "take.wav", "copy.wav", "--allow-short"}), 0,
                 "take.wav -> copy.wav: extensible WAVE, float32 little-endian, 2 channels, 48000 "
                 "Hz, 1000 frames, 0:00:00.021\n",
                 "");
}

} // namespace kel::test
