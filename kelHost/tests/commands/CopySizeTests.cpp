// Copies that are too large for their container or for the disk, and inputs that end early.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// Allowance for the chunks of a file with one channel.
constexpr std::uint64_t kChunkBytes = 512 + 16;
constexpr std::uint64_t kMaxBytes = 0xFFFFFFFF;

// Copies an input of so many frames onto a full disk: it fails before the first byte.
ProcessResult CopyWithoutRoom(const TemporaryDirectory& directory, std::uint64_t frames,
                              const Arguments& arguments) {
    WriteSparseAudio(directory / "take.rf64", 1, 1, frames, 0, "");
    Command command = Kelhost(directory, Arguments{"copy", "take.rf64"} + arguments);
    DisturbSystem(command);
    command.environment["KEL_TEST_DISK_ROOM"] = "1000";
    return RunCommand(command);
}

std::string NoRoom(const std::string& output, std::uint64_t sampleBytes) {
    return "kelhost: " + output + ": needs " + std::to_string(sampleBytes + kChunkBytes) +
           " bytes, and its disk has 1000 left; nothing was written\n";
}

std::string TooLarge(const std::string& output, std::uint64_t sampleBytes,
                     const std::string& container) {
    return "kelhost: " + output + ": would have " + std::to_string(sampleBytes) +
           " bytes of samples, and " + container + " holds at most 4 GiB; use --format bwave\n";
}

std::string Promoted(const std::string& output, std::uint64_t sampleBytes) {
    return "kelhost: warning: " + output + ": is written as RF64, because its " +
           std::to_string(sampleBytes) + " bytes of samples do not fit into WAVE\n";
}

// Copies text to text, with a fault of the source.
Command TextCopy(const TemporaryDirectory& directory, const std::string& fault,
                 const Arguments& options) {
    WriteFile(directory / "in.wav", "40000 2 48000\n");
    Command command =
        Kelhost(directory, Arguments{"copy", "--plugin", TestPlugin("kelFaultyElements"), "in.wav",
                                     "out.wav"} +
                               options);
    command.environment["KEL_TEST_FAULT"] = fault;
    command.environment["KEL_TEST_SINK_MARKER"] = directory / "sink is not closed";
    return command;
}

} // namespace

TEST(CopySize, IsKnownToTheLastFrameThatFits) {
    struct Row {
        std::string encoding;
        std::uint64_t width;
        Arguments arguments;
        bool becomesRF64; // with a frame more; else it is refused
    };
    for (const Row& row : {Row{"int16", 2, {"copy.wav"}, true}, Row{"int24", 3, {"copy.wav"}, true},
                           Row{"float64", 8, {"copy.wav"}, true},
                           Row{"float32", 4, {"copy.wav", "--format", "wave"}, false},
                           Row{"int16", 2, {"copy.aiff"}, false},
                           Row{"int24", 3, {"copy.aiff", "--format", "aiff"}, false}}) {
        SCOPED_TRACE(row.encoding + " " + testing::PrintToString(row.arguments));
        const std::string& output = row.arguments[0];
        const std::uint64_t frames = (kMaxBytes - kChunkBytes) / row.width;
        const std::uint64_t bytes = (frames + 1) * row.width;
        const Arguments arguments = row.arguments + Arguments{"--encoding", row.encoding};
        const TemporaryDirectory directory;
        ExpectResult(CopyWithoutRoom(directory, frames, arguments), 1, "",
                     NoRoom(output, frames * row.width));
        ExpectResult(
            CopyWithoutRoom(directory, frames + 1, arguments), 1, "",
            row.becomesRF64
                ? Promoted(output, bytes) + NoRoom(output, bytes)
                : TooLarge(output, bytes, output == "copy.wav" ? "extensible WAVE" : "AIFF-C"));
        EXPECT_EQ(SortedNames(directory), Names{"take.rf64"});
    }
}

