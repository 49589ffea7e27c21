// Metadata that other tools write and read.

#include "AudioFiles.h"
#include "Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace kel::test {

namespace {

// Runs a tool; returns what it prints.
std::string RunTool(const TemporaryDirectory& directory, const Arguments& arguments) {
    Command command;
    command.program = "/usr/bin/" + arguments.front();
    command.arguments = Arguments(arguments.begin() + 1, arguments.end());
    command.directory = directory.Path();
    const ProcessResult result = RunCommand(command);
    EXPECT_EQ(result.status, 0) << arguments.front() << ": " << result.err;
    return result.out;
}

void CopyFile(const TemporaryDirectory& directory, const std::string& input,
              const std::string& output) {
    ExpectResult(RunKelhost(directory, {"copy", input, output, "--encoding", "int16", "--quiet"}),
                 0, "", "");
}

// Has ffmpeg write a file with fields: "title=Name".
void WriteWithFields(const TemporaryDirectory& directory, const std::string& output,
                     const Arguments& fields) {
    Arguments arguments{"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=d=0.1"};
    for (const std::string& field : fields) {
        arguments = arguments + Arguments{"-metadata", field};
    }
    RunTool(directory, arguments + Arguments{"-write_bext", "1", output});
}

enum class Tools { All, WithoutMediaInfo };

// The metadata of a file as tools report it.
std::string ReportTags(const TemporaryDirectory& directory, const std::string& file, Tools tools) {
    const std::string fields =
        "General;%Title%|%Performer%|%Description%|%Producer%|%Producer_Reference%|%Encoded_Date%|"
        "%Delay%|%Comment%|%Encoded_Application%";
    return RunTool(directory, {"ffprobe", "-v", "error", "-show_entries", "format_tags", file}) +
           RunTool(directory, {"exiftool", "-Description", "-Originator", "-OriginatorReference",
                               "-DateTimeOriginal", "-TimeReference", "-BWFVersion",
                               "-CodingHistory", "-Title", "-Artist", "-Comment", "-Annotation",
                               "-Author", "-Copyright", "-Name", file}) +
           (tools == Tools::All ? RunTool(directory, {"mediainfo", "--Inform=" + fields, file})
                                : "");
}

void ExpectSameTags(const TemporaryDirectory& directory, const std::string& a, const std::string& b,
                    Tools tools = Tools::All) {
    EXPECT_EQ(ReportTags(directory, b, tools), ReportTags(directory, a, tools));
}

} // namespace

TEST(MetadataOfOtherTools, SurvivesWAVEAndRF64) {
    const TemporaryDirectory directory;
    WriteWithFields(directory, "take.wav",
                    {"description=A take", "originator=Recorder", "originator_reference=Number 1",
                     "origination_date=2026-11-22", "origination_time=10:11:12",
                     "time_reference=4800000", "title=Name", "artist=Player", "comment=Remark"});
    CopyFile(directory, "take.wav", "copy.rf64");
    CopyFile(directory, "copy.rf64", "copy.wav");
    EXPECT_NE(ReportTags(directory, "copy.wav", Tools::All).find("time_reference=4800000\n"),
              std::string::npos);
    ExpectSameTags(directory, "take.wav", "copy.rf64");
    ExpectSameTags(directory, "take.wav", "copy.wav");
}

// The fields of LIST INFO come back in another order.
TEST(MetadataOfOtherTools, OfWAVESurvivesAIFF) {
    const TemporaryDirectory directory;
    WriteWithFields(directory, "take.wav",
                    {"description=A take", "originator=Recorder", "originator_reference=Number 1",
                     "origination_date=2026-11-22", "origination_time=10:11:12",
                     "time_reference=4800000", "umid=0x" + std::string(128, 'A'), "title=Name",
                     "artist=Player", "comment=Remark", "album=Record", "date=2026", "genre=Rock",
                     "copyright=Owner", "track=3"});
    CopyFile(directory, "take.wav", "copy.aiff");
    CopyFile(directory, "copy.aiff", "copy.wav");
    const auto sortedTags = [&](const std::string& file) {
        std::istringstream report(ReportTags(directory, file, Tools::All));
        std::vector<std::string> lines;
        for (std::string line; std::getline(report, line);) {
            lines.push_back(line);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    const std::vector<std::string> before = sortedTags("take.wav");
    EXPECT_EQ(std::count(before.begin(), before.end(), "TAG:time_reference=4800000"), 1);
    EXPECT_EQ(sortedTags("copy.wav"), before);
}

TEST(MetadataOfOtherTools, SurvivesAIFF) {
    const TemporaryDirectory directory;
    WriteWithFields(directory, "ffmpeg.aiff",
                    {"title=Name", "author=Player", "copyright=Owner", "comment=Remark"});
    RunTool(directory, {"sox", "-n", "-b", "16", "sox.aiff", "synth", "0.1", "sine", "vol", "0.5"});
    CopyFile(directory, "ffmpeg.aiff", "ffmpeg.copy.aiff");
    CopyFile(directory, "sox.aiff", "sox.copy.aiff");
    ExpectSameTags(directory, "ffmpeg.aiff", "ffmpeg.copy.aiff");
    ExpectSameTags(directory, "sox.aiff", "sox.copy.aiff");
}

TEST(MetadataOfOtherTools, SurvivesInID3ChunksOfAIFF) {
    const TemporaryDirectory directory;
    RunTool(directory,
            {"sox", "-n", "-b", "16", "take.aiff", "synth", "0.1", "sine", "vol", "0.5"});
    RunTool(directory, {"python3", "-c",
                        "import mutagen.aiff as a, mutagen.id3 as i; f = a.AIFF('take.aiff'); "
                        "f.add_tags(); f.tags.add(i.TIT2(encoding=3, text='N\xC3\xA4me')); "
                        "f.save()"});
    CopyFile(directory, "take.aiff", "copy.aiff");
    // MediaInfo does not read ID3 in AIFF-C.
    ExpectSameTags(directory, "take.aiff", "copy.aiff", Tools::WithoutMediaInfo);
    EXPECT_EQ(RunTool(directory, {"python3", "-c",
                                  "import mutagen.aiff as a; "
                                  "print(a.AIFF('copy.aiff').tags['TIT2'])"}),
              "N\xC3\xA4me\n");
}

TEST(MetadataOfOtherTools, SurvivesInID3ChunksOfWAVE) {
    const TemporaryDirectory directory;
    WriteTake(directory / "take.wav");
    RunTool(directory, {"python3", "-c",
                        "import mutagen.wave as w, mutagen.id3 as i; f = w.WAVE('take.wav'); "
                        "f.add_tags(); f.tags.add(i.TIT2(encoding=3, text='N\xC3\xA4me')); "
                        "f.save()"});
    CopyFile(directory, "take.wav", "copy.wav");
    EXPECT_EQ(RunTool(directory, {"python3", "-c",
                                  "import mutagen.wave as w; "
                                  "print(w.WAVE('copy.wav').tags['TIT2'])"}),
              "N\xC3\xA4me\n");
}

} // namespace kel::test
