#include "AudioFiles.h"
#include "DamagedFiles.h"
#include "Program.h"
#include "Schemas.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {

namespace {

// A text that fills a field.
std::string Field(std::string text, std::size_t bytes) {
    text.resize(bytes, '\0');
    return text;
}

// Writes a file of ten 16-bit frames at 8 kHz that has metadata of each kind.
void WriteDescribedTake(const std::string& path) {
    const std::string format = LittleEndian(1, 2) + LittleEndian(1, 2) + LittleEndian(8000, 4) +
                               LittleEndian(16000, 4) + LittleEndian(2, 2) + LittleEndian(16, 2);
    const std::string broadcast =
        Field("A \"door\", slammed", 256) + Field("Studio\x1B", 32) + Field("REF1", 32) +
        "2026-11-22" + "10:11:12" + LittleEndian(28800000 * 8ULL, 8) + LittleEndian(2, 2) +
        Field("\x06\x0A", 64) + LittleEndian(0xF704, 2) + LittleEndian(525, 2) +
        LittleEndian(0xFF9C, 2) + LittleEndian(0x7FFF, 2) + LittleEndian(0xF830, 2) +
        Field("", 180) + "A=PCM,F=8000,W=16,M=mono\r\nA=PCM,F=8000,W=16,T=edit\r\n";
    const auto point = [](std::uint64_t id, std::uint64_t frame) {
        return LittleEndian(id, 4) + LittleEndian(frame, 4) + "data" + LittleEndian(0, 8) +
               LittleEndian(frame, 4);
    };
    const std::string labels = Chunk("labl", LittleEndian(2, 4) + std::string("end", 4)) +
                               Chunk("note", LittleEndian(2, 4) + std::string("not\nhere", 9));
    WriteFile(path,
              Chunk("RIFF", "WAVE" + Chunk("fmt ", format) + Chunk("bext", broadcast) +
                                Chunk("data", std::string(20, '\1')) +
                                Chunk("cue ", LittleEndian(2, 4) + point(1, 4) + point(2, 9)) +
                                Chunk("LIST", "adtl" + labels) +
                                Chunk("LIST", "INFO" + Chunk("INAM", std::string("Door", 5)) +
                                                  Chunk("ICMT", std::string("x\ny", 4))) +
                                Chunk("iXML", "<BWFXML/>")));
}

} // namespace

TEST(Info, ShowsFilesInATable) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 96024);
    WriteAudio(directory / "long name.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, 8000,
               MakeValues(8000));
    WriteAudio(directory / "six", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 6, 192000, MakeValues(6));
    ExpectResult(RunKelhost(directory, {"info", "take.wav", "long name.aiff", "six"}), 0,
                 "File            Format               Channels  Layout          Rate  Frames     "
                 "Duration   Bytes\n"
                 "take.wav        WAVE 16-bit integer         2  no layout   48000 Hz   96024  "
                 "0:00:02.001  384140\n"
                 "long name.aiff  AIFF 24-bit integer         1  no layout    8000 Hz    8000  "
                 "0:00:01.000   24054\n"
                 "six             RF64 32-bit float           6  5.1        192000 Hz       1  "
                 "0:00:00.000     128\n",
                 "");
    EXPECT_EQ(SortedNames(directory), (Names{"long name.aiff", "six", "take.wav"}));
}

TEST(Info, ShowsTheOthersWhenFilesCannotBeOpened) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    WriteFile(directory / "text.wav", kNoAudio);
    std::filesystem::create_directory(directory / "directory");
    const std::string errors =
        NoAudioError("text.wav") +
        Error("directory", "is a directory; copy, info and compare accept it with --recursive");
    const std::string line =
        "  WAVE 16-bit integer         2  no layout  48000 Hz    1000  0:00:00.021   4044\n";
    ExpectResult(RunKelhost(directory, {"info", "text.wav", "take.wav", "directory", "./take.wav"}),
                 1,
                 "File        Format               Channels  Layout         Rate  Frames     "
                 "Duration  Bytes\ntake.wav  " +
                     line + "./take.wav" + line,
                 errors);
    ExpectResult(RunKelhost(directory, {"info", "text.wav", "directory"}), 1, "", errors);
}

