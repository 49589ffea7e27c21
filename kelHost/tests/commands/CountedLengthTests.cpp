// MPEG streams whose length the library estimates.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// Returns the frames of a mono MP3 file of constant bit rate, without the first: it declares their
// number.
std::string MakeFrames(double compression, std::size_t frames) {
    const TemporaryDirectory directory;
    SF_INFO info{};
    info.channels = 1;
    info.samplerate = 44100;
    info.format = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
    const std::string path = directory / "take.mp3";
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    int mode = SF_BITRATE_MODE_CONSTANT;
    sf_command(file, SFC_SET_BITRATE_MODE, &mode, sizeof(mode));
    sf_command(file, SFC_SET_COMPRESSION_LEVEL, &compression, sizeof(compression));
    const std::vector<float> values = MakeValues(frames);
    sf_writef_float(file, values.data(), static_cast<sf_count_t>(frames));
    sf_close(file);
    const std::string bytes = ReadFile(path);
    const std::size_t second = bytes.find(bytes.substr(0, 2), 4);
    EXPECT_EQ(bytes.substr(21, 4), "Info");
    return bytes.substr(second);
}

// Decodes a stream from a pipe, of which the library does not estimate the length.
std::vector<float> Decode(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
        popen(("cat '" + path + "'").c_str(), "r"), pclose);
    SF_INFO info{};
    SNDFILE* file = sf_open_fd(fileno(pipe.get()), SFM_READ, &info, SF_FALSE);
    std::vector<float> values;
    std::array<float, 100> block{};
    sf_count_t count = 0;
    while ((count = sf_read_float(file, block.data(), block.size())) > 0) {
        values.insert(values.end(), block.begin(), block.begin() + count);
    }
    sf_close(file);
    return values;
}

struct Stream {
    std::string name;
    std::string before;
    std::string frames;
    std::string after;
    std::string warning;
};

std::vector<Stream> Streams() {
    const std::string constant = MakeFrames(0.5, 20000);
    const std::string variable = constant + MakeFrames(0.9, 60000);
    const std::string id3 = std::string("ID3\4\0\0\0\0\1\0", 10) + std::string(128, '\0');
    const std::string nineteen = "does not declare its length: 19 MPEG frames were counted";
    return {
        {"ConstantRate", "", constant, "", nineteen},
        {"VariableRate", "", variable, "",
         "does not declare its length: 73 MPEG frames were counted"},
        {"ID3v2", id3, variable, "", "does not declare its length: 73 MPEG frames were counted"},
        {"GarbageBefore", std::string(700, 'x'), constant, "", nineteen},
        {"Truncated", "", constant, constant.substr(0, 30),
         nineteen + "; an incomplete one at the end is left out"}};
}

class CountedLength : public testing::TestWithParam<Stream> {
protected:
    CountedLength() {
        WriteFile(m_directory / "take.mp3",
                  GetParam().before + GetParam().frames + GetParam().after);
        WriteFile(m_directory / "frames", GetParam().frames);
    }

    ProcessResult Run(const Arguments& arguments) const {
        return RunKelhost(m_directory, arguments);
    }

    // All samples but for the delay of the decoder.
    std::vector<float> Expected() const {
        const std::vector<float> values = Decode(m_directory / "frames");
        return {values.begin() + 529, values.end()};
    }

    TemporaryDirectory m_directory;
    const std::string m_warning = "take.mp3: " + GetParam().warning;
};

} // namespace

TEST_P(CountedLength, IsThatOfTheSamplesThatEveryCommandReads) {
#ifdef KEL_TEST_CHECKED_HEAP
    GTEST_SKIP() << "libsndfile reads the byte before its buffer when it opens an MP3 pipe";
#endif
    const std::vector<float> expected = Expected();
    const std::string line = "kelhost: warning: " + m_warning + "\n";
    const std::string frames = std::to_string(expected.size());
    ExpectResult(Run({"copy", "--quiet", "take.mp3", "out.wav"}), 0, "", line);
    EXPECT_EQ(ReadAudio(m_directory / "out.wav").values, expected);
    ExpectResult(Run({"info", "--field", "frames", "take.mp3"}), 0, frames + "\n", line);
    ExpectResult(Run({"info", "--measure", "--field", "frames", "take.mp3"}), 0, frames + "\n",
                 line);
    ExpectResult(Run({"compare", "--quiet", "take.mp3", "out.wav"}), 0, "", line);
    EXPECT_EQ(Run({"plot", "take.mp3"}).err, line);
    ExpectResult(Run({"run", "--quiet", "kel.LibsndfileSource:WAVE", "FilePath=take.mp3", "!",
                      "kel.LibsndfileSink", "FilePath=run.wav"}),
                 0, "", line);
    EXPECT_EQ(ReadAudio(m_directory / "run.wav").values, expected);
    ExpectResult(Run({"copy", "--quiet", "--start", "15000f", "take.mp3", "part.wav"}), 0, "",
                 line);
    EXPECT_EQ(ReadAudio(m_directory / "part.wav").values.size(), expected.size() - 15000);
}

INSTANTIATE_TEST_SUITE_P(Streams, CountedLength, testing::ValuesIn(Streams()),
                         [](const auto& stream) { return stream.param.name; });