TEST(CopySize, CountsTheRangeAndTheChannelsThatAreCopied) {
    const TemporaryDirectory directory;
    const std::uint64_t frames = std::uint64_t{1} << 31U;
    ExpectResult(CopyWithoutRoom(directory, frames, {"copy.rf64"}), 1, "",
                 NoRoom("copy.rf64", frames * 2));
    ExpectResult(CopyWithoutRoom(directory, frames, {"copy.aiff", "--duration", "100000f"}), 1, "",
                 NoRoom("copy.aiff", 200000));
    ExpectResult(CopyWithoutRoom(directory, frames / 4,
                                 {"copy.aiff", "--encoding", "int16", "--channels", "1,1,1,1"}),
                 1, "", TooLarge("copy.aiff", frames / 4 * 8, "AIFF-C"));
}

TEST(CopySize, MayBeMoreThan4GiBWhereWaveBecomesRF64) {
    const TemporaryDirectory directory;
    Command command = TextCopy(directory, "", {"--block", "256"});
    WriteFile(directory / "in.wav", "2100000 512 48000\n");
    DisturbSystem(command);
    command.environment["KEL_TEST_DISK_ROOM"] = "5000000000"; // the text needs less
    ExpectResult(RunCommand(command), 0,
                 "in.wav -> out.wav: RF64, float32 little-endian, 512 channels, 48000 Hz, 2100000 "
                 "frames, 0:00:43.750\n",
                 Promoted("out.wav", std::uint64_t{2100000} * 512 * 4));
    EXPECT_EQ(ReadFile(directory / "out.wav"), "2100000 512 48000\n");
}

TEST(CopyShortage, IsReportedWithBothCountsUnlessItIsAllowed) {
    struct Row {
        std::string fault;
        Arguments range;
        int promised;
    };
    const std::string logs = "source logs an error and ends early";
    for (const Row& row : {Row{"source delivers fewer frames", {}, 40000}, Row{logs, {}, 40000},
                           Row{logs, {"--start", "100f"}, 39900}}) {
        const TemporaryDirectory directory;
        const std::string frames = std::to_string(row.promised - 1);
        const std::string shortage =
            "in.wav: declares " + std::to_string(row.promised) + " frames and delivers " + frames;
        ExpectResult(
            RunCommand(TextCopy(directory, row.fault, row.range)), 1, "",
            "kelhost: " + shortage +
                "; it is damaged or was changed while it was read (--allow-truncated accepts "
                "the frames that exist)\n");
        EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
        const Arguments allowed{"--allow-truncated", "--quiet"};
        ExpectResult(RunCommand(TextCopy(directory, row.fault, row.range + allowed)), 0, "",
                     "kelhost: warning: " + shortage + "\n");
        EXPECT_EQ(ReadFile(directory / "out.wav"), frames + " 2 48000\n");
    }
    const TemporaryDirectory directory;
    ExpectResult(RunCommand(TextCopy(directory, logs, {"--end", "39999f", "--quiet"})), 0, "", "");
}

TEST(CopyShortage, IsNoPermissionForErrorsWithoutALossOfFrames) {
    const TemporaryDirectory directory;
    ExpectResult(
        RunCommand(
            TextCopy(directory, "source logs an error while reading", {"--allow-truncated"})),
        1, "", Error("in.wav", "cannot read the audio: it may be damaged (--verbose shows more)"));
    EXPECT_EQ(SortedNames(directory), Names{"in.wav"});
}

// The source fails at its second sample, so that a copy succeeds if it has only one.
TEST(CopyBlock, HasAtMost2MiBUnlessItIsChosen) {
    struct Row {
        std::string file;
        Arguments options;
        int status;
    };
    for (const Row& row :
         {Row{"16384 32 48000", {}, 0}, Row{"16385 2 48000", {}, 1}, Row{"512 1024 48000", {}, 0},
          Row{"513 1024 48000", {}, 1}, Row{"513 1024 48000", {"--block", "513"}, 0}}) {
        SCOPED_TRACE(row.file);
        const TemporaryDirectory directory;
        const Command command = TextCopy(directory, "source throws while reading", row.options);
        WriteFile(directory / "in.wav", row.file + "\n");
        EXPECT_EQ(RunCommand(command).status, row.status);
    }
}

} // namespace kel::test
