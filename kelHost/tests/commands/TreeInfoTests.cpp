// Facts about and comparisons of directory trees.

#include "AudioFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kel::test {

namespace fs = std::filesystem;

namespace {

using nlohmann::json;

// Two trees with the same audio.
class TwoTrees : public testing::Test {
protected:
    TwoTrees() {
        for (const char* side : {"a", "b"}) {
            fs::create_directories(m_directory / side + "/sub");
            WriteTake(m_directory / side + "/sub/x.wav");
            WriteFile(m_directory / side + "/notes.txt", kNoAudio);
        }
        WriteTake(m_directory / "a/y.flac");
        WriteTake(m_directory / "b/y.wav");
    }

    void ExpectComparison(int status, const std::string& out, const std::string& err,
                          const Arguments& options = {}) const {
        ExpectResult(RunKelhost(m_directory, Arguments{"compare", "-r", "a", "b"} + options),
                     status, out, err);
    }

    static std::string Same(const std::string& a, const std::string& b) {
        return a + " and " + b +
               ": the same audio, 2 channels, 48000 Hz, 1000 frames, 0:00:00.021\n";
    }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(TwoTrees, AreDescribed) {
    fs::create_symlink("y.flac", m_directory / "a/link");
    ExpectResult(RunKelhost(m_directory, {"info", "-r", "a", "b/y.wav"}), 0,
                 "File         Format               Channels  Layout         Rate  Frames     "
                 "Duration  Bytes\n"
                 "a/sub/x.wav  WAVE 16-bit integer         2  no layout  48000 Hz    1000  "
                 "0:00:00.021   4044\n"
                 "a/y.flac     WAVE 16-bit integer         2  no layout  48000 Hz    1000  "
                 "0:00:00.021   4044\n"
                 "b/y.wav      WAVE 16-bit integer         2  no layout  48000 Hz    1000  "
                 "0:00:00.021   4044\n",
                 "kelhost: 2 skipped (1 not audio, 1 symbolic link)\n");
    ExpectResult(RunKelhost(m_directory, {"info", "-r", "a", "--field",
                                          "file,measurement.channels."
                                          "0.peak",
                                          "--include", "*.flac"}),
                 0, "a/y.flac\t1.0\n", "");
    ExpectResult(RunKelhost(m_directory, {"info", "-r", "b/sub"}), 0,
                 "File         Format               Channels  Layout         Rate  Frames     "
                 "Duration  Bytes\n"
                 "b/sub/x.wav  WAVE 16-bit integer         2  no layout  48000 Hz    1000  "
                 "0:00:00.021   4044\n",
                 "");
    const ProcessResult result = RunKelhost(m_directory, {"info", "-r", "a", "--json", "missing"});
    EXPECT_EQ(result.status, 1);
    ExpectDocuments({"kelhost.info"}, result.out);
    const auto document = json::parse(result.out);
    EXPECT_EQ(document["files"].size(), 2U);
    EXPECT_EQ(document["skipped"],
              (json{{{"file", "a/link"}, {"path", "a/link"}, {"reason", "symbolic-link"}},
                    {{"file", "a/notes.txt"}, {"path", "a/notes.txt"}, {"reason", "not-audio"}}}));
    EXPECT_EQ(document["failures"].size(), 1U);
}

TEST_F(TwoTrees, AreDescribedFromAList) {
    WriteFile(m_directory / "list", "a/y.flac\na/notes.txt\n");
    ExpectResult(RunKelhost(m_directory, {"info", "--files-from", "list", "--field", "frames"}), 1,
                 "1000\n", NoAudioError("a/notes.txt"));
    ExpectResult(RunKelhost(m_directory, {"info"}), 2, "",
                 "kelhost: FILE is missing; name audio files, or use --files-from LIST\n");
}

TEST_F(TwoTrees, AreTheSame) {
    const std::string same = Same("a/sub/x.wav", "b/sub/x.wav") + Same("a/y.flac", "b/y.wav");
    ExpectComparison(0,
                     "a/notes.txt: is not audio, skipped\n" + same +
                         "2 pairs: 2 the same, 0 different, 0 only in a, 0 only in b, 1 skipped (1 "
                         "not audio), 0 failed\n",
                     "");
    ExpectComparison(0, "", "", {"--quiet"});
    // The directories may have any names.
    ExpectResult(RunKelhost(m_directory, {"compare", "-r", "a/sub/", "./b/sub"}), 0,
                 Same("a/sub/x.wav", "./b/sub/x.wav") +
                     "1 pair: 1 the same, 0 different, 0 only in a/sub/, 0 only in ./b/sub, 0 "
                     "skipped, 0 failed\n",
                 "");
}

TEST_F(TwoTrees, HaveDifferentAudioOrDifferentFiles) {
    WriteTake(m_directory / "a/y.wav"); // now y.flac has no counterpart
    WriteTake(m_directory / "b/z.aiff");
    WriteTake(m_directory / "b/sub/x.wav", 7);
    WriteFile(m_directory / "b/cover.jpg", kNoAudio);
    ExpectComparison(
        1,
        "b/cover.jpg: is not audio, skipped\n"
        "a/notes.txt: is not audio, skipped\n"
        "a/sub/x.wav and b/sub/x.wav: different audio\n"
        "Frames            1000 (0:00:00.021) and 7 (0:00:00.000)\n"
        "First difference  none in 7 common frames\n"
        "a/y.flac: only in a\n" +
            Same("a/y.wav", "b/y.wav") +
            "b/z.aiff: only in b\n"
            "2 pairs: 1 the same, 1 different, 1 only in a, 1 only in b, 2 skipped (2 not audio), "
            "0 failed\n",
        "");
    for (const char* single : {"*.flac", "*.aiff"}) {
        EXPECT_EQ(RunKelhost(m_directory, {"compare", "-r", "a", "b", "--include", single}).status,
                  1);
    }
    const ProcessResult result = RunKelhost(m_directory, {"compare", "-r", "a", "b", "--json"});
    EXPECT_EQ(result.status, 1);
    ExpectDocuments({"kelhost.compare"}, result.out);
    const auto document = json::parse(result.out);
    EXPECT_EQ(document["results"].size(), 2U);
    EXPECT_EQ(document["only_in_a"], json{"a/y.flac"});
    EXPECT_EQ(document["only_in_b"], json{"b/z.aiff"});
    EXPECT_EQ(document["skipped"].size(), 2U);
}

TEST_F(TwoTrees, HaveNoPairWhereTwoFilesCouldBeTheCounterpart) {
    WriteTake(m_directory / "b/y.aiff");
    ExpectComparison(1,
                     Same("a/sub/x.wav", "b/sub/x.wav") +
                         "b/y.aiff: only in b\na/y.flac: only in a\nb/y.wav: only in b\n"
                         "1 pair: 1 the same, 0 different, 1 only in a, 2 only in b, 0 skipped, 0 "
                         "failed\n",
                     "", {"--exclude", "notes.txt"});
}

TEST_F(TwoTrees, FailWhereOneOfAPairIsNotAudio) {
    WriteFile(m_directory / "a/sub/x", kNoAudio);
    WriteTake(m_directory / "b/sub/x");
    WriteTake(m_directory / "a/sub/z");
    WriteFile(m_directory / "b/sub/z", kNoAudio);
    ExpectComparison(2,
                     Same("a/sub/x.wav", "b/sub/x.wav") + Same("a/y.flac", "b/y.wav") +
                         "2 pairs: 2 the same, 0 different, 0 only in a, 0 only in b, 0 skipped, 2 "
                         "failed\n",
                     NoAudioError("a/sub/x") + NoAudioError("b/sub/z"), {"--exclude", "notes.txt"});
    ExpectResult(RunKelhost(m_directory, {"compare", "-r", "a", "b/y.wav"}), 2, "",
                 "kelhost: b/y.wav: is not a directory; compare files without --recursive\n");
    ExpectResult(RunKelhost(m_directory, {"compare", "a", "b"}), 2, "",
                 "kelhost: a: is a directory; copy, info and compare accept it with --recursive\n");
}

} // namespace kel::test