constexpr const char* kDescribedTake = "File                 take.wav\n"
                                       "Format               WAVE 16-bit integer\n"
                                       "Size                 889 bytes\n"
                                       "Channels             1, no layout\n"
                                       "Rate                 8000 Hz\n"
                                       "Frames               10\n"
                                       "Duration             0:00:00.001\n"
                                       "\n"
                                       "Broadcast\n"
                                       "Description          A \"door\", slammed\n"
                                       "Originator           Studio\\x1B\n"
                                       "Reference            REF1\n"
                                       "Date                 2026-11-22\n"
                                       "Time                 10:11:12\n"
                                       "Time reference       230400000 frames, 8:00:00.000\n"
                                       "Integrated loudness  -23.00 LUFS\n"
                                       "Loudness range       5.25 LU\n"
                                       "True peak            -1.00 dBTP\n"
                                       "Maximum short-term   -20.00 LUFS\n"
                                       "Coding history       A=PCM,F=8000,W=16,M=mono\n"
                                       "                     A=PCM,F=8000,W=16,T=edit\n"
                                       "\n"
                                       "Tags\n"
                                       "title                Door\n"
                                       "comment              x\n"
                                       "                     y\n"
                                       "\n"
                                       "Cue points\n"
                                       "Number  Frame         Time  Label  Note\n"
                                       "     1      4  0:00:00.001\n"
                                       "     2      9  0:00:00.001  end    not\\nhere\n"
                                       "\n"
                                       "Other chunks\n"
                                       "iXML                 9 bytes\n";

TEST(InfoDetails, AreShownOfASingleFileAndOfAllWithFull) {
    const TemporaryDirectory directory;
    WriteDescribedTake(directory / "take.wav");
    WriteAudio(directory / "mono.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 8000, {0.5F});
    ExpectResult(RunKelhost(directory, {"info", "take.wav"}), 0, kDescribedTake, "");
    const std::string size = std::to_string(std::filesystem::file_size(directory / "mono.flac"));
    const std::string flac = RunKelhost(directory, {"info", "mono.flac"}).out;
    EXPECT_EQ(flac, "File                 mono.flac\n"
                    "Format               FLAC 16-bit\n"
                    "Size                 " +
                        size +
                        " bytes\n"
                        "Channels             1, mono\n"
                        "Rate                 8000 Hz\n"
                        "Frames               1\n"
                        "Duration             0:00:00.000\n");
    ExpectResult(RunKelhost(directory, {"info", "--full", "take.wav", "mono.flac"}), 0,
                 std::string(kDescribedTake) + "\n" + flac, "");
}

TEST(InfoDetails, ShortenLabelsAndNameProblems) {
    const TemporaryDirectory directory;
    const std::string path = directory / "take.wav";
    WriteTake(path, 1);
    const std::string label = std::string(56, 'l') + "\xC3\xA4llll";
    const std::string cue = Chunk("cue ", LittleEndian(9, 4) + LittleEndian(1, 4) +
                                              LittleEndian(0, 4) + "data" + LittleEndian(0, 12));
    WriteFile(path, ReadFile(path) + cue +
                        Chunk("LIST", "adtl" + Chunk("labl", LittleEndian(1, 4) + label)));
    const std::string out = RunKelhost(directory, {"info", "take.wav"}).out;
    EXPECT_EQ(out.substr(std::min(out.find("\n\n"), out.size())),
              "\n\nCue points\n"
              "Number  Frame         Time  Label\n"
              "     1      0  0:00:00.000  " +
                  std::string(56, 'l') +
                  "\xC3\xA4...\n"
                  "\n"
                  "Problems\n"
                  "cue declares 9 points and has 1\n");
}

TEST(InfoDocument, HasAllMetadata) {
    const TemporaryDirectory directory;
    WriteDescribedTake(directory / "take.wav");
    const ProcessResult result = RunKelhost(directory, {"info", "--json", "take.wav"});
    const ProcessResult validated = Validate(result.out);
    EXPECT_EQ(validated.status, 0) << validated.out << validated.err;
    const nlohmann::json file = nlohmann::json::parse(result.out)["files"][0];
    EXPECT_EQ(file["broadcast"].dump(),
              R"({"coding_history":"A=PCM,F=8000,W=16,M=mono\r\nA=PCM,F=8000,W=16,T=edit\r\n",)"
              R"("date":"2026-11-22","description":"A \"door\", slammed",)"
              R"("loudness":{"integrated_lufs":-23.0,"momentary_lufs":null,"range_lu":5.25,)"
              R"("short_term_lufs":-20.0,"true_peak_dbtp":-1.0},)"
              R"("originator":"Studio\u001b","originator_reference":"REF1","time":"10:11:12",)"
              R"("time_reference":230400000,"time_reference_time":"8:00:00.000","umid":"060a)" +
                  std::string(124, '0') + R"(","version":2})");
    EXPECT_EQ(file["tags"].dump(),
              R"([{"name":"title","value":"Door"},{"name":"comment","value":"x\ny"}])");
    EXPECT_EQ(
        file["cue_points"].dump(),
        R"([{"frame":4,"id":1,"label":"","length":0,"note":"","time":"0:00:00.001"},)"
        R"({"frame":9,"id":2,"label":"end","length":0,"note":"not\nhere","time":"0:00:00.001"}])");
    EXPECT_EQ(file["chunks"].dump(), R"([{"bytes":9,"name":"iXML"}])");
    EXPECT_EQ(file["problems"].dump(), "[]");
}

