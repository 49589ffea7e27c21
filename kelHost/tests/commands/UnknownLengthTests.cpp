// Files that do not declare their number of frames.

#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kel::test {

namespace {

constexpr std::size_t kFrames = 40001; // three samples of at most 16384 frames
const std::string kLength = "40001 frames, 0:00:00.833";

class UnknownLength : public testing::Test {
protected:
    UnknownLength() {
        WriteEndlessTake(m_directory / "take.flac", kFrames);
        WriteTake(m_directory / "take.wav", kFrames);
    }

    ProcessResult Run(const Arguments& arguments) const {
        return RunKelhost(m_directory, arguments);
    }

    std::vector<float> Values(const std::string& file) const {
        return ReadAudio(m_directory / file).values;
    }

    TemporaryDirectory m_directory;
};

// A number of bytes as a line shows it.
std::string Count(std::uintmax_t bytes) {
    return std::to_string(bytes) + " bytes\n";
}

} // namespace

TEST_F(UnknownLength, IsCopiedToItsEnd) {
    ExpectResult(
        Run({"copy", "take.flac", "out.wav"}), 0,
        CopyReport("take.flac", "out.wav", "extensible WAVE, int16 little-endian", kLength), "");
    EXPECT_EQ(Values("out.wav"), MakeValues(2 * kFrames));
    ExpectResult(
        Run({"copy", "--allow-truncated", "--verify", "take.flac", "short.aiff"}), 0,
        CopyReport("take.flac", "short.aiff", "AIFF-C, int16 big-endian", kLength + ", verified"),
        "");
    EXPECT_EQ(Values("short.aiff"), MakeValues(2 * kFrames));
}

TEST_F(UnknownLength, PassesThroughAPipeline) {
    ExpectResult(Run({"run", "kel.LibsndfileSource:WAVE", "FilePath=take.flac", "!",
                      "kel.LibsndfileSink", "FilePath=out.wav"}),
                 0,
                 "take.flac -> out.wav: 32-bit float little-endian, 2 channels, 48000 Hz, " +
                     kLength + "\n",
                 "");
    EXPECT_EQ(Values("out.wav"), MakeValues(2 * kFrames));
}

TEST_F(UnknownLength, HasRanges) {
    struct Row {
        Arguments options;
        std::size_t first;
        std::size_t end;
    };
    const std::vector<float> all = MakeValues(2 * kFrames);
    for (const Row& row :
         {Row{{"--start", "30000f"}, 30000, kFrames}, Row{{"--end", "17000f"}, 0, 17000},
          Row{{"--start", "5f", "--duration", "39996f"}, 5, kFrames}}) {
        SCOPED_TRACE(row.first);
        ExpectResult(
            Run(Arguments{"copy", "--force", "take.flac", "out.wav", "--quiet"} + row.options), 0,
            "", "");
        EXPECT_EQ(Values("out.wav"),
                  std::vector<float>(all.begin() + 2 * static_cast<std::ptrdiff_t>(row.first),
                                     all.begin() + 2 * static_cast<std::ptrdiff_t>(row.end)));
    }
}

TEST_F(UnknownLength, ReportsARangeThatItTurnsOutNotToHave) {
    ExpectResult(Run({"copy", "take.flac", "out.wav", "--end", "40002f"}), 1, "",
                 Error("take.flac", "the range from frame 0 to frame 40002 is not within the file, "
                                    "which has 40001 frames (0:00:00.833)"));
    EXPECT_EQ(SortedNames(m_directory), (Names{"take.flac", "take.wav"}));
}

TEST_F(UnknownLength, IsShownAsUnknownUntilTheFileIsRead) {
    const std::string format = "File                 take.flac\n"
                               "Format               FLAC 16-bit\n"
                               "Size                 " +
                               Count(std::filesystem::file_size(m_directory / "take.flac")) +
                               "Channels             2, stereo\n"
                               "Rate                 48000 Hz\n";
    ExpectResult(Run({"info", "take.flac"}), 0,
                 format + "Frames               unknown\n"
                          "Duration             unknown\n",
                 "");
    const ProcessResult measured = Run({"info", "--measure", "take.flac"});
    const ProcessResult known = Run({"info", "--measure", "take.wav"});
    EXPECT_EQ(measured.out, format + known.out.substr(known.out.find("Frames")));
    EXPECT_EQ(measured.err, "");
}

TEST_F(UnknownLength, IsNullInDocuments) {
    const ProcessResult result = Run({"info", "--json", "take.flac"});
    EXPECT_EQ(
        result.out,
        R"({"document":"kelhost.info","failures":[],"files":[{"broadcast":null,"bytes":)" +
            std::to_string(std::filesystem::file_size(m_directory / "take.flac")) +
            R"(,"channel_mask":3,"channels":2,"chunks":[],"container":"FLAC","cue_points":[],"delivery":"32-bit float little-endian","duration":null,"encoding":"16-bit","file":"take.flac","format":"FLAC 16-bit","frames":null,"layout":"stereo","path":"take.flac","problems":[],"rate":48000,"seconds":null,"tags":[],"truncated":null,"warnings":[]}],"version":1})"
            "\n");
    const std::string progress =
        R"({"document":"kelhost.progress","done":500,"file":"take.flac","path":"take.flac","rate":1000,"total":null,"version":1})"
        "\n";
    const ProcessResult validated = Validate(result.out + progress);
    EXPECT_EQ(validated.status, 0) << validated.out << validated.err;
    ExpectResult(Run({"info", "--field", "frames", "take.flac"}), 0, "null\n", "");
    ExpectResult(Run({"info", "--measure", "--field", "frames", "take.flac"}), 0, "40001\n", "");
}

