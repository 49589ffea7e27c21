// Sums that were computed by other programs.
#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// The bytes 1 to 24, and their MD5 by md5sum.
const std::string kBytes("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10\x11\x12"
                         "\x13\x14\x15\x16\x17\x18",
                         24);
const std::string kMD5 = "147e88065f0c9f17a7ae174877e6c233";

std::string MD5Of(const TemporaryDirectory& directory, const std::string& file) {
    const ProcessResult result = RunKelhost(directory, {"info", "--field", "md5", file});
    EXPECT_EQ(result.err, "");
    return result.out.substr(0, result.out.find('\n'));
}

// The MD5 in the header of a FLAC file.
std::string DeclaredMD5(const std::string& flac) {
    constexpr std::size_t kPlace = 26;
    std::string digits;
    for (const char byte : ReadFile(flac).substr(kPlace, 16)) {
        constexpr const char* kDigits = "0123456789abcdef";
        const auto number = static_cast<unsigned char>(byte);
        digits += {kDigits[number / 16], kDigits[number % 16]};
    }
    return digits;
}

} // namespace

TEST(InfoChecksum, IsTheMD5OfTheSamples) {
    const TemporaryDirectory directory;
    for (const int encoding :
         {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_DOUBLE}) {
        WriteRawAudio(directory / "take.wav", SF_FORMAT_WAV | encoding, 1, 8000, kBytes);
        EXPECT_EQ(MD5Of(directory, "take.wav"), kMD5) << encoding;
    }
    WriteAudio(directory / "empty.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 8000, {});
    EXPECT_EQ(MD5Of(directory, "empty.wav"), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(InfoChecksum, OfAFLACFileIsTheOneInItsHeader) {
    const TemporaryDirectory directory;
    for (const int encoding : {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24}) {
        WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | encoding, 2, 48000,
                   MakeValues(2 * 50000));
        EXPECT_EQ(MD5Of(directory, "take.flac"), DeclaredMD5(directory / "take.flac")) << encoding;
    }
}

TEST(InfoChecksum, IsShownInDetailsTablesAndCSV) {
    const TemporaryDirectory directory;
    WriteRawAudio(directory / "a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 8000, kBytes);
    WriteRawAudio(directory / "b.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 8000, kBytes);
    const std::string details = RunKelhost(directory, {"info", "a.wav"}).out;
    ExpectResult(RunKelhost(directory, {"info", "--checksum", "a.wav"}), 0,
                 details + "MD5 of the samples   " + kMD5 + "\n", "");
    for (const bool measures : {false, true}) {
        Arguments arguments{"info", "a.wav", "b.wav"};
        if (measures) {
            arguments.emplace_back("--measure");
        }
        const auto plain = LinesOf(RunKelhost(directory, arguments).out);
        const auto lines = LinesOf(RunKelhost(directory, arguments + Arguments{"--checksum"}).out);
        EXPECT_EQ(lines,
                  (std::vector<std::string>{plain.at(0) + "  MD5 of the samples",
                                            plain.at(1) + "  " + kMD5, plain.at(2) + "  " + kMD5}));
    }
    const auto csv = LinesOf(RunKelhost(directory, {"info", "--csv", "--checksum", "a.wav"}).out);
    EXPECT_EQ(csv.at(0).substr(csv.at(0).rfind(',')), ",md5\r");
    EXPECT_EQ(csv.at(1).substr(csv.at(1).rfind(',')), "," + kMD5 + "\r");
}

TEST(InfoChecksum, IsRefusedForAFileThatEndsEarly) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 48000,
               MakeValues(100000));
    WriteFile(directory / "take.flac", ReadFile(directory / "take.flac").substr(0, 200));
    const std::string counts = "declares 100000 frames and delivers 0";
    ExpectResult(RunKelhost(directory, {"info", "--checksum", "take.flac"}), 1, "",
                 Error("take.flac", counts + "; it is damaged or was changed while it was read "
                                             "(--allow-truncated accepts the frames that exist)"));
    ExpectResult(
        RunKelhost(directory, {"info", "--field", "md5", "--allow-truncated", "take.flac"}), 0,
        "d41d8cd98f00b204e9800998ecf8427e\n", "kelhost: warning: take.flac: " + counts + "\n");
}

TEST(InfoChecksum, IsRefusedForAFileOfUnknownLengthThatWasCutOff) {
    const TemporaryDirectory directory;
    WriteEndlessTake(directory / "take.flac", 40001);
    const std::string bytes = ReadFile(directory / "take.flac");
    WriteFile(directory / "take.flac", bytes.substr(0, bytes.size() / 2));
    ExpectResult(RunKelhost(directory, {"info", "--checksum", "take.flac"}), 1, "",
                 Error("take.flac", "cannot read the file: Error : flac decoder lost sync."));
}

TEST(InfoChecksum, IsRefusedWhereSamplesCannotBeReadAsStored) {
    const TemporaryDirectory directory;
    WriteFile(directory / "text.wav", "1000 2 48000\n");
    ExpectResult(RunKelhost(directory, {"info", "--checksum", "text.wav", "--plugin",
                                        TestPlugin("kelFaultyElements")}),
                 1, "",
                 Error("text.wav", "cannot compute its checksum: libsndfile does not know its "
                                   "format; use kelhost compare"));
}

} // namespace kel::test