TEST(InfoCSV, HasALineForEachFileAndQuotesWhereNeeded) {
    const TemporaryDirectory directory;
    WriteDescribedTake(directory / "take.wav");
    WriteAudio(directory / "a,b", SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 2, 8000, {0.0F, 0.5F});
    const std::string titles =
        "file,container,encoding,bytes,channels,layout,rate,frames,seconds,broadcast.description,"
        "broadcast.originator,broadcast.originator_reference,broadcast.date,broadcast.time,"
        "broadcast.time_reference,tags.title,tags.artist,tags.album,tags.date,tags.comment";
    ExpectResult(RunKelhost(directory, {"info", "--csv", "take.wav", "missing.wav", "a,b"}), 1,
                 titles +
                     "\r\n"
                     "take.wav,WAVE,16-bit integer,889,1,,8000,10,0.00125,"
                     "\"A \"\"door\"\", slammed\",Studio\\x1B,REF1,2026-11-22,10:11:12,230400000,"
                     "Door,,,,x\\ny\r\n"
                     "\"a,b\",WAVE,32-bit float,120,2,stereo,8000,1,0.000125,,,,,,,,,,,\r\n",
                 Error("missing.wav", "cannot open for reading: No such file or directory"));
    ExpectResult(RunKelhost(directory, {"info", "--csv", "--field", "frames,file", "a,b"}), 0,
                 "frames,file\r\n1,\"a,b\"\r\n", "");
    const std::string measured = RunKelhost(directory, {"info", "--csv", "--measure", "a,b"}).out;
    EXPECT_EQ(LinesOf(measured).at(0), titles + ",measurement.integrated_lufs,measurement.range_lu,"
                                                "measurement.true_peak_dbtp\r");
}

TEST(InfoForms, ThatCannotBeCombinedAreRefused) {
    const TemporaryDirectory directory;
    const auto expectRefusal = [&](const Arguments& options, const std::string& error) {
        ExpectResult(RunKelhost(directory, Arguments{"info", "take.wav"} + options), 2, "", error);
    };
    const std::string hint = "; see kelhost info --help\n";
    expectRefusal({"--full", "--csv"}, "kelhost: --csv excludes --full" + hint);
    expectRefusal({"--full", "--field", "frames"}, "kelhost: --field excludes --full" + hint);
    const auto document = [](const std::string& message) {
        return R"({"document":"kelhost.error","file":"","message":")" + message +
               "\",\"path\":null,\"version\":1}\n";
    };
    expectRefusal({"--full", "--json"}, document("--json excludes --full"));
    expectRefusal({"--csv", "--json"}, document("--json excludes --csv"));
}