TEST_F(UnknownLength, IsPlottedLikeAKnownOne) {
    const ProcessResult known = Run({"plot", "take.wav"});
    ExpectResult(Run({"plot", "take.flac"}), 0, known.out, "");
    std::filesystem::create_directory(m_directory / "wav");
    std::filesystem::create_directory(m_directory / "flac");
    std::filesystem::rename(m_directory / "take.wav", m_directory / "wav/take");
    std::filesystem::rename(m_directory / "take.flac", m_directory / "flac/take");
    for (const Arguments& range : {Arguments{}, Arguments{"--start", "0.5", "--duration", "0.1"}}) {
        ExpectResult(Run(Arguments{"plot", "--force", "wav/take", "wav.svg", "--quiet"} + range), 0,
                     "", "");
        ExpectResult(Run(Arguments{"plot", "--force", "flac/take", "flac.svg", "--quiet"} + range),
                     0, "", "");
        EXPECT_EQ(ReadFile(m_directory / "flac.svg"), ReadFile(m_directory / "wav.svg"));
    }
}

// Programs append tags to files whose format has another place for them.
TEST_F(UnknownLength, IsNoReasonToFailForATagAfterAllDeclaredFrames) {
    WriteAudio(m_directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000,
               MakeValues(2 * kFrames));
    WriteFile(m_directory / "take.flac",
              ReadFile(m_directory / "take.flac") + "TAGTitle" + std::string(120, ' '));
    const std::string warning =
        "kelhost: warning: take.flac: all declared frames were delivered, and then reading failed "
        "(--verbose shows more)\n";
    for (const Arguments& arguments :
         {Arguments{"copy", "take.flac", "out.wav"}, Arguments{"compare", "take.flac", "take.wav"},
          Arguments{"run", "--force", "kel.LibsndfileSource:WAVE", "FilePath=take.flac", "!",
                    "kel.LibsndfileSink", "FilePath=out.wav"}}) {
        const ProcessResult result = Run(arguments + Arguments{"--quiet"});
        EXPECT_EQ(result.status, 0) << arguments.front();
        EXPECT_EQ(result.err, warning);
    }
    EXPECT_EQ(Values("out.wav"), MakeValues(2 * kFrames));
}

// The source does not report a failed read at the beginning of a sample, and takes it for the end.
TEST_F(UnknownLength, DoesNotHideAReadThatFails) {
    const std::string error = "kelhost: take.flac: delivers 16384 frames and stops at byte ";
    const auto fail = [this](int number, const Arguments& arguments) {
        Command command = Kelhost(m_directory, arguments);
        DisturbSystem(command);
        command.environment["KEL_TEST_FAULTY_CALL"] = "read";
        command.environment["KEL_TEST_FAULTY_FILE"] = "take.flac";
        command.environment["KEL_TEST_FAULTY_NUMBER"] = std::to_string(number);
        command.environment["KEL_TEST_FAULT_MARKER"] = m_directory / "marker";
        return RunCommand(command);
    };
    // Returns the number of the first read whose failure looks like the end. All others fail, too.
    const auto find = [&](const Arguments& arguments) {
        bool isFound = false;
        int number = 1;
        for (bool hasFailed = true; hasFailed && !isFound; ++number) {
            std::filesystem::remove(m_directory / "marker");
            const ProcessResult result = fail(number, arguments);
            hasFailed = std::filesystem::exists(m_directory / "marker");
            EXPECT_EQ(result.status, hasFailed ? 1 : 0) << result.out;
            isFound = result.err.rfind(error, 0) == 0;
        }
        EXPECT_TRUE(isFound);
        return number - 1;
    };
    // The other commands do not read metadata.
    const Arguments copy{"copy", "take.flac", "out.wav", "--metadata", "none"};
    const int found = find(copy + Arguments{"--force"});
    const std::string size = std::to_string(std::filesystem::file_size(m_directory / "take.flac"));
    const std::string damaged = "; it is damaged or was changed while it was read "
                                "(--allow-truncated accepts the frames that exist)";
    const auto generalised = [](const std::string& text) {
        return ReplaceMatches(text, "at byte [0-9]+", "at byte N");
    };
    const std::string stops = "delivers 16384 frames and stops at byte N of " + size;
    EXPECT_EQ(generalised(fail(found, copy).err), Error("take.flac", stops + damaged));
    for (const Arguments& arguments :
         {Arguments{"info", "--measure", "take.flac"}, Arguments{"plot", "take.flac"}}) {
        EXPECT_EQ(generalised(fail(find(arguments), arguments).err),
                  Error("take.flac", stops + damaged));
    }
    const ProcessResult accepted = fail(found, copy + Arguments{"--allow-truncated"});
    EXPECT_EQ(accepted.status, 0);
    EXPECT_EQ(generalised(accepted.err), "kelhost: warning: take.flac: " + stops + "\n");
}

} // namespace kel::test