namespace {

std::string Repeat(const std::string& header, std::size_t bytes, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += header + std::string(bytes - header.size(), '\0');
    }
    return all;
}

} // namespace

// Nothing declares the length of these streams. A library estimates it by the first frame.
TEST(EstimatedLength, IsReplacedByThatOfAllFrames) {
    const std::string free("\xFF\xFB\0\xC0", 4);
    const std::string tag = "TAG" + std::string(125, '\0');
    struct Row {
        std::string bytes;
        int frames;
        int samples;
        std::string rest;
    };
    for (const Row& row :
         {Row{Repeat("\xFF\xFF\x10\xC0", 32, 50) + Repeat("\xFF\xFF\xE0\xC0", 484, 50), 100, 384,
              ""},
          Row{Repeat("\xFF\xFF\xE0\xC0", 484, 50) + Repeat("\xFF\xFF\x10\xC0", 32, 50), 100, 384,
              ""},
          Row{Repeat("\xFF\xFD\x80\xC0", 417, 40) + tag, 40, 1152, ""},
          Row{Repeat("\xFF\xFD\x80\xC0", 417, 40) + std::string(5000, 'x') +
                  Repeat("\xFF\xFD\x80\xC0", 417, 3),
              43, 1152, "; 5000 bytes between or after them are skipped"},
          Row{Repeat(free, 500, 40) + tag, 40, 1152, ""}}) {
        const TemporaryDirectory directory;
        WriteFile(directory / "take.mp3", row.bytes);
        const std::string warning = "kelhost: warning: take.mp3: does not declare its length: " +
                                    std::to_string(row.frames) + " MPEG frames were counted" +
                                    row.rest + "\n";
        const std::string frames = std::to_string(row.frames * row.samples) + "\n";
        ExpectResult(RunKelhost(directory, {"info", "--field", "frames", "take.mp3"}), 0, frames,
                     warning);
        for (const std::string block : {"1000", "16384"}) {
            const ProcessResult copied =
                RunKelhost(directory, {"copy", "--force", "--block", block, "take.mp3", "out.wav"});
            EXPECT_EQ(copied.status, 0) << copied.err;
            EXPECT_EQ(ReadAudio(directory / "out.wav").values.size(),
                      static_cast<std::size_t>(row.frames * row.samples));
        }
    }
}

// The library delivers only the first kind.
TEST(LengthOfJoinedStreams, IncludesFramesThatAreNotRead) {
    const TemporaryDirectory directory;
    const std::string mono = MakeFrames(0.5, 20000);
    WriteFile(directory / "take.mp3", mono + Repeat("\xFF\xFB\x94\x64", 384, 5));
    const std::string others = "5 of its 24 MPEG frames have another layer, rate or number of "
                               "channels than the first";
    const std::string counted = "kelhost: warning: take.mp3: does not declare its length: 19 MPEG "
                                "frames were counted; 1920 bytes between or after them are "
                                "skipped\n";
    const std::string accepted = "kelhost: warning: take.mp3: " + others + " and are left out\n";
    for (const Arguments& arguments :
         {Arguments{"copy", "take.mp3", "out.wav"}, Arguments{"info", "--measure", "take.mp3"}}) {
        ExpectResult(RunKelhost(directory, arguments), 1, "",
                     Error("take.mp3", "cannot read all samples: " + others +
                                           " (--allow-truncated accepts the other frames)"));
    }
    ExpectResult(
        RunKelhost(directory, {"copy", "--quiet", "--allow-truncated", "take.mp3", "out.wav"}), 0,
        "", counted + accepted);
    ExpectResult(RunKelhost(directory, {"info", "--field", "frames", "take.mp3"}), 0, "21359\n",
                 counted + accepted);
}

namespace {

class UncountedLength : public testing::Test {
protected:
    UncountedLength() { WriteFile(m_directory / "take.mp3", m_frames); }

    TemporaryDirectory m_directory;
    const std::string m_frames = MakeFrames(0.5, 20000);
};

} // namespace

TEST_F(UncountedLength, IsAWarningInDocuments) {
    const ProcessResult result = RunKelhost(m_directory, {"copy", "--json", "take.mp3", "out.wav"});
    EXPECT_NE(result.out.find("\"take.mp3: does not declare its length: 19 MPEG frames were "
                              "counted\""),
              std::string::npos)
        << result.out;
}

TEST_F(UncountedLength, NeedsSpaceForACopy) {
    Command command = Kelhost(m_directory, {"info", "take.mp3"});
    command.environment["TMPDIR"] = m_directory / "missing";
    ExpectResult(RunCommand(command), 1, "",
                 Error("take.mp3",
                       "cannot make a copy that declares its length in " +
                           (m_directory / "missing") +
                           ": No such file or directory; --temp-dir DIRECTORY names a place with " +
                           std::to_string(m_frames.size() + 208) + " bytes of space"));
}

// Files that declare their frames are read as they are.
TEST_F(UncountedLength, IsNotThatOfADeclaringFile) {
    WriteAudio(m_directory / "declaring.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 1, 44100,
               MakeValues(20000));
    Command command = Kelhost(m_directory, {"info", "--field", "frames", "declaring.mp3"});
    command.environment["TMPDIR"] = m_directory / "missing";
    ExpectResult(RunCommand(command), 0, "20000\n", "");
}

} // namespace kel::test