TEST(InfoMeasure, ShowsLevelsAndLoudnessOfASingleFileBelowItsDetails) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "half.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 1000,
               {0.5F, 0.0F, -0.5F, 0.0F});
    const std::string details = RunKelhost(directory, {"info", "half.wav"}).out;
    ExpectResult(RunKelhost(directory, {"info", "--measure", "half.wav"}), 0,
                 details + "\n"
                           "Channel       Peak        RMS  At full scale  Not finite\n"
                           "      1  -6.0 dBFS  -6.0 dBFS              0           0\n"
                           "      2       none       none              0           0\n"
                           "Integrated loudness  none\n"
                           "Loudness range       none\n"
                           "True peak            -6.0 dBTP\n",
                 "");
}

TEST(InfoMeasure, ShowsSeveralFilesInATable) {
    const TemporaryDirectory directory;
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    WriteAudio(directory / "half.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 1000,
               {0.25F, 0.0F, kNaN, -0.5F});
    WriteAudio(directory / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 1000,
               {10.0F, -1.0F, -1.0F, 0.0F});
    ExpectResult(RunKelhost(directory, {"info", "--measure", "half.wav", "loud.wav"}), 0,
                 "File         Duration       Peak  Integrated  Range  True peak  At full scale  "
                 "Not finite\n"
                 "half.wav  0:00:00.002  -6.0 dBFS        none   none  -6.0 dBTP              0  "
                 "         1\n"
                 "loud.wav  0:00:00.002  20.0 dBFS        none   none  20.0 dBTP              3  "
                 "         0\n",
                 "");
}

TEST(InfoMeasure, ReportsAFileThatEndsEarlyAndShowsTheOthers) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 1);
    WriteAudio(directory / "whole.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 48000,
               MakeValues(100000));
    const std::string whole = ReadFile(directory / "whole.flac");
    // The header, and nothing else.
    WriteFile(directory / "broken.flac", whole.substr(0, 200));
    const ProcessResult result =
        RunKelhost(directory, {"info", "--measure", "broken.flac", "take.wav"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(LinesOf(result.out).at(1).substr(0, 8), "take.wav");
    EXPECT_EQ(LinesOf(result.out).size(), 2U);
    const std::string promise = "kelhost: broken.flac: declares 100000 frames and delivers 0";
    EXPECT_EQ(result.err.substr(0, promise.size()), promise);
    const std::string damaged = "; it is damaged or was changed while it was read "
                                "(--allow-truncated accepts the frames that exist)\n";
    EXPECT_EQ(result.err.substr(result.err.size() - damaged.size()), damaged);
    EXPECT_EQ(RunKelhost(directory, {"plot", "broken.flac", "broken.png"}).err, result.err);
    EXPECT_EQ(RunKelhost(directory, {"plot", "broken.flac"}).status, 1);
    EXPECT_EQ(SortedNames(directory), (Names{"broken.flac", "take.wav", "whole.flac"}));
}

TEST(InfoField, ShowsOneValue) {
    const TemporaryDirectory directory;
    WriteAudio(directory / "take.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 1000,
               {0.5F, 0.0F, -0.5F, 4.0F});
    struct Row {
        std::string field;
        std::string value;
    };
    const std::vector<Row> rows{
        {"channels", "2"},
        {"file", "take.wav"},
        {"frames", "2"},
        {"measurement.channels.0.peak_dbfs", "-6.020599913279624"},
        {"measurement.channels.1.at_full_scale", "1"},
        {"measurement.integrated_lufs", "null"},
        {"seconds", "0.002"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.field);
        ExpectResult(RunKelhost(directory, {"info", "--field", row.field, "take.wav"}), 0,
                     row.value + "\n", "");
    }
    ExpectResult(RunKelhost(directory, {"info", "--json", "--field", "file", "take.wav"}), 0,
                 "\"take.wav\"\n", "");
}

TEST(InfoField, ShowsSeveralValuesSeparatedByTabs) {
    const TemporaryDirectory directory;
    WriteDescribedTake(directory / "take.wav");
    WriteTake(directory / "plain.wav", 1);
    ExpectResult(RunKelhost(directory, {"info", "--field",
                                        "file,tags.comment,tags.artist,broadcast.loudness.range_lu,"
                                        "measurement.range_lu",
                                        "take.wav", "plain.wav"}),
                 0,
                 "take.wav\tx\\ny\tnull\t5.25\tnull\n"
                 "plain.wav\tnull\tnull\tnull\tnull\n",
                 "");
    ExpectResult(
        RunKelhost(directory, {"info", "--json", "--field", "tags.comment,frames", "take.wav"}), 0,
        "\"x\\ny\"\t10\n", "");
    ExpectResult(RunKelhost(directory, {"info", "--field", "cue_points.1.label,cue_points.0.frame",
                                        "plain.wav", "take.wav"}),
                 1, "end\t4\n",
                 Error("plain.wav", "has no field cue_points.1.label; it has 0 cue points, counted "
                                    "from 0"));
}

TEST(InfoField, IsShownOfTheFilesThatHaveIt) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav", 1);
    WriteAudio(directory / "mono.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, {0.0F});
    ExpectResult(RunKelhost(directory, {"info", "--field", "measurement.channels.1.non_finite",
                                        "mono.wav", "missing.wav", "take.wav"}),
                 1, "0\n",
                 Error("missing.wav", "cannot open for reading: No such file or directory") +
                     Error("mono.wav", "has no field measurement.channels.1.non_finite; it has 1 "
                                       "channel, counted from 0"));
}

TEST(InfoField, IsRefusedWithTheValidOnesBeforeAnyFileIsRead) {
    const TemporaryDirectory directory;
    const std::string names =
        " for --field: expected broadcast.coding_history, broadcast.date, broadcast.description, "
        "broadcast.loudness.integrated_lufs, broadcast.loudness.momentary_lufs, "
        "broadcast.loudness.range_lu, broadcast.loudness.short_term_lufs, "
        "broadcast.loudness.true_peak_dbtp, broadcast.originator, broadcast.originator_reference, "
        "broadcast.time, broadcast.time_reference, broadcast.time_reference_time, broadcast.umid, "
        "broadcast.version, bytes, channel_mask, channels, chunks.0.bytes, chunks.0.name, "
        "container, cue_points.0.frame, cue_points.0.id, cue_points.0.label, cue_points.0.length, "
        "cue_points.0.note, cue_points.0.time, delivery, duration, encoding, file, format, frames, "
        "layout, md5, measurement.channels.0.at_full_scale, measurement.channels.0.non_finite, "
        "measurement.channels.0.peak, measurement.channels.0.peak_dbfs, "
        "measurement.channels.0.rms, measurement.channels.0.rms_dbfs, "
        "measurement.integrated_lufs, measurement.range_lu, measurement.true_peak_dbtp, "
        "path, problems.0, rate, seconds, tags.NAME, truncated or warnings\n";
    const auto expectRefusal = [&](const std::string& field, const std::string& expected) {
        ExpectResult(RunKelhost(directory, {"info", "missing.wav", "--field=" + field}), 2, "",
                     "kelhost: invalid value \"" + field + "\"" + expected);
    };
    expectRefusal("~", names);
    expectRefusal("", names);
    for (const auto& [field, closest] : std::vector<std::pair<std::string, std::string>>{
             {"Frames", "frames"},
             {"frames.", "frames"},
             {"tags.", "tags.NAME"},
             {"measurement.channels", "measurement.channels.0.at_full_scale"},
             {"measurement.channels.x.peak", "measurement.channels.0.peak"},
             {"measurement.channels.01.peak", "measurement.channels.0.peak"},
             {"measurement/range_lu", "measurement.range_lu"}}) {
        expectRefusal(field,
                      " for --field: expected another name; did you mean " + closest + "?\n");
    }
}

} // namespace kel::test
